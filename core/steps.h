// The core's own steps of the control flow, in table order. Those with a result return it for tests; the control flow
// looks at none.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

void SignalConnectDriversEvent();
EFI_STATUS PciOptionRomControlLibInitialize();
EFI_STATUS SignalCompletePowerManagementProtocolEvent();
void ConnectRootBridgeHandlesBeforeEndOfDxe();
void SignalEndOfDxe();
void ConnectRootBridgeHandles();
void RegisterMemoryTypeInformationUpdateCallback();
void ReportConnectConOutProgressCode();
void ConnectVgaConOut();
void ConnectConOutVariable();
void InstallConOutStartedProtocol();
void ReportConnectConInProgressCode();
void ConnectPs2ConIn();
void ConnectUsbConIn();
void ConnectConInVariable();
void InstallConInStartedProtocol();
void ConInAvailabilityBeep();
void WaitForUserInput();
EFI_STATUS ConnectEverything();
void RunDrivers();
void InitConVars();
EFI_STATUS ShadowAllLegacyOptionRoms();
void SignalAllDriversConnectedEvent();
void CheckDriverHealth();
EFI_STATUS SignalExitPmAuthProtocolEvent();
EFI_STATUS InstallFwLoadFileProtocol();

EFI_STATUS CallTheDispatcher();
void RecoverTheMemoryAbove4Gb();
EFI_STATUS PerformCapsuleVariableCleanup();
EFI_STATUS HandoffToKui();
EFI_STATUS ReadBootOptionAndBoot();

}  // namespace bds

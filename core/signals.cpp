// The steps that tell the platform of a milestone and do nothing else.
#include "core/signals.h"

#include "core/state.h"
#include "core/steps.h"
#include "platform/acpi_s3_save.h"
#include "platform/firmware_volume2.h"
#include "platform/signals.h"
#include "platform/status_code.h"
#include "support/event.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr UINT32 kConnectingDrivers = 0x03051005;
constexpr UINT32 kConnectingConsoleOut = 0x01030000;
constexpr UINT32 kConnectingConsoleIn = 0x01010000;
constexpr UINT32 kConsoleInAvailable = 0x00008101;

void SaveForResume() {
  if (auto* save = LocateProtocol<EFI_ACPI_S3_SAVE_PROTOCOL>(); save != nullptr) {
    static_cast<void>(save->S3Save(save, nullptr));
  }
}

void RecordFirmwareVolumes() {
  HANDLE_ARRAY& volumes = gCore.FirmwareVolumes;
  if (EFI_ERROR(BootServices()->LocateHandleBuffer(ByProtocol, &ProtocolGuid<EFI_FIRMWARE_VOLUME2_PROTOCOL>, nullptr,
                                                   &volumes.Count, &volumes.Handles))) {
    volumes = {};
  }
}

}  // namespace

void SignalProtocolEvent(const EFI_GUID& guid) {
  EFI_HANDLE handle = nullptr;
  if (!EFI_ERROR(InstallNullProtocol(guid, &handle))) {
    static_cast<void>(BootServices()->UninstallProtocolInterface(handle, &guid, nullptr));
  }
}

void ReportProgressCode(UINT32 value) {
  if (auto* reporter = LocateProtocol<EFI_STATUS_CODE_PROTOCOL>(); reporter != nullptr) {
    static_cast<void>(reporter->ReportStatusCode(EFI_PROGRESS_CODE, value, 0, nullptr, nullptr));
  }
}

void SignalConnectDriversEvent() {
  ReportProgressCode(kConnectingDrivers);
  SignalProtocolEvent(kConnectDriversSignalGuid);
}

EFI_STATUS PciOptionRomControlLibInitialize() { return EFI_SUCCESS; }

// The two platform signals stay installed: who looks later finds them, too.
EFI_STATUS SignalCompletePowerManagementProtocolEvent() {
  return InstallNullProtocol(kCompletePowerManagementSignalGuid);
}

EFI_STATUS SignalExitPmAuthProtocolEvent() { return InstallNullProtocol(kExitPmAuthSignalGuid); }

// The S3 data is saved before anything untrusted can run, and management-mode memory locks last.
void SignalEndOfDxe() {
  ReportProgressCode(kConnectingDrivers);
  SaveForResume();
  SignalEventGroup(gEfiEndOfDxeEventGroupGuid);
  SignalProtocolEvent(kDxeSmmReadyToLockGuid);
  RecordFirmwareVolumes();
}

void ReportConnectConOutProgressCode() { ReportProgressCode(kConnectingConsoleOut); }

void ReportConnectConInProgressCode() { ReportProgressCode(kConnectingConsoleIn); }

void ConInAvailabilityBeep() { ReportProgressCode(kConsoleInAvailable); }

void SignalAllDriversConnectedEvent() { SignalProtocolEvent(kAllDriversConnectedSignalGuid); }

}  // namespace bds

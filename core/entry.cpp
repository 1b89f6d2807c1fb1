// The entry point: prepares the driver's state and offers BdsEntry to the DXE core.
#include "core/entry.h"

#include "bmc/state.h"
#include "bootopt/boot_lists.h"
#include "core/bds_entry.h"
#include "core/oprom_policy.h"
#include "core/oprom_state.h"
#include "core/state.h"
#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/services.h"
#include "vboot/policy_engine.h"

namespace bds {

constinit CORE_STATE gCore;
constinit OPTION_ROM_STATE gOptionRom;

namespace {

constexpr CHAR16 kFirmwareVendor[] = u"Nuvarin";
constexpr UINT32 kFirmwareRevision = 0x0005000B;

void StartAllStateFresh(EFI_HANDLE imageHandle, EFI_SYSTEM_TABLE* systemTable) {
  StartFresh(gDebug);
  StartFresh(gCore);
  StartFresh(gOptionRom);
  StartFresh(gBootOptions);
  StartFresh(gPolicyEngine);
  StartFresh(gBmc);
  StartFresh(gFlexBoot);
  InitializeServices(imageHandle, systemTable);
  InitializeDebugMask(imageHandle);
}

void TakeSetup() {
  if (!EFI_ERROR(ReadSetup(gCore.Setup))) {
    gCore.SetupRead = TRUE;
    ArrangeOptionRomPolicy();
  }
}

void NameFirmware(EFI_SYSTEM_TABLE& table) {
  void* name = nullptr;
  const EFI_STATUS status = BootServices()->AllocatePool(EfiRuntimeServicesData, sizeof(kFirmwareVendor), &name);
  if (!EFI_ERROR(status)) {
    CopyMemory(name, kFirmwareVendor, sizeof(kFirmwareVendor));
    table.FirmwareVendor = static_cast<CHAR16*>(name);
  }
  table.FirmwareRevision = kFirmwareRevision;
}

VOID EFIAPI ArchitecturalEntry(EFI_BDS_ARCH_PROTOCOL*) { BdsEntry(); }

EFI_STATUS InstallArchitecturalProtocol() {
  gCore.BdsArch.Entry = ArchitecturalEntry;
  EFI_HANDLE handle = nullptr;
  return BootServices()->InstallProtocolInterface(&handle, &ProtocolGuid<EFI_BDS_ARCH_PROTOCOL>, EFI_NATIVE_INTERFACE,
                                                  &gCore.BdsArch);
}

}  // namespace
}  // namespace bds

extern "C" EFI_STATUS EFIAPI EfiMain(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  bds::StartAllStateFresh(ImageHandle, SystemTable);
  bds::TakeSetup();
  bds::NameFirmware(*SystemTable);
  return bds::InstallArchitecturalProtocol();
}

#include "inventory/raid_health.h"

#include "platform/driver_configuration2.h"
#include "platform/driver_health.h"
#include "platform/pci_io.h"
#include "support/debug_print.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr UINT16 kRaidVendor = 0x1000;
constexpr CHAR8 kLanguage[] = "eng";

struct PciIds {
  UINT16 Vendor = 0;
  UINT16 Device = 0;
};

bool ReadIds(EFI_HANDLE controller, PciIds& ids) {
  auto* pciIo = HandleProtocol<EFI_PCI_IO_PROTOCOL>(controller);
  UINT16 words[2] = {};
  if (pciIo == nullptr || EFI_ERROR(pciIo->Pci.Read(pciIo, EfiPciIoWidthUint16, 0, 2, words))) {
    return false;
  }
  ids = {words[0], words[1]};
  return true;
}

// Most drivers answer for another controller with an error; only what the log says tells them apart.
bool NeedsConfiguration(EFI_HANDLE driver, EFI_HANDLE controller) {
  EFI_DRIVER_HEALTH_PROTOCOL* health = nullptr;
  EFI_STATUS status = OpenOn(driver, health);
  if (EFI_ERROR(status)) {
    DebugPrint("LsiUefiRequirementForHwraid().HandleProtocol(DrvHealth) = %r\n", status);
    return false;
  }
  EFI_DRIVER_HEALTH_STATUS answer = EfiDriverHealthStatusHealthy;
  EFI_HII_HANDLE form = nullptr;
  status = health->GetHealthStatus(health, controller, nullptr, &answer, nullptr, &form);
  if (EFI_ERROR(status)) {
    DebugPrint("LsiUefiRequirementForHwraid().GetHealthStatus = %r  FormHandle = %x\n", status, form);
    return false;
  }
  DebugPrint("LsiUefiRequirementForHwraid().HealthStatus = %d\n", static_cast<UINT32>(answer));
  return answer == EfiDriverHealthStatusConfigurationRequired;
}

void ApplyDefaults(EFI_HANDLE driver, EFI_HANDLE controller) {
  EFI_DRIVER_CONFIGURATION2_PROTOCOL* configuration = nullptr;
  EFI_STATUS status = OpenOn(driver, configuration);
  if (EFI_ERROR(status)) {
    DebugPrint("LsiUefiRequirementForHwraid().HandleProtocol(DCP2) = %r\n", status);
    return;
  }
  if (!NeedsConfiguration(driver, controller)) {
    return;
  }
  EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED ignored{};
  status = configuration->SetOptions(configuration, controller, nullptr, kLanguage, &ignored);
  DebugPrint("LsiUefiRequirementForHwraid().Dcp2->SetOptions = %r\n", status);
}

void TreatControllers(const HandleBuffer& drivers, const HandleBuffer& functions) {
  for (EFI_HANDLE controller : functions) {
    PciIds ids;
    if (!ReadIds(controller, ids) || ids.Vendor != kRaidVendor) {
      continue;
    }
    DebugPrint("LsiUefiRequirementForHwraid().Fount LSI Controller Vid:%04X Did:%04X\n", ids.Vendor, ids.Device);
    for (EFI_HANDLE driver : drivers) {
      ApplyDefaults(driver, controller);
    }
  }
}

}  // namespace

void LsiUefiRequirementForHwraid() {
  DebugPrint("LsiUefiRequirementForHwraid().Entry\n");
  HandleBuffer drivers;
  EFI_STATUS status = drivers.Locate(ProtocolGuid<EFI_DRIVER_HEALTH_PROTOCOL>);
  if (EFI_ERROR(status)) {
    DebugPrint("LsiUefiRequirementForHwraid().LocateHandleBuffer(Drvhealth) = %r\n", status);
    return;
  }
  HandleBuffer functions;
  status = functions.Locate(ProtocolGuid<EFI_PCI_IO_PROTOCOL>);
  if (EFI_ERROR(status)) {
    DebugPrint("LsiUefiRequirementForHwraid().LocateHandleBuffer(PciIo) = %r\n", status);
    return;
  }
  TreatControllers(drivers, functions);
  DebugPrint("LsiUefiRequirementForHwraid().Exit\n");
}

}  // namespace bds

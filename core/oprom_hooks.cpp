// A legacy video ROM can only run when no UEFI driver holds the display controller. The hook takes the controller away
// from such a driver. When the ROMs did not take over before all drivers were connected, each one goes back.
#include "core/oprom_hooks.h"

#include "core/oprom_drivers.h"
#include "core/oprom_state.h"
#include "core/pci_handles.h"
#include "platform/graphics_output.h"

namespace bds {
namespace {

EFI_HANDLE HandleOfPciIo(const EFI_PCI_IO_PROTOCOL* pciIo) {
  for (EFI_HANDLE handle : HandlesWith<EFI_PCI_IO_PROTOCOL>()) {
    if (HandleProtocol<EFI_PCI_IO_PROTOCOL>(handle) == pciIo) {
      return handle;
    }
  }
  return nullptr;
}

// The driver that shows a picture through this controller: it opened PCI I/O for a child with graphics output.
EFI_STATUS FindGraphicsDriver(EFI_HANDLE display, EFI_HANDLE& driver) {
  PoolPtr<EFI_OPEN_PROTOCOL_INFORMATION_ENTRY> openings;
  UINTN count = 0;
  const EFI_STATUS status =
      BootServices()->OpenProtocolInformation(display, &ProtocolGuid<EFI_PCI_IO_PROTOCOL>, openings.put(), &count);
  if (EFI_ERROR(status)) {
    return EFI_NOT_FOUND;
  }
  for (UINTN i = 0; i < count; ++i) {
    const EFI_OPEN_PROTOCOL_INFORMATION_ENTRY& opening = openings[i];
    if ((opening.Attributes & EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER) != 0 &&
        HasProtocol(opening.ControllerHandle, ProtocolGuid<EFI_GRAPHICS_OUTPUT_PROTOCOL>)) {
      driver = opening.AgentHandle;
      return EFI_SUCCESS;
    }
  }
  return EFI_NOT_FOUND;
}

// Stopping the driver switched the controller's decoding off; the ROM needs it.
void EnableDecoding(EFI_PCI_IO_PROTOCOL& pciIo) {
  UINT64 supported = 0;
  if (EFI_ERROR(pciIo.Attributes(&pciIo, EfiPciIoAttributeOperationSupported, 0, &supported))) {
    return;
  }
  static_cast<void>(
      pciIo.Attributes(&pciIo, EfiPciIoAttributeOperationEnable, supported & EFI_PCI_DEVICE_ENABLE, nullptr));
}

// Success too when a driver for legacy ROMs shows the picture already.
EFI_STATUS DetachGraphics(EFI_HANDLE display, EFI_PCI_IO_PROTOCOL& pciIo) {
  EFI_HANDLE driver = nullptr;
  if (const EFI_STATUS status = FindGraphicsDriver(display, driver); EFI_ERROR(status)) {
    return status;
  }
  if (IsThunkDriver(driver)) {
    return EFI_SUCCESS;
  }
  const EFI_STATUS status = BootServices()->DisconnectController(display, nullptr, nullptr);
  EnableDecoding(pciIo);
  return status;
}

void TakeDisplayOver(EFI_PCI_IO_PROTOCOL& pciIo) {
  EFI_HANDLE display = HandleOfPciIo(&pciIo);
  // A display that could not be remembered could not be given back, so it is not taken.
  if (display == nullptr || EFI_ERROR(ReserveHandle(gOptionRom.Displays))) {
    return;
  }
  if (!EFI_ERROR(DetachGraphics(display, pciIo))) {
    AppendHandle(gOptionRom.Displays, display);
  }
}

EFI_STATUS BeforeOptionRom(CSM_OPTION_ROM_CONTEXT& context) {
  UINT8 baseClass = 0;
  if (const EFI_STATUS status = ReadPciClass(*context.PciIo, baseClass); EFI_ERROR(status)) {
    return status;
  }
  context.Flag = 1;
  if (baseClass == kPciClassDisplay) {
    TakeDisplayOver(*context.PciIo);
  }
  return EFI_SUCCESS;
}

// The status of the last display that could not be connected.
EFI_STATUS GiveDisplaysBack() {
  EFI_STATUS result = EFI_SUCCESS;
  if (gOptionRom.AllDriversConnected) {
    return result;
  }
  for (EFI_HANDLE display : gOptionRom.Displays) {
    const EFI_STATUS status = BootServices()->ConnectController(display, nullptr, nullptr, TRUE);
    result = EFI_ERROR(status) ? status : result;
  }
  return result;
}

EFI_STATUS EFIAPI OptionRomHook(CSM_OPTION_ROM_CONTEXT* context) {
  if (context == nullptr) {
    return GiveDisplaysBack();
  }
  return context->PciIo != nullptr && context->Flag != 0 ? BeforeOptionRom(*context) : EFI_SUCCESS;
}

EFI_STATUS EFIAPI DoNothing() { return EFI_SUCCESS; }

// Boards may add checks; one that answers success or EFI_UNSUPPORTED decides. This board has none.
using PciCheck = EFI_STATUS (*)(EFI_HANDLE controller);
constexpr std::span<const PciCheck> kPciChecks{};

EFI_STATUS EFIAPI CheckPci(CSM_POLICY_HOOK_B*, EFI_HANDLE controller) {
  for (const PciCheck check : kPciChecks) {
    const EFI_STATUS status = check(controller);
    if (status == EFI_SUCCESS || status == EFI_UNSUPPORTED) {
      return status;
    }
  }
  UINT8 baseClass = 0;
  return ReadPciClass(controller, baseClass);
}

}  // namespace

CSM_POLICY_HOOK_A MakePolicyHookA() { return {DoNothing, OptionRomHook}; }

CSM_POLICY_HOOK_B MakePolicyHookB() { return {CheckPci, OptionRomHook}; }

}  // namespace bds

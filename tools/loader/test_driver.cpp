// A third-party driver stand-in: it serves PCI functions of its own maker and says on the console what happens to it.
// Its load options are shown, so that one can see what NVRAM gave it.
#include "platform/driver_binding.h"
#include "platform/loaded_image.h"
#include "platform/pci_io.h"
#include "platform/simple_text_out.h"
#include "platform/system_table.h"

namespace {

constexpr UINT16 kMaker = 0x1BD5;  // vendor ID of the functions that it serves

EFI_SYSTEM_TABLE* gSystem = nullptr;

void Print(const CHAR16* text) {
  if (gSystem->ConOut != nullptr) {
    static_cast<void>(gSystem->ConOut->OutputString(gSystem->ConOut, text));
  }
}

EFI_STATUS OpenPci(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller, EFI_PCI_IO_PROTOCOL** pci) {
  VOID* interface = nullptr;
  const EFI_STATUS status =
      gSystem->BootServices->OpenProtocol(controller, &ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &interface, self->ImageHandle,
                                          controller, EFI_OPEN_PROTOCOL_BY_DRIVER);
  *pci = static_cast<EFI_PCI_IO_PROTOCOL*>(interface);
  return status;
}

EFI_STATUS ClosePci(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller) {
  return gSystem->BootServices->CloseProtocol(controller, &ProtocolGuid<EFI_PCI_IO_PROTOCOL>, self->ImageHandle,
                                              controller);
}

EFI_STATUS EFIAPI Supported(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL*) {
  EFI_PCI_IO_PROTOCOL* pci = nullptr;
  const EFI_STATUS opened = OpenPci(self, controller, &pci);
  if (EFI_ERROR(opened)) {
    return opened;
  }
  UINT16 vendor = 0;
  const EFI_STATUS read = pci->Pci.Read(pci, EfiPciIoWidthUint16, 0, 1, &vendor);
  static_cast<void>(ClosePci(self, controller));
  return !EFI_ERROR(read) && vendor == kMaker ? EFI_SUCCESS : EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI Start(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL*) {
  EFI_PCI_IO_PROTOCOL* pci = nullptr;
  const EFI_STATUS status = OpenPci(self, controller, &pci);
  if (!EFI_ERROR(status)) {
    Print(u"test-driver: serves a function\r\n");
  }
  return status;
}

EFI_STATUS EFIAPI Stop(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller, UINTN, EFI_HANDLE*) {
  Print(u"test-driver: leaves a function\r\n");
  return ClosePci(self, controller);
}

EFI_DRIVER_BINDING_PROTOCOL gBinding{.Supported = Supported,
                                     .Start = Start,
                                     .Stop = Stop,
                                     .Version = 0x10,
                                     .ImageHandle = nullptr,
                                     .DriverBindingHandle = nullptr};

void PrintLoadOptions(EFI_HANDLE handle) {
  VOID* interface = nullptr;
  if (EFI_ERROR(gSystem->BootServices->HandleProtocol(handle, &ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>, &interface))) {
    return;
  }
  const auto* image = static_cast<EFI_LOADED_IMAGE_PROTOCOL*>(interface);
  const auto* options = static_cast<const CHAR16*>(image->LoadOptions);
  CHAR16 text[33]{};
  for (UINTN i = 0; i < image->LoadOptionsSize / sizeof(CHAR16) && i < 32; ++i) {
    text[i] = options[i];
  }
  Print(text);
}

}  // namespace

extern "C" EFI_STATUS EFIAPI EfiMain(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  gSystem = SystemTable;
  Print(u"test-driver: started with \"");
  PrintLoadOptions(ImageHandle);
  Print(u"\"\r\n");
  gBinding.ImageHandle = ImageHandle;
  gBinding.DriverBindingHandle = ImageHandle;
  EFI_HANDLE handle = ImageHandle;
  return SystemTable->BootServices->InstallProtocolInterface(&handle, &ProtocolGuid<EFI_DRIVER_BINDING_PROTOCOL>,
                                                             EFI_NATIVE_INTERFACE, &gBinding);
}

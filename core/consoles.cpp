// The console devices: video first, then keyboards. ConOut and ConIn name further ones.
#include "core/connect_device_path.h"
#include "core/console_started.h"
#include "core/legacy_io_nodes.h"
#include "core/pci_handles.h"
#include "core/state.h"
#include "core/steps.h"
#include "platform/signals.h"

namespace bds {
namespace {

bool IsEmbedded(EFI_HANDLE handle) {
  auto* pciIo = HandleProtocol<EFI_PCI_IO_PROTOCOL>(handle);
  UINT64 attributes = 0;
  return pciIo != nullptr && !EFI_ERROR(pciIo->Attributes(pciIo, EfiPciIoAttributeOperationGet, 0, &attributes)) &&
         (attributes & EFI_PCI_IO_ATTRIBUTE_EMBEDDED_DEVICE) != 0;
}

bool IsDisplay(EFI_HANDLE handle) {
  UINT8 baseClass = 0;
  return !EFI_ERROR(ReadPciClass(handle, baseClass)) && baseClass == kPciClassDisplay;
}

void ConnectDisplays(const HandleBuffer& functions, bool embedded) {
  for (EFI_HANDLE handle : functions) {
    if (IsDisplay(handle) && IsEmbedded(handle) == embedded) {
      ConnectDevicePath(DevicePathOf(handle));
    }
  }
}

// Keyboard, mouse and the two serial ports, in the order in which they are connected.
constexpr ACPI_HID_DEVICE_PATH kPs2AndSerialNodes[] = {AcpiNode(kPs2Keyboard), AcpiNode(kPs2Mouse),
                                                       AcpiNode(kSerialPort, 0), AcpiNode(kSerialPort, 1)};

void ConnectBehindIsaBridge(const DevicePath* bridgePath) {
  for (const ACPI_HID_DEVICE_PATH& node : kPs2AndSerialNodes) {
    ConnectDevicePath(AppendNode(bridgePath, &node.Header).get());
  }
}

}  // namespace

// Add-in cards first: who plugs one in wants to see the console there.
void ConnectVgaConOut() {
  const HandleBuffer functions = HandlesWith<EFI_PCI_IO_PROTOCOL>();
  ConnectDisplays(functions, false);
  ConnectDisplays(functions, true);
}

void ConnectConOutVariable() { ConnectDevicePathVariable(u"ConOut"); }

void InstallConOutStartedProtocol() { InstallConsoleStartedProtocol(u"ConOutDev", kConsoleOutStartedGuid); }

void ConnectPs2ConIn() {
  PciHandles bridges;
  if (EFI_ERROR(GetPciHandlesByClass(kPciClassBridge, kPciSubclassIsaBridge, bridges))) {
    return;
  }
  for (EFI_HANDLE bridge : bridges) {
    const DevicePath* path = DevicePathOf(bridge);
    if (path == nullptr) {
      continue;
    }
    static_cast<void>(BootServices()->ConnectController(bridge, nullptr, nullptr, FALSE));
    ConnectBehindIsaBridge(path);
    gCore.IsaBridgePath = CopyDevicePath(path);
  }
}

void ConnectUsbConIn() {
  PciHandles controllers;
  if (EFI_ERROR(GetPciHandlesByClass(kPciClassSerialBus, kPciSubclassUsb, controllers))) {
    return;
  }
  for (EFI_HANDLE controller : controllers) {
    static_cast<void>(BootServices()->ConnectController(controller, nullptr, nullptr, TRUE));
  }
}

void ConnectConInVariable() { ConnectDevicePathVariable(u"ConIn"); }

void InstallConInStartedProtocol() { InstallConsoleStartedProtocol(u"ConInDev", kConsoleInStartedGuid); }

}  // namespace bds

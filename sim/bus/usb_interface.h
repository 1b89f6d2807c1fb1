// One USB device behind the USB I/O protocol (UEFI 2.10, 17.2.4): descriptors, strings, and for mass storage the
// endpoints of its transport.
#pragma once

#include "platform/usb_io.h"
#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/bus/device_tree.h"
#include "sim/bus/usb_mass_storage.h"

namespace sim {

class UsbInterface final : public DeviceObject {
 public:
  // `device` has to outlive this.
  UsbInterface(const UsbDevice& device, const BusContext& context);

  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(usbIo_.protocol)}; }

  [[nodiscard]] const UsbDevice& Device() const { return device_; }
  static UsbInterface& From(EFI_USB_IO_PROTOCOL* protocol) {
    return Backed<EFI_USB_IO_PROTOCOL, UsbInterface>::From(protocol);
  }

 private:
  static EFI_STATUS EFIAPI ControlTransfer(EFI_USB_IO_PROTOCOL* self, EFI_USB_DEVICE_REQUEST* request,
                                           EFI_USB_DATA_DIRECTION direction, UINT32 timeout, VOID* data, UINTN length,
                                           UINT32* status);
  static EFI_STATUS EFIAPI BulkTransfer(EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN* length,
                                        UINTN timeout, UINT32* status);
  static EFI_STATUS EFIAPI AsyncInterrupt(EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, BOOLEAN isNew, UINTN interval,
                                          UINTN length, EFI_ASYNC_USB_TRANSFER_CALLBACK callback, VOID* context);
  static EFI_STATUS EFIAPI SyncInterrupt(EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN* length,
                                         UINTN timeout, UINT32* status);
  static EFI_STATUS EFIAPI Isochronous(EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN length,
                                       UINT32* status);
  static EFI_STATUS EFIAPI AsyncIsochronous(EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN length,
                                            EFI_ASYNC_USB_TRANSFER_CALLBACK callback, VOID* context);
  static EFI_STATUS EFIAPI GetDeviceDescriptor(EFI_USB_IO_PROTOCOL* self, EFI_USB_DEVICE_DESCRIPTOR* descriptor);
  static EFI_STATUS EFIAPI GetConfigDescriptor(EFI_USB_IO_PROTOCOL* self, EFI_USB_CONFIG_DESCRIPTOR* descriptor);
  static EFI_STATUS EFIAPI GetInterfaceDescriptor(EFI_USB_IO_PROTOCOL* self, EFI_USB_INTERFACE_DESCRIPTOR* descriptor);
  static EFI_STATUS EFIAPI GetEndpointDescriptor(EFI_USB_IO_PROTOCOL* self, UINT8 index,
                                                 EFI_USB_ENDPOINT_DESCRIPTOR* descriptor);
  static EFI_STATUS EFIAPI GetStringDescriptor(EFI_USB_IO_PROTOCOL* self, UINT16 language, UINT8 index, CHAR16** text);
  static EFI_STATUS EFIAPI GetSupportedLanguages(EFI_USB_IO_PROTOCOL* self, UINT16** table, UINT16* size);
  static EFI_STATUS EFIAPI PortReset(EFI_USB_IO_PROTOCOL* self);

  void DescribeDevice();
  void DescribeInterface();
  [[nodiscard]] UINT8 AddString(const std::string& text);
  [[nodiscard]] EFI_STATUS Finish(UsbResult result, UINTN timeout, UINT32* status) const;

  const UsbDevice& device_;
  BusContext context_;
  EFI_USB_DEVICE_DESCRIPTOR deviceDescriptor_{};
  EFI_USB_CONFIG_DESCRIPTOR configDescriptor_{};
  EFI_USB_INTERFACE_DESCRIPTOR interfaceDescriptor_{};
  std::vector<EFI_USB_ENDPOINT_DESCRIPTOR> endpoints_;
  std::vector<std::u16string> strings_;  // index 1 onward
  UINT16 languages_[1] = {0x0409};
  std::unique_ptr<UsbTransportModel> transport_;  // mass storage only
  Backed<EFI_USB_IO_PROTOCOL, UsbInterface> usbIo_;
};

}  // namespace sim

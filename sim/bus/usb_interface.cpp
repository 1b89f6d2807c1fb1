// Descriptors are made once from the described device; transfers go to its transport.
#include "sim/bus/usb_interface.h"

#include <algorithm>
#include <cstring>

#include "sim/bus/utf_text.h"

namespace sim {
namespace {

constexpr UINT16 kClearEndpointHalt = 0;

EFI_USB_ENDPOINT_DESCRIPTOR Endpoint(UINT8 address, UINT8 type) {
  return {.Length = sizeof(EFI_USB_ENDPOINT_DESCRIPTOR),
          .DescriptorType = USB_DESC_TYPE_ENDPOINT,
          .EndpointAddress = address,
          .Attributes = type,
          .MaxPacketSize = static_cast<UINT16>(type == USB_ENDPOINT_BULK ? 512 : 8),
          .Interval = static_cast<UINT8>(type == USB_ENDPOINT_BULK ? 0 : 10)};
}

struct KindFacts {
  UINT8 interfaceClass;
  UINT8 subClass;
  UINT8 protocol;
};

KindFacts FactsOf(const UsbDevice& device) {
  switch (device.kind) {
    case UsbKind::Hub:
      return {USB_CLASS_HUB, 0, 0};
    case UsbKind::Keyboard:
      return {USB_CLASS_HID, 1, 1};
    case UsbKind::Mouse:
      return {USB_CLASS_HID, 1, 2};
    case UsbKind::MassStorage:
      break;
  }
  return {USB_CLASS_MASS_STORAGE, USB_MASS_STORE_SCSI, static_cast<UINT8>(device.transport)};
}

}  // namespace

UsbInterface::UsbInterface(const UsbDevice& device, const BusContext& context) : device_(device), context_(context) {
  DescribeDevice();
  DescribeInterface();
  usbIo_.object = this;
  usbIo_.protocol = {.UsbControlTransfer = ControlTransfer,
                     .UsbBulkTransfer = BulkTransfer,
                     .UsbAsyncInterruptTransfer = AsyncInterrupt,
                     .UsbSyncInterruptTransfer = SyncInterrupt,
                     .UsbIsochronousTransfer = Isochronous,
                     .UsbAsyncIsochronousTransfer = AsyncIsochronous,
                     .UsbGetDeviceDescriptor = GetDeviceDescriptor,
                     .UsbGetConfigDescriptor = GetConfigDescriptor,
                     .UsbGetInterfaceDescriptor = GetInterfaceDescriptor,
                     .UsbGetEndpointDescriptor = GetEndpointDescriptor,
                     .UsbGetStringDescriptor = GetStringDescriptor,
                     .UsbGetSupportedLanguages = GetSupportedLanguages,
                     .UsbPortReset = PortReset};
}

UINT8 UsbInterface::AddString(const std::string& text) {
  if (text.empty()) return 0;
  strings_.push_back(Utf16OfText(text).substr(0, 126));  // a descriptor's length is one byte
  return static_cast<UINT8>(strings_.size());
}

void UsbInterface::DescribeDevice() {
  deviceDescriptor_.Length = sizeof deviceDescriptor_;
  deviceDescriptor_.DescriptorType = USB_DESC_TYPE_DEVICE;
  deviceDescriptor_.BcdUSB = 0x0200;
  deviceDescriptor_.DeviceClass = device_.kind == UsbKind::Hub ? USB_CLASS_HUB : 0;
  deviceDescriptor_.MaxPacketSize0 = 64;
  deviceDescriptor_.IdVendor = device_.vendorId;
  deviceDescriptor_.IdProduct = device_.productId;
  deviceDescriptor_.BcdDevice = 0x0100;
  deviceDescriptor_.StrManufacturer = AddString(device_.manufacturer);
  deviceDescriptor_.StrProduct = AddString(device_.product);
  deviceDescriptor_.StrSerialNumber = AddString(device_.serial);
  deviceDescriptor_.NumConfigurations = 1;
}

void UsbInterface::DescribeInterface() {
  const KindFacts facts = FactsOf(device_);
  if (device_.kind != UsbKind::MassStorage) {
    endpoints_ = {Endpoint(0x81, USB_ENDPOINT_INTERRUPT)};
  } else if (device_.transport == UsbTransport::BulkOnly) {
    endpoints_ = {Endpoint(kBulkIn, USB_ENDPOINT_BULK), Endpoint(kBulkOut, USB_ENDPOINT_BULK)};
    transport_ = MakeBulkOnlyTransport(device_.units);
  } else {
    const bool interrupt = device_.transport == UsbTransport::CbiInterrupt;
    endpoints_ = {Endpoint(kBulkIn, USB_ENDPOINT_BULK), Endpoint(kBulkOut, USB_ENDPOINT_BULK)};
    if (interrupt) endpoints_.push_back(Endpoint(kInterruptIn, USB_ENDPOINT_INTERRUPT));
    transport_ = MakeCbiTransport(device_.units, interrupt);
  }
  interfaceDescriptor_ = {.Length = sizeof interfaceDescriptor_,
                          .DescriptorType = USB_DESC_TYPE_INTERFACE,
                          .InterfaceNumber = device_.interfaceNumber,
                          .AlternateSetting = 0,
                          .NumEndpoints = static_cast<UINT8>(endpoints_.size()),
                          .InterfaceClass = facts.interfaceClass,
                          .InterfaceSubClass = facts.subClass,
                          .InterfaceProtocol = facts.protocol,
                          .Interface = 0};
  const std::size_t total =
      sizeof configDescriptor_ + sizeof interfaceDescriptor_ + endpoints_.size() * sizeof(EFI_USB_ENDPOINT_DESCRIPTOR);
  configDescriptor_ = {.Length = sizeof configDescriptor_,
                       .DescriptorType = USB_DESC_TYPE_CONFIG,
                       .TotalLength = static_cast<UINT16>(total),
                       .NumInterfaces = 1,
                       .ConfigurationValue = 1,
                       .Configuration = 0,
                       .Attributes = 0x80,
                       .MaxPower = 50};
}

// Turns a transfer's end into the two statuses of USB I/O; silence lets the timeout pass (0 would wait for ever).
EFI_STATUS UsbInterface::Finish(UsbResult result, UINTN timeout, UINT32* status) const {
  switch (result) {
    case UsbResult::Done:
      *status = EFI_USB_NOERROR;
      return EFI_SUCCESS;
    case UsbResult::Stall:
      *status = EFI_USB_ERR_STALL;
      return EFI_DEVICE_ERROR;
    case UsbResult::Silence:
      break;
  }
  if (context_.wait) context_.wait(timeout);
  *status = EFI_USB_ERR_TIMEOUT;
  return EFI_TIMEOUT;
}

EFI_STATUS EFIAPI UsbInterface::ControlTransfer(EFI_USB_IO_PROTOCOL* self, EFI_USB_DEVICE_REQUEST* request,
                                                EFI_USB_DATA_DIRECTION direction, UINT32 timeout, VOID* data,
                                                UINTN length, UINT32* status) {
  if (request == nullptr || status == nullptr) return EFI_INVALID_PARAMETER;
  if (direction != EfiUsbNoData && data == nullptr && length != 0) return EFI_INVALID_PARAMETER;
  UsbInterface& usb = From(self);
  const UsbSetup setup{request->RequestType, request->Request, request->Value, request->Index};
  const bool clearHalt = setup.requestType == 0x02 && setup.request == USB_REQ_CLEAR_FEATURE;
  if (clearHalt && setup.value == kClearEndpointHalt) {
    if (usb.transport_ != nullptr) usb.transport_->ClearHalt(static_cast<std::uint8_t>(setup.index));
    return usb.Finish(UsbResult::Done, timeout, status);
  }
  if (usb.transport_ == nullptr) return usb.Finish(UsbResult::Stall, timeout, status);
  std::size_t done = 0;
  const std::span<std::byte> bytes(static_cast<std::byte*>(data), direction == EfiUsbNoData ? 0 : length);
  return usb.Finish(usb.transport_->Control(setup, bytes, done), timeout, status);
}

EFI_STATUS EFIAPI UsbInterface::BulkTransfer(EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN* length,
                                             UINTN timeout, UINT32* status) {
  if (length == nullptr || status == nullptr || (data == nullptr && *length != 0)) return EFI_INVALID_PARAMETER;
  UsbInterface& usb = From(self);
  const bool known = usb.transport_ != nullptr && (endpoint == kBulkIn || endpoint == kBulkOut);
  if (!known) return EFI_INVALID_PARAMETER;
  const std::span<std::byte> bytes(static_cast<std::byte*>(data), *length);
  std::size_t done = 0;
  const UsbResult result =
      endpoint == kBulkIn ? usb.transport_->BulkIn(bytes, done) : usb.transport_->BulkOut(bytes, done);
  *length = done;
  return usb.Finish(result, timeout, status);
}

EFI_STATUS EFIAPI UsbInterface::SyncInterrupt(EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN* length,
                                              UINTN timeout, UINT32* status) {
  if (length == nullptr || status == nullptr || data == nullptr) return EFI_INVALID_PARAMETER;
  UsbInterface& usb = From(self);
  const bool known = std::any_of(usb.endpoints_.begin(), usb.endpoints_.end(), [&](const auto& item) {
    return item.EndpointAddress == endpoint && (item.Attributes & USB_ENDPOINT_TYPE_MASK) == USB_ENDPOINT_INTERRUPT;
  });
  if (!known) return EFI_INVALID_PARAMETER;
  const std::span<std::byte> bytes(static_cast<std::byte*>(data), *length);
  std::size_t done = 0;
  const UsbResult result = usb.transport_ == nullptr ? UsbResult::Silence : usb.transport_->Interrupt(bytes, done);
  *length = done;
  return usb.Finish(result, timeout, status);
}

EFI_STATUS EFIAPI UsbInterface::AsyncInterrupt(EFI_USB_IO_PROTOCOL*, UINT8, BOOLEAN, UINTN, UINTN,
                                               EFI_ASYNC_USB_TRANSFER_CALLBACK, VOID*) {
  return EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI UsbInterface::Isochronous(EFI_USB_IO_PROTOCOL*, UINT8, VOID*, UINTN, UINT32*) {
  return EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI UsbInterface::AsyncIsochronous(EFI_USB_IO_PROTOCOL*, UINT8, VOID*, UINTN,
                                                 EFI_ASYNC_USB_TRANSFER_CALLBACK, VOID*) {
  return EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI UsbInterface::GetDeviceDescriptor(EFI_USB_IO_PROTOCOL* self, EFI_USB_DEVICE_DESCRIPTOR* descriptor) {
  if (descriptor == nullptr) return EFI_INVALID_PARAMETER;
  *descriptor = From(self).deviceDescriptor_;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI UsbInterface::GetConfigDescriptor(EFI_USB_IO_PROTOCOL* self, EFI_USB_CONFIG_DESCRIPTOR* descriptor) {
  if (descriptor == nullptr) return EFI_INVALID_PARAMETER;
  *descriptor = From(self).configDescriptor_;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI UsbInterface::GetInterfaceDescriptor(EFI_USB_IO_PROTOCOL* self,
                                                       EFI_USB_INTERFACE_DESCRIPTOR* descriptor) {
  if (descriptor == nullptr) return EFI_INVALID_PARAMETER;
  *descriptor = From(self).interfaceDescriptor_;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI UsbInterface::GetEndpointDescriptor(EFI_USB_IO_PROTOCOL* self, UINT8 index,
                                                      EFI_USB_ENDPOINT_DESCRIPTOR* descriptor) {
  const UsbInterface& usb = From(self);
  if (descriptor == nullptr || index > 15) return EFI_INVALID_PARAMETER;
  if (index >= usb.endpoints_.size()) return EFI_NOT_FOUND;
  *descriptor = usb.endpoints_[index];
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI UsbInterface::GetStringDescriptor(EFI_USB_IO_PROTOCOL* self, UINT16 language, UINT8 index,
                                                    CHAR16** text) {
  const UsbInterface& usb = From(self);
  if (text == nullptr) return EFI_INVALID_PARAMETER;
  if (language != usb.languages_[0] || index == 0 || index > usb.strings_.size()) return EFI_NOT_FOUND;
  const std::u16string& found = usb.strings_[index - 1];
  const std::size_t size = (found.size() + 1) * sizeof(CHAR16);
  void* copy = usb.context_.allocatePool(size);
  if (copy == nullptr) return EFI_OUT_OF_RESOURCES;
  std::memcpy(copy, found.c_str(), size);
  *text = static_cast<CHAR16*>(copy);
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI UsbInterface::GetSupportedLanguages(EFI_USB_IO_PROTOCOL* self, UINT16** table, UINT16* size) {
  UsbInterface& usb = From(self);
  if (table == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  *table = usb.languages_;
  *size = sizeof usb.languages_;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI UsbInterface::PortReset(EFI_USB_IO_PROTOCOL* self) {
  UsbInterface& usb = From(self);
  if (usb.device_.kind == UsbKind::Hub) return EFI_INVALID_PARAMETER;
  if (usb.device_.kind == UsbKind::MassStorage) usb.DescribeInterface();
  return EFI_SUCCESS;
}

}  // namespace sim

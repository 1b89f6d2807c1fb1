// The name of a USB mass storage device: a SCSI INQUIRY over the two transports of the class, bulk-only (USB Mass
// Storage Class Bulk-Only Transport 1.0) and control/bulk/interrupt (CBI Transport 1.1).
#include "bootopt/handle_path.h"
#include "bootopt/names/inquiry_name.h"
#include "platform/usb_io.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr UINT32 kTimeout = 2000;  // milliseconds, of each transfer
constexpr UINT16 kHighestLun = 254;

constexpr UINT8 kMassStorageClass = 0x08;
constexpr UINT8 kUfiSubClass = 0x04;
constexpr UINT8 kCbiWithInterrupt = 0x00;
constexpr UINT8 kCbiWithoutInterrupt = 0x01;
constexpr UINT8 kBulkOnly = 0x50;

constexpr UINT8 kEndpointIn = 0x80;
constexpr UINT8 kEndpointTypeMask = 0x03;
constexpr UINT8 kEndpointBulk = 0x02;
constexpr UINT8 kEndpointInterrupt = 0x03;

// The storage interface of a device and the endpoints that its transport uses; 0: it has no such endpoint.
struct StorageInterface {
  EFI_USB_IO_PROTOCOL* Usb = nullptr;
  EFI_USB_INTERFACE_DESCRIPTOR Descriptor{};
  UINT8 BulkIn = 0;
  UINT8 BulkOut = 0;
  UINT8 Interrupt = 0;
};

struct InquiryAnswer {
  UINT8 Bytes[kInquiryMinimumSize] = {};
};

void NoteEndpoint(StorageInterface& storage, const EFI_USB_ENDPOINT_DESCRIPTOR& endpoint) {
  const UINT8 type = endpoint.Attributes & kEndpointTypeMask;
  const bool in = (endpoint.EndpointAddress & kEndpointIn) != 0;
  if (type == kEndpointBulk) {
    (in ? storage.BulkIn : storage.BulkOut) = endpoint.EndpointAddress;
  } else if (type == kEndpointInterrupt && in) {
    storage.Interrupt = endpoint.EndpointAddress;
  }
}

bool OpenStorageInterface(EFI_HANDLE handle, StorageInterface& storage) {
  const DevicePath* remaining = nullptr;
  storage.Usb = HandleProtocol<EFI_USB_IO_PROTOCOL>(LocateOnPath(ProtocolGuid<EFI_USB_IO_PROTOCOL>, handle, remaining));
  if (storage.Usb == nullptr || EFI_ERROR(storage.Usb->UsbGetInterfaceDescriptor(storage.Usb, &storage.Descriptor)) ||
      storage.Descriptor.InterfaceClass != kMassStorageClass) {
    return false;
  }
  for (UINT8 index = 0; index < storage.Descriptor.NumEndpoints; ++index) {
    EFI_USB_ENDPOINT_DESCRIPTOR endpoint{};
    if (!EFI_ERROR(storage.Usb->UsbGetEndpointDescriptor(storage.Usb, index, &endpoint))) {
      NoteEndpoint(storage, endpoint);
    }
  }
  return storage.BulkIn != 0;
}

bool LunOf(EFI_HANDLE handle, UINT8& lun) {
  lun = 0;
  const DevicePath* last = LastNode(DevicePathOf(handle));
  if (!IsNode(last, MESSAGING_DEVICE_PATH, MSG_SCSI_DP) || NodeLength(last) < sizeof(SCSI_DEVICE_PATH)) {
    return true;
  }
  const UINT16 value = LoadUnaligned<SCSI_DEVICE_PATH>(last).Lun;
  lun = static_cast<UINT8>(value);
  return value <= kHighestLun;
}

// A device that refuses a transfer halts the endpoint until this is asked for (USB 2.0, 9.4.5).
void ClearHalt(const StorageInterface& storage, UINT8 endpoint) {
  EFI_USB_DEVICE_REQUEST request{};
  request.RequestType = 0x02;  // standard request to an endpoint
  request.Request = 1;         // CLEAR_FEATURE
  request.Value = 0;           // ENDPOINT_HALT
  request.Index = endpoint;
  UINT32 result = 0;
  static_cast<void>(
      storage.Usb->UsbControlTransfer(storage.Usb, &request, EfiUsbNoData, kTimeout, nullptr, 0, &result));
}

// Moves exactly size bytes; a halted endpoint is cleared before the failure is reported.
bool BulkTransfer(const StorageInterface& storage, UINT8 endpoint, void* data, UINTN size) {
  UINTN moved = size;
  UINT32 result = 0;
  const EFI_STATUS status = storage.Usb->UsbBulkTransfer(storage.Usb, endpoint, data, &moved, kTimeout, &result);
  if (EFI_ERROR(status) && (result & EFI_USB_ERR_STALL) != 0) {
    ClearHalt(storage, endpoint);
  }
  return !EFI_ERROR(status) && moved == size;
}

#pragma pack(push, 1)
struct CommandBlockWrapper {
  UINT32 Signature;
  UINT32 Tag;
  UINT32 DataTransferLength;
  UINT8 Flags;  // 0x80: data to the host
  UINT8 Lun;
  UINT8 CommandLength;
  UINT8 Command[16];
};
static_assert(sizeof(CommandBlockWrapper) == 31);

struct CommandStatusWrapper {
  UINT32 Signature;
  UINT32 Tag;
  UINT32 DataResidue;
  UINT8 Status;  // 0: the command passed
};
static_assert(sizeof(CommandStatusWrapper) == 13);
#pragma pack(pop)

constexpr UINT32 kCommandSignature = 0x43425355;  // "USBC"
constexpr UINT32 kStatusSignature = 0x53425355;   // "USBS"
constexpr UINT32 kTag = 1;                        // one command is under way at a time

bool InquireBulkOnly(const StorageInterface& storage, UINT8 lun, InquiryAnswer& answer) {
  if (storage.BulkOut == 0) {
    return false;
  }
  CommandBlockWrapper command{kCommandSignature, kTag, sizeof(answer.Bytes), kEndpointIn, lun, 6, {}};
  command.Command[0] = kInquiryCommand;
  command.Command[4] = sizeof(answer.Bytes);
  if (!BulkTransfer(storage, storage.BulkOut, &command, sizeof(command))) {
    return false;
  }
  // The status is fetched whatever became of the data, and once more when its endpoint was halted: the device would
  // take no further command otherwise.
  const bool answered = BulkTransfer(storage, storage.BulkIn, answer.Bytes, sizeof(answer.Bytes));
  CommandStatusWrapper status{};
  if (!BulkTransfer(storage, storage.BulkIn, &status, sizeof(status)) &&
      !BulkTransfer(storage, storage.BulkIn, &status, sizeof(status))) {
    return false;
  }
  return answered && status.Signature == kStatusSignature && status.Tag == kTag && status.Status == 0;
}

// The two bytes of the interrupt pipe: for UFI devices the sense code, otherwise a type (0) and a value whose low bits
// are the command's outcome. All zero is success in both.
bool CompletedByInterrupt(const StorageInterface& storage) {
  UINT8 completion[2] = {};
  UINTN size = sizeof(completion);
  UINT32 result = 0;
  if (storage.Interrupt == 0 ||
      EFI_ERROR(storage.Usb->UsbSyncInterruptTransfer(storage.Usb, storage.Interrupt, completion, &size, kTimeout,
                                                      &result)) ||
      size != sizeof(completion)) {
    return false;
  }
  const bool ufi = storage.Descriptor.InterfaceSubClass == kUfiSubClass;
  return completion[0] == 0 && (ufi ? completion[1] : completion[1] & 0x03) == 0;
}

bool InquireControlBulk(const StorageInterface& storage, UINT8 lun, InquiryAnswer& answer) {
  UINT8 command[12] = {kInquiryCommand, static_cast<UINT8>(lun << 5), 0, 0, sizeof(answer.Bytes)};
  EFI_USB_DEVICE_REQUEST request{};
  request.RequestType = 0x21;  // class request to an interface: accept device-specific command
  request.Index = storage.Descriptor.InterfaceNumber;
  request.Length = sizeof(command);
  UINT32 result = 0;
  if (EFI_ERROR(storage.Usb->UsbControlTransfer(storage.Usb, &request, EfiUsbDataOut, kTimeout, command,
                                                sizeof(command), &result)) ||
      !BulkTransfer(storage, storage.BulkIn, answer.Bytes, sizeof(answer.Bytes))) {
    return false;
  }
  return storage.Descriptor.InterfaceProtocol != kCbiWithInterrupt || CompletedByInterrupt(storage);
}

bool Inquire(const StorageInterface& storage, UINT8 lun, InquiryAnswer& answer) {
  switch (storage.Descriptor.InterfaceProtocol) {
    case kBulkOnly:
      return InquireBulkOnly(storage, lun, answer);
    case kCbiWithInterrupt:
    case kCbiWithoutInterrupt:
      return InquireControlBulk(storage, lun, answer);
    default:
      return false;
  }
}

}  // namespace

PoolPtr<char> UsbDeviceName(EFI_HANDLE handle) {
  StorageInterface storage;
  UINT8 lun = 0;
  InquiryAnswer answer;
  if (!OpenStorageInterface(handle, storage) || !LunOf(handle, lun) || !Inquire(storage, lun, answer)) {
    return nullptr;
  }
  return InquiryName(answer.Bytes, "");
}

}  // namespace bds

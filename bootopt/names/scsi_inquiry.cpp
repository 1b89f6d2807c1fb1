// The name of a SCSI device: an INQUIRY through the SCSI pass-thru protocols, the extended one first.
#include "bootopt/handle_path.h"
#include "bootopt/names/inquiry_name.h"
#include "platform/ext_scsi_pass_thru.h"
#include "platform/scsi_pass_thru.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr UINT64 kTimeout = 10'000'000;  // of 100 ns
constexpr UINT8 kAnswerSize = 96;
constexpr UINT32 kLargestAlignment = 4096;
constexpr UINT8 kSenseSize = 64;
constexpr UINT8 kDataIn = 0;

using InquiryCommand = UINT8[6];

// A buffer for a transfer, zeroed and aligned as the controller asks (a power of two; 0 and 1: no requirement).
class TransferBuffer {
 public:
  TransferBuffer(UINTN size, UINT32 alignment) {
    if (alignment > kLargestAlignment || (alignment & (alignment - 1)) != 0) {
      return;
    }
    const UINTN mask = alignment > 1 ? alignment - 1 : 0;
    block_.reset(static_cast<UINT8*>(AllocateZeroPool(size + mask)));
    if (block_) {
      bytes_ = reinterpret_cast<UINT8*>((reinterpret_cast<UINTN>(block_.get()) + mask) & ~mask);
    }
  }
  // Null when the pool is exhausted or the alignment makes no sense.
  UINT8* get() const { return bytes_; }

 private:
  PoolPtr<UINT8> block_;
  UINT8* bytes_ = nullptr;
};

PoolPtr<char> NameFromAnswer(const UINT8* answer) {
  PoolPtr<char> name = InquiryName(answer, " ");
  for (char* at = name.get(); at != nullptr && *at != 0; ++at) {
    const bool control = static_cast<UINT8>(*at) < 0x20 || *at == 0x7F;
    *at = control ? ' ' : *at;
  }
  return name;
}

// One INQUIRY and the name in its answer. The two protocols' packets differ in what they call the data they take in.
template <typename Protocol, typename Target, typename Packet>
PoolPtr<char> Inquire(Protocol* scsi, Target target, UINT64 lun, VOID* Packet::*inData, UINT32 Packet::*inLength) {
  const TransferBuffer answer(kAnswerSize, scsi->Mode->IoAlign);
  const TransferBuffer sense(kSenseSize, scsi->Mode->IoAlign);
  if (answer.get() == nullptr || sense.get() == nullptr) {
    return nullptr;
  }
  InquiryCommand command = {kInquiryCommand, 0, 0, 0, kAnswerSize, 0};
  Packet packet{};
  packet.Timeout = kTimeout;
  packet.*inData = answer.get();
  packet.*inLength = kAnswerSize;
  packet.SenseData = sense.get();
  packet.SenseDataLength = kSenseSize;
  packet.Cdb = command;
  packet.CdbLength = sizeof(command);
  packet.DataDirection = kDataIn;
  const EFI_STATUS status = scsi->PassThru(scsi, target, lun, &packet, nullptr);
  const bool answered = !EFI_ERROR(status) && packet.HostAdapterStatus == 0 && packet.TargetStatus == 0 &&
                        packet.*inLength >= kInquiryMinimumSize && packet.*inLength <= kAnswerSize;
  return answered ? NameFromAnswer(answer.get()) : nullptr;
}

PoolPtr<char> InquireExtended(EFI_HANDLE handle) {
  const DevicePath* node = nullptr;
  auto* scsi = HandleProtocol<EFI_EXT_SCSI_PASS_THRU_PROTOCOL>(
      LocateOnPath(ProtocolGuid<EFI_EXT_SCSI_PASS_THRU_PROTOCOL>, handle, node));
  if (scsi == nullptr || IsEnd(node)) {
    return nullptr;
  }
  UINT8 target[TARGET_MAX_BYTES] = {};
  UINT8* targetBytes = target;
  UINT64 lun = 0;
  if (EFI_ERROR(scsi->GetTargetLun(scsi, const_cast<DevicePath*>(node), &targetBytes, &lun))) {
    return nullptr;
  }
  using Packet = EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET;
  return Inquire(scsi, targetBytes, lun, &Packet::InDataBuffer, &Packet::InTransferLength);
}

PoolPtr<char> InquireOlder(EFI_HANDLE handle) {
  const DevicePath* node = nullptr;
  auto* scsi = HandleProtocol<EFI_SCSI_PASS_THRU_PROTOCOL>(
      LocateOnPath(ProtocolGuid<EFI_SCSI_PASS_THRU_PROTOCOL>, handle, node));
  if (scsi == nullptr || !IsNode(node, MESSAGING_DEVICE_PATH, MSG_SCSI_DP)) {
    return nullptr;
  }
  UINT32 target = 0;
  UINT64 lun = 0;
  if (EFI_ERROR(scsi->GetTargetLun(scsi, const_cast<DevicePath*>(node), &target, &lun))) {
    return nullptr;
  }
  using Packet = EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET;
  return Inquire(scsi, target, lun, &Packet::DataBuffer, &Packet::TransferLength);
}

}  // namespace

PoolPtr<char> ScsiDeviceName(EFI_HANDLE handle) {
  PoolPtr<char> name = InquireExtended(handle);
  return name ? std::move(name) : InquireOlder(handle);
}

}  // namespace bds

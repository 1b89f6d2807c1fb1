// The few commands that boot code sends.
#include "sim/bus/scsi_target.h"

#include <algorithm>

#include "sim/bus/block_device.h"
#include "sim/bus/drive_identity.h"

namespace sim {
namespace {

constexpr std::uint8_t kTestUnitReady = 0x00;
constexpr std::uint8_t kRequestSense = 0x03;
constexpr std::uint8_t kInquiry = 0x12;
constexpr std::uint8_t kReadCapacity10 = 0x25;
constexpr std::uint8_t kRead10 = 0x28;
constexpr std::uint8_t kRead16 = 0x88;
constexpr std::uint64_t kMaximumTransfer = 16 << 20;

constexpr std::uint8_t kNotReady = 0x02;
constexpr std::uint8_t kMediumError = 0x03;
constexpr std::uint8_t kIllegalRequest = 0x05;

std::uint64_t BigEndian(std::span<const std::byte> bytes) {
  std::uint64_t value = 0;
  for (const std::byte byte : bytes) value = (value << 8) | std::to_integer<std::uint64_t>(byte);
  return value;
}

// SPC-4, 4.5.3: fixed format sense data with additional sense code and qualifier.
std::vector<std::byte> MakeSense(std::uint8_t key, std::uint8_t code, std::uint8_t qualifier = 0) {
  std::vector<std::byte> sense(18);
  sense[0] = std::byte{0x70};
  sense[2] = std::byte{key};
  sense[7] = std::byte{10};
  sense[12] = std::byte{code};
  sense[13] = std::byte{qualifier};
  return sense;
}

ScsiAnswer Refuse(std::uint8_t key, std::uint8_t code, std::uint8_t qualifier = 0) {
  return {ScsiStatus::CheckCondition, {}, MakeSense(key, code, qualifier)};
}

ScsiAnswer InvalidField() { return Refuse(kIllegalRequest, 0x24); }
ScsiAnswer NoMedium() { return Refuse(kNotReady, 0x3A); }

// SAM-5, 5.2: the group code in the operation code's top bits gives the length.
std::size_t CommandLength(std::uint8_t operation) {
  switch (operation >> 5) {
    case 0:
      return 6;
    case 1:
    case 2:
      return 10;
    case 4:
      return 16;
    case 5:
      return 12;
    default:
      return 0;
  }
}

}  // namespace

ScsiTarget::ScsiTarget(Drive drive) : drive_(std::move(drive)), blocks_(DriveBlocks(drive_)) {}

ScsiAnswer ScsiTarget::Execute(std::span<const std::byte> command) {
  ScsiAnswer answer = Dispatch(command);
  const bool senseAsked = !command.empty() && std::to_integer<std::uint8_t>(command[0]) == kRequestSense;
  if (!senseAsked) lastSense_ = answer.sense;
  return answer;
}

ScsiAnswer ScsiTarget::Dispatch(std::span<const std::byte> command) {
  if (command.empty()) return InvalidField();
  const auto operation = std::to_integer<std::uint8_t>(command[0]);
  // Transports pad command blocks, so a longer one is no fault.
  if (CommandLength(operation) == 0 || command.size() < CommandLength(operation)) return Refuse(kIllegalRequest, 0x20);
  switch (operation) {
    case kTestUnitReady:
      return blocks_ != nullptr ? ScsiAnswer{} : NoMedium();
    case kRequestSense:
      return RequestSense(command);
    case kInquiry:
      return Inquiry(command);
    case kReadCapacity10:
      return ReadCapacity10();
    case kRead10:
      return Read(BigEndian(command.subspan(2, 4)), BigEndian(command.subspan(7, 2)));
    case kRead16:
      return Read(BigEndian(command.subspan(2, 8)), BigEndian(command.subspan(10, 4)));
    default:
      return Refuse(kIllegalRequest, 0x20);
  }
}

ScsiAnswer ScsiTarget::Inquiry(std::span<const std::byte> command) const {
  const bool vitalProductData = (command[1] & std::byte{1}) != std::byte{0};
  if (vitalProductData || command[2] != std::byte{0}) return InvalidField();
  const InquiryData data = MakeInquiryData(drive_);
  ScsiAnswer answer;
  answer.data.assign(data.begin(), data.end());
  answer.data.resize(std::min<std::uint64_t>(answer.data.size(), BigEndian(command.subspan(3, 2))));
  return answer;
}

ScsiAnswer ScsiTarget::RequestSense(std::span<const std::byte> command) {
  ScsiAnswer answer;
  answer.data = lastSense_.empty() ? MakeSense(0, 0) : lastSense_;
  lastSense_.clear();
  answer.data.resize(std::min<std::size_t>(answer.data.size(), std::to_integer<std::size_t>(command[4])));
  return answer;
}

ScsiAnswer ScsiTarget::ReadCapacity10() const {
  if (blocks_ == nullptr) return NoMedium();
  const std::uint64_t last = blocks_->Size() / blocks_->BlockSize() - 1;
  const std::uint32_t fields[2] = {static_cast<std::uint32_t>(std::min<std::uint64_t>(last, UINT32_MAX)),
                                   blocks_->BlockSize()};
  ScsiAnswer answer;
  for (const std::uint32_t field : fields) {
    for (int shift = 24; shift >= 0; shift -= 8) answer.data.push_back(static_cast<std::byte>(field >> shift));
  }
  return answer;
}

ScsiAnswer ScsiTarget::Read(std::uint64_t block, std::uint64_t count) const {
  if (blocks_ == nullptr) return NoMedium();
  const std::uint64_t blocks = blocks_->Size() / blocks_->BlockSize();
  if (block > blocks || count > blocks - block) return Refuse(kIllegalRequest, 0x21);
  if (count * blocks_->BlockSize() > kMaximumTransfer) return InvalidField();
  ScsiAnswer answer;
  answer.data.resize(count * blocks_->BlockSize());
  if (EFI_ERROR(blocks_->Read(block * blocks_->BlockSize(), answer.data))) return Refuse(kMediumError, 0x11);
  return answer;
}

}  // namespace sim

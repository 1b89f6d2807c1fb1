// The BMC's System Boot Options as requests and answers (IPMI 2.0, 28.12 to 28.14).
#include "sim/bmc/ipmi_model.h"

#include <algorithm>
#include <numeric>

namespace sim {
namespace {

constexpr std::uint8_t kChassis = 0x00;
constexpr std::uint8_t kSetSystemBootOptions = 0x08;
constexpr std::uint8_t kGetSystemBootOptions = 0x09;
constexpr std::uint8_t kOem = 0x36;
constexpr std::uint8_t kOemOneTimeStale = 0x16;

constexpr std::uint8_t kSetInProgress = 0x00;
constexpr std::uint8_t kValidBitClearing = 0x03;
constexpr std::uint8_t kAcknowledge = 0x04;
constexpr std::uint8_t kBootFlags = 0x05;
constexpr std::uint8_t kBlockSize = 0x78;
constexpr std::uint8_t kTableBlock = 0x7D;

constexpr std::uint8_t kVersion = 0x01;
constexpr std::uint8_t kSelectorMask = 0x7F;  // bit 7 marks a parameter invalid
constexpr std::uint8_t kKeepOnTimeout = 0x08;

}  // namespace

IpmiModel::IpmiModel(BmcState& state, const Clock& clock, Events events)
    : state_(state), clock_(clock), events_(std::move(events)) {}

bool IpmiModel::IsOneTimeStale(std::uint8_t netFn, std::uint8_t command) {
  return netFn == kOem && command == kOemOneTimeStale;
}

std::optional<IpmiReply> IpmiModel::Request(std::uint8_t netFn, std::uint8_t command,
                                            std::span<const std::uint8_t> data) {
  ExpireFlags();
  if (netFn == kChassis && command == kGetSystemBootOptions) {
    return Get(data);
  }
  IpmiReply reply{kIpmiInvalidCommand, {}};
  bool changed = false;
  {
    const BmcState before = state_;
    if (netFn == kChassis && command == kSetSystemBootOptions) {
      reply = Set(data);
    } else if (IsOneTimeStale(netFn, command)) {
      reply = Oem(data);
    }
    changed = !(state_ == before);
  }
  if (changed && events_.onChange) {
    events_.onChange();  // may end the boot, so nothing is held here any more
  }
  return reply;
}

void IpmiModel::ExpireFlags() {
  if (!expiresAt_ || clock_.Now() < *expiresAt_) {
    return;
  }
  expiresAt_.reset();
  state_.bootFlags[0] &= static_cast<std::uint8_t>(~BmcState::kValid);
  if (events_.onChange) {
    events_.onChange();
  }
}

IpmiReply IpmiModel::Get(std::span<const std::uint8_t> request) {
  if (request.size() != 3) {
    return {kIpmiLengthInvalid, {}};
  }
  const std::uint8_t parameter = request[0] & kSelectorMask;
  std::vector<std::uint8_t> data{kVersion, parameter};
  const auto add = [&data](const auto& bytes) { data.insert(data.end(), std::begin(bytes), std::end(bytes)); };
  switch (parameter) {
    case kSetInProgress:
      data.push_back(state_.setInProgress);
      break;
    case kValidBitClearing:
      data.push_back(state_.validBitClearing);
      break;
    case kAcknowledge:
      add(std::array<std::uint8_t, 2>{0, state_.acknowledge});
      break;
    case kBootFlags:
      add(state_.bootFlags);
      break;
    case kBlockSize:
      add(BlockSizeRecord());
      break;
    case kTableBlock: {
      if (request[2] == 0) {
        return {kIpmiOutOfRange, {}};
      }
      std::array<std::uint8_t, kTableBytesPerAnswer> block{};
      const std::size_t begin = (request[2] - std::size_t{1}) * block.size();
      for (std::size_t i = 0; i < block.size() && begin + i < state_.bootOrderTable.size(); ++i) {
        block[i] = state_.bootOrderTable[begin + i];
      }
      add(block);
      break;
    }
    default:
      return {kIpmiParameterUnsupported, {}};
  }
  return {kIpmiDone, std::move(data)};
}

std::vector<std::uint8_t> IpmiModel::BlockSizeRecord() const {
  std::vector<std::uint8_t> record(16);
  record[0] = '_';
  record[1] = 'P';
  record[2] = 'B';
  record[3] = '_';
  record[10] = state_.botBlockSize;
  record[15] = static_cast<std::uint8_t>(-std::accumulate(record.begin(), record.end(), 0));
  return record;
}

IpmiReply IpmiModel::Set(std::span<const std::uint8_t> request) {
  if (request.empty()) {
    return {kIpmiLengthInvalid, {}};
  }
  const std::uint8_t parameter = request[0] & kSelectorMask;
  const std::span<const std::uint8_t> data = request.subspan(1);
  switch (parameter) {
    case kSetInProgress:
      if (data.size() != 1) {
        return {kIpmiLengthInvalid, {}};
      }
      if (data[0] > 2) {
        return {kIpmiOutOfRange, {}};
      }
      if (data[0] == 1 && state_.setInProgress == 1) {
        return {kIpmiSetAlreadyInProgress, {}};
      }
      state_.setInProgress = data[0] == 2 ? 0 : data[0];  // a commit ends the setting
      return {};
    case kValidBitClearing:
      if (data.size() != 1) {
        return {kIpmiLengthInvalid, {}};
      }
      state_.validBitClearing = data[0] & 0x1F;
      return {};
    case kAcknowledge:
      if (data.size() != 2) {
        return {kIpmiLengthInvalid, {}};
      }
      // The first byte says which bits of the second count.
      state_.acknowledge = static_cast<std::uint8_t>((state_.acknowledge & ~data[0]) | (data[1] & data[0]));
      return {};
    case kBootFlags:
      return SetBootFlags(data);
    case kBlockSize:
      return {kIpmiReadOnly, {}};
    case kTableBlock:
      return SetTableBlock(data);
    default:
      return {kIpmiParameterUnsupported, {}};
  }
}

IpmiReply IpmiModel::SetBootFlags(std::span<const std::uint8_t> data) {
  if (data.size() != state_.bootFlags.size()) {
    return {kIpmiLengthInvalid, {}};
  }
  std::copy(data.begin(), data.end(), state_.bootFlags.begin());
  const bool expires = (data[0] & BmcState::kValid) != 0 && (state_.validBitClearing & kKeepOnTimeout) == 0;
  expiresAt_ = expires ? std::optional(clock_.Now() + kFlagsLifetime) : std::nullopt;
  return {};
}

// A set selector of 0, the block's number from 1, the block. Block 1 begins a new table.
IpmiReply IpmiModel::SetTableBlock(std::span<const std::uint8_t> data) {
  if (data.size() < 3 || data.size() != std::size_t{2} + state_.botBlockSize) {
    return {kIpmiLengthInvalid, {}};
  }
  if (data[1] == 0) {
    return {kIpmiOutOfRange, {}};
  }
  const std::size_t begin = (data[1] - std::size_t{1}) * state_.botBlockSize;
  if (begin + state_.botBlockSize > BmcState::kMaxTable || begin > state_.bootOrderTable.size()) {
    return {kIpmiOutOfRange, {}};
  }
  state_.bootOrderTable.resize(data[1] == 1 ? 0 : begin);
  state_.bootOrderTable.insert(state_.bootOrderTable.end(), data.begin() + 2, data.end());
  return {};
}

IpmiReply IpmiModel::Oem(std::span<const std::uint8_t> request) {
  if (request.size() != 2) {
    return {kIpmiLengthInvalid, {}};
  }
  if (request[0] != 0x09 || request[1] != 0x00) {
    return {kIpmiOutOfRange, {}};
  }
  ++state_.oneTimeStaleRequests;
  if (events_.onOneTimeStale) {
    events_.onOneTimeStale();
  }
  return {};
}

}  // namespace sim

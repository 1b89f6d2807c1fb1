// Frames of the virtual-machine serial connection.
#include "sim/bmc/vm_codec.h"

#include <numeric>

namespace sim {
namespace {

constexpr std::uint8_t kMessageEnd = 0xA0;
constexpr std::uint8_t kControlEnd = 0xA1;
constexpr std::uint8_t kEscape = 0xAA;
constexpr std::uint8_t kEscapeBit = 0x10;

bool IsSpecial(std::uint8_t byte) { return byte == kMessageEnd || byte == kControlEnd || byte == kEscape; }

void Append(std::vector<std::uint8_t>& frame, std::uint8_t byte) {
  if (IsSpecial(byte)) {
    frame.push_back(kEscape);
    byte |= kEscapeBit;
  }
  frame.push_back(byte);
}

}  // namespace

std::vector<std::uint8_t> EncodeVmFrame(std::span<const std::uint8_t> content) {
  std::vector<std::uint8_t> frame;
  for (const std::uint8_t byte : content) {
    Append(frame, byte);
  }
  Append(frame, static_cast<std::uint8_t>(-std::accumulate(content.begin(), content.end(), 0)));
  frame.push_back(kMessageEnd);
  return frame;
}

void VmDecoder::Begin() {
  frame_.clear();
  escaped_ = false;
  bad_ = false;
}

std::optional<std::vector<std::uint8_t>> VmDecoder::Take(std::uint8_t byte) {
  if (byte == kControlEnd) {
    ++controlFrames_;
    Begin();
    return std::nullopt;
  }
  if (byte == kMessageEnd) {
    const bool sound =
        !bad_ && !escaped_ && frame_.size() > 1 && (std::accumulate(frame_.begin(), frame_.end(), 0U) & 0xFF) == 0;
    std::vector<std::uint8_t> content = std::move(frame_);
    Begin();
    if (!sound) {
      ++badFrames_;
      return std::nullopt;
    }
    content.pop_back();
    return content;
  }
  if (byte == kEscape) {
    bad_ = bad_ || escaped_;
    escaped_ = true;
    return std::nullopt;
  }
  if (escaped_) {
    escaped_ = false;
    byte &= static_cast<std::uint8_t>(~kEscapeBit);
    bad_ = bad_ || !IsSpecial(byte);
  }
  if (frame_.size() == kMaxFrame) {
    bad_ = true;
    return std::nullopt;
  }
  frame_.push_back(byte);
  return std::nullopt;
}

}  // namespace sim

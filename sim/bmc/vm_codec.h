// The frames of a BMC simulator's virtual-machine serial connection, to and from bytes.
//
// A frame is its bytes, a checksum that makes them sum to 0 modulo 256, and 0xA0; frames that end in 0xA1 control the
// connection. 0xA0, 0xA1 and 0xAA inside a frame travel as 0xAA and the byte with bit 4 set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace sim {

std::vector<std::uint8_t> EncodeVmFrame(std::span<const std::uint8_t> content);

// Takes bytes as they come, in any portions. Whatever is wrong with a frame, the next one is read again.
class VmDecoder {
 public:
  static constexpr std::size_t kMaxFrame = 512;

  // The content of a message frame (without its checksum) when this byte ended a good one.
  std::optional<std::vector<std::uint8_t>> Take(std::uint8_t byte);

  std::uint64_t BadFrames() const { return badFrames_; }          // too long, badly escaped or of a wrong checksum
  std::uint64_t ControlFrames() const { return controlFrames_; }  // skipped

 private:
  void Begin();

  std::vector<std::uint8_t> frame_;
  bool escaped_ = false;
  bool bad_ = false;
  std::uint64_t badFrames_ = 0;
  std::uint64_t controlFrames_ = 0;
};

}  // namespace sim

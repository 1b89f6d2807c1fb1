// A drive as a SCSI target: command blocks in, data, status and sense out. SCSI adapters and USB mass storage both
// hand their commands to it.
#pragma once

#include <span>

#include "sim/bus/device_tree.h"

namespace sim {

enum class ScsiStatus : std::uint8_t { Good = 0x00, CheckCondition = 0x02 };

struct ScsiAnswer {
  ScsiStatus status = ScsiStatus::Good;
  std::vector<std::byte> data;   // to the host; already cut to the command's allocation length
  std::vector<std::byte> sense;  // fixed format, with CheckCondition only
};

class ScsiTarget {
 public:
  explicit ScsiTarget(Drive drive);

  // Runs one command block of 6, 10, 12 or 16 bytes (SPC-4, SBC-3). Unknown commands, and blocks of another length
  // than their operation code asks for, end in "illegal request"; a drive without medium in "not ready".
  [[nodiscard]] ScsiAnswer Execute(std::span<const std::byte> command);

 private:
  [[nodiscard]] ScsiAnswer Inquiry(std::span<const std::byte> command) const;
  [[nodiscard]] ScsiAnswer RequestSense(std::span<const std::byte> command);
  [[nodiscard]] ScsiAnswer ReadCapacity10() const;
  [[nodiscard]] ScsiAnswer Read(std::uint64_t block, std::uint64_t count) const;
  [[nodiscard]] ScsiAnswer Dispatch(std::span<const std::byte> command);

  Drive drive_;
  BlockSourcePtr blocks_;
  std::vector<std::byte> lastSense_;
};

}  // namespace sim

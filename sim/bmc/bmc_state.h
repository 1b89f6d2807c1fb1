// What the BMC keeps of the System Boot Options, and its file in the state folder.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace sim {

struct BmcState {
  std::uint8_t setInProgress = 0;            // parameter 0: 0 complete, 1 in progress, 2 commit
  std::uint8_t validBitClearing = 0;         // parameter 3: bit 3 set keeps the valid bit beyond its 60 s
  std::uint8_t acknowledge = 0;              // parameter 4, data 2: who has not handled the flags yet; bit 0: the BIOS
  std::array<std::uint8_t, 5> bootFlags{};   // parameter 5, data 1 to 5
  std::uint8_t botBlockSize = 32;            // of the block-size record, parameter 0x78
  std::vector<std::uint8_t> bootOrderTable;  // parameter 0x7D: the table as the host last sent it
  std::uint32_t oneTimeStaleRequests = 0;    // OEM requests received

  static constexpr std::size_t kMaxTable = 255 * 128;
  static constexpr std::uint8_t kValid = 0x80;

  friend bool operator==(const BmcState&, const BmcState&) = default;

  // The state in the file; the initial one when there is no file. Empty with `error` set ("FILE:LINE: key: ...") when
  // the file is not what Save writes.
  static std::optional<BmcState> Load(const std::filesystem::path& file, std::string& error);
  // Replaces the file in one step; false with `error` set when it cannot be written.
  bool Save(const std::filesystem::path& file, std::string& error) const;
};

}  // namespace sim

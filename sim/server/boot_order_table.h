// The boot order table as the BMC's user sees and changes it. Written from the format, not from the driver.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sim {

// A table taken apart.
struct BootOrderTable {
  static constexpr std::uint8_t kSys = 0x00;
  static constexpr std::uint8_t kEfi = 0x10;
  static constexpr std::uint8_t kEnd = 0xFF;
  static constexpr std::uint8_t kChanged = 0x02;  // of the flags: the BMC changed the order

  struct Entry {
    std::uint8_t code = 0;
    std::vector<std::uint16_t> items;
  };
  struct Name {
    std::uint8_t code = 0;
    std::uint16_t item = 0;          // BBS index, or the number of a UEFI option
    std::string text;                // UTF-8
    std::vector<std::uint8_t> path;  // of a UEFI option
  };

  std::uint16_t length = 0;
  std::uint8_t flags = 0;
  bool sumIsGood = false;
  std::vector<Entry> entries;
  std::vector<Name> names;
  std::string damage;  // what is wrong with it; empty when it could be read to its end

  // Empty when the bytes do not begin with a table's header.
  static std::optional<BootOrderTable> Parse(std::span<const std::uint8_t> bytes);

  // The groups in boot order.
  std::vector<std::uint8_t> Groups() const;
  // The name of an entry's item; empty when the table has none.
  std::string NameOf(std::uint8_t code, std::uint16_t item) const;
};

// "IHD" for a group's code; "0x42" when it has no name.
std::string BootGroupName(std::uint8_t code);

// A line for the order, one for each group with its items, and what is wrong with the table.
std::vector<std::string> BootOrderTableText(std::span<const std::uint8_t> bytes);

// The table with the groups named, in this order, and marked as changed by the BMC; of bytes that are no table, a new
// one. Names: FDD, IHD, CDD, USB, NIC, BEV, EFI, in either case, each once. Empty with `error` set when one is none.
std::optional<std::vector<std::uint8_t>> WithGroupOrder(std::span<const std::uint8_t> bytes,
                                                        const std::vector<std::string>& names, std::string& error);

}  // namespace sim

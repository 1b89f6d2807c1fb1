// Addresses of the host's memory that the driver prints, made the same on every run and machine. Handles, pages and
// real mode memory have fixed addresses and are left as they are; pool blocks, interfaces and code of this program lie
// where the host put them, and are shown at addresses that the machine has no memory at, given out as they first
// appear.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "sim/firmware/machine.h"

namespace sim {

class VirtualAddresses {
 public:
  static constexpr std::uint64_t kFirstCode = 0x50000010;
  static constexpr std::uint64_t kFirstData = 0x60000010;
  static constexpr std::uint64_t kDistance = 0x10;

  explicit VirtualAddresses(Machine& machine) : machine_(machine) {}

  // The line with each number that is such an address replaced.
  std::string Replace(const std::string& line);
  // The line before a step, whose number in parentheses is a routine's address, wherever the driver lies.
  std::string ReplaceRoutine(const std::string& line);

 private:
  enum class Kind { Block, Interface, Code };
  using Identity = std::pair<Kind, std::uint64_t>;  // a block's and an interface's number outlast their address

  bool Identify(std::uint64_t address, Identity& identity) const;
  std::string Shown(const Identity& identity);

  Machine& machine_;
  std::map<Identity, std::uint64_t> code_;
  std::map<Identity, std::uint64_t> data_;
};

}  // namespace sim

#include "sim/server/virtual_addresses.h"

#include <fmt/format.h>

#include <charconv>

// The host program, from its first byte to the end of its data.
extern "C" const std::byte __executable_start[];  // NOLINT: names of the linker
extern "C" const std::byte _end[];                // NOLINT

namespace sim {
namespace {

constexpr std::string_view kPrefixes[] = {"0x", "=  "};  // what stands before an address; the dumps write no 0x
constexpr std::size_t kShortest = 8;                     // digits; what is shorter is no address of the host's

bool InProgram(std::uint64_t address) {
  return address >= reinterpret_cast<std::uintptr_t>(__executable_start) &&
         address < reinterpret_cast<std::uintptr_t>(_end);
}

}  // namespace

bool VirtualAddresses::Identify(std::uint64_t address, Identity& identity) const {
  const void* const pointer = reinterpret_cast<const void*>(address);
  if (const auto* block = machine_.Pool().Find(pointer); block != nullptr) {
    identity = {Kind::Block, block->serial};
    return true;
  }
  for (const EFI_HANDLE handle : machine_.Handles().All()) {
    for (const HandleDatabase::Interface& interface : *machine_.Handles().InterfacesOf(handle)) {
      if (interface.pointer == pointer) {
        identity = {Kind::Interface, interface.sequence};
        return true;
      }
    }
  }
  identity = {Kind::Code, address};
  return InProgram(address);
}

std::string VirtualAddresses::Shown(const Identity& identity) {
  const bool code = identity.first == Kind::Code;
  auto& shown = code ? code_ : data_;
  const std::uint64_t next = (code ? kFirstCode : kFirstData) + shown.size() * kDistance;
  return fmt::format("{:x}", shown.try_emplace(identity, next).first->second);
}

std::string VirtualAddresses::Replace(const std::string& line) {
  std::string replaced = line;
  for (const std::string_view prefix : kPrefixes) {
    std::size_t at = 0;
    while ((at = replaced.find(prefix, at)) != std::string::npos) {
      at += prefix.size();
      const char* const begin = replaced.data() + at;
      std::uint64_t address = 0;
      const auto [end, error] = std::from_chars(begin, replaced.data() + replaced.size(), address, 16);
      const auto digits = static_cast<std::size_t>(end - begin);
      Identity identity;
      if (error == std::errc{} && digits >= kShortest && address != 0 && Identify(address, identity)) {
        replaced.replace(at, digits, Shown(identity));
      }
    }
  }
  return replaced;
}

std::string VirtualAddresses::ReplaceRoutine(const std::string& line) {
  const std::size_t open = line.find('(');
  std::uint64_t address = 0;
  const char* const begin = line.data() + open + 1;
  const auto [end, error] = std::from_chars(begin, line.data() + line.size(), address, 16);
  if (open == std::string::npos || error != std::errc{} || end == begin) {
    return line;
  }
  return line.substr(0, open + 1) + Shown({Kind::Code, address}) +
         line.substr(static_cast<std::size_t>(end - line.data()));
}

}  // namespace sim

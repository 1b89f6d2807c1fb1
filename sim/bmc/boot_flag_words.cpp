// Boot requests in words, to and from the boot flags' bytes (IPMI 2.0, table 28-14).
#include "sim/bmc/boot_flag_words.h"

#include <charconv>
#include <string_view>

#include <fmt/format.h>

namespace sim {
namespace {

struct DeviceWord {
  std::string_view word;
  std::uint8_t selector;
};
constexpr DeviceWord kDevices[] = {{"none", 0}, {"pxe", 1},   {"disk", 2}, {"safe", 3},
                                   {"diag", 4}, {"cdrom", 5}, {"bios", 6}, {"floppy", 15}};
constexpr std::uint8_t kPersistent = 0x40;
constexpr std::uint8_t kEfi = 0x20;
constexpr std::uint8_t kInstanceGiven = 0x10;
constexpr std::string_view kInstance = "instance=";
constexpr unsigned kMaxInstance = 15;
constexpr std::uint8_t kNotHandledByBios = 0x01;

std::string_view WithoutDashes(std::string_view word) {
  while (word.starts_with('-')) {
    word.remove_prefix(1);
  }
  return word;
}

const DeviceWord* FindDevice(std::string_view word) {
  for (const DeviceWord& device : kDevices) {
    if (device.word == word) {
      return &device;
    }
  }
  return nullptr;
}

bool ParseInstance(std::string_view word, std::uint8_t& instance) {
  if (!word.starts_with(kInstance)) {
    return false;
  }
  const std::string_view digits = word.substr(kInstance.size());
  unsigned number = 0;
  const auto [end, code] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (code != std::errc{} || end != digits.data() + digits.size() || number > kMaxInstance) {
    return false;
  }
  instance = static_cast<std::uint8_t>(kInstanceGiven | number);
  return true;
}

}  // namespace

bool SetBootFlags(BmcState& state, std::span<const std::string> words, std::string& error) {
  constexpr std::string_view kForms =
      "expected none, pxe, disk, safe, diag, cdrom, bios or floppy, then any of persistent, efi, instance=0 to 15";
  const DeviceWord* device = words.empty() ? nullptr : FindDevice(words[0]);
  if (device == nullptr) {
    error = fmt::format("\"{}\" is not a boot device: {}", words.empty() ? "" : words[0], kForms);
    return false;
  }
  std::array<std::uint8_t, 5> flags{BmcState::kValid, static_cast<std::uint8_t>(device->selector << 2), 0, 0, 0};
  for (const std::string& word : words.subspan(1)) {
    const std::string_view plain = WithoutDashes(word);
    if (plain == "persistent") {
      flags[0] |= kPersistent;
    } else if (plain == "efi") {
      flags[0] |= kEfi;
    } else if (!ParseInstance(plain, flags[4])) {
      error = fmt::format("\"{}\" is not part of a boot request: {}", word, kForms);
      return false;
    }
  }
  state.bootFlags = flags;
  state.acknowledge |= kNotHandledByBios;
  return true;
}

std::string BootDeviceWord(const BootFlagBytes& flags) {
  const std::uint8_t selector = (flags[1] >> 2) & 0x0F;
  for (const DeviceWord& device : kDevices) {
    if (device.selector == selector) {
      return std::string(device.word);
    }
  }
  return fmt::format("device {}", selector);
}

std::optional<unsigned> BootInstance(const BootFlagBytes& flags) {
  return (flags[4] & kInstanceGiven) != 0 ? std::optional<unsigned>(flags[4] & 0x0F) : std::nullopt;
}

std::string BootFlagsText(const BmcState& state) {
  const auto& flags = state.bootFlags;
  if ((flags[0] & BmcState::kValid) == 0) {
    return "none";
  }
  std::string text = BootDeviceWord(flags);
  text += (flags[0] & kPersistent) != 0 ? " persistent" : "";
  text += (flags[0] & kEfi) != 0 ? " efi" : "";
  if (const auto instance = BootInstance(flags)) {
    text += fmt::format(" instance={}", *instance);
  }
  return text;
}

}  // namespace sim

#include "sim/cli/variable_decoder.h"

#include <fmt/format.h>

#include <array>
#include <cstring>

#include "bmc/bot_format.h"
#include "bmc/ipmi_variables.h"
#include "bootopt/legacy_dev_order.h"
#include "osopt/default_order.h"
#include "platform/setup_variable.h"
#include "sim/bmc/boot_flag_words.h"
#include "sim/cli/load_option_text.h"
#include "sim/cli/mac_variables.h"
#include "sim/cli/policy_variables.h"
#include "sim/cli/printable_text.h"
#include "sim/firmware/services/device_path_kinds.h"
#include "sim/firmware/services/device_path_text.h"
#include "sim/server/boot_order_table.h"
#include "sim/server/setup_fields.h"

namespace sim {
namespace {

using Bytes = std::span<const std::byte>;
using Lines = std::vector<std::string>;

template <typename Value>
std::optional<Value> Exactly(Bytes bytes) {
  if (bytes.size() != sizeof(Value)) {
    return std::nullopt;
  }
  Value value{};
  std::memcpy(&value, bytes.data(), sizeof(value));
  return value;
}

std::uint16_t WordAt(Bytes bytes, std::size_t at) {
  std::uint16_t value = 0;
  std::memcpy(&value, bytes.data() + at, sizeof(value));
  return value;
}

// For contents that are not what the name promises.
Lines Raw(Bytes bytes, const std::string& expected = {}) {
  Lines lines{fmt::format("{} bytes{}", bytes.size(), expected.empty() ? "" : ", expected " + expected)};
  for (std::string& line : HexText(bytes)) {
    lines.push_back(std::move(line));
  }
  return lines;
}

Lines OrderLines(Bytes bytes) {
  if (bytes.size() % sizeof(std::uint16_t) != 0) {
    return Raw(bytes, "a list of 16-bit numbers");
  }
  std::vector<std::string> numbers;
  for (std::size_t at = 0; at < bytes.size(); at += sizeof(std::uint16_t)) {
    numbers.push_back(fmt::format("{:04X}", WordAt(bytes, at)));
  }
  return {numbers.empty() ? "empty" : fmt::format("{}", fmt::join(numbers, " "))};
}

Lines NumberLines(Bytes bytes) {
  const auto number = Exactly<std::uint16_t>(bytes);
  return number ? Lines{fmt::format("{:04X}", *number)} : Raw(bytes, "a 16-bit number");
}

Lines TimeoutLines(Bytes bytes) {
  const auto seconds = Exactly<std::uint16_t>(bytes);
  if (!seconds) {
    return Raw(bytes, "a 16-bit number of seconds");
  }
  return {*seconds == 0xFFFF ? "waits without end" : fmt::format("{} s", *seconds)};
}

Lines PathLines(Bytes bytes) {
  const auto text = DevicePathText(bytes);
  return text ? Lines{PrintableText(*text)} : Raw(bytes, "a device path");
}

Lines AsciiLines(Bytes bytes) {
  std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  text.resize(std::min(text.size(), text.find('\0')));
  return {fmt::format("\"{}\"", PrintableText(text))};
}

// Records: BBS type, 16-bit length of itself and the entries, entries; 0xFF in an entry's high byte disables it.
Lines LegacyOrderLines(Bytes bytes) {
  constexpr std::size_t kHeader = 6;
  Lines lines;
  for (Bytes rest = bytes; !rest.empty();) {
    std::uint32_t type = 0;
    const std::uint16_t length = rest.size() < kHeader ? std::uint16_t{0} : WordAt(rest, 4);
    if (length < 2 || length % 2 != 0 || rest.size() - 4 < length) {
      lines.push_back(fmt::format("{} bytes that are no record", rest.size()));
      for (std::string& line : HexText(rest)) {
        lines.push_back(std::move(line));
      }
      break;
    }
    std::memcpy(&type, rest.data(), sizeof(type));
    const char* name = type <= 0xFFFF ? BbsTypeName(static_cast<std::uint16_t>(type)) : nullptr;
    std::string line = name != nullptr ? fmt::format("{}:", name) : fmt::format("type 0x{:X}:", type);
    for (std::size_t at = kHeader; at < std::size_t{4} + length; at += 2) {
      const std::uint16_t entry = WordAt(rest, at);
      const bool disabled = (entry & 0xFF00) == 0xFF00;
      line += fmt::format(" {}{}", disabled ? entry & 0xFF : entry, disabled ? " (disabled)" : "");
    }
    lines.push_back(std::move(line));
    rest = rest.subspan(std::size_t{4} + length);
  }
  return lines.empty() ? Lines{"empty"} : lines;
}

Lines SetupLines(Bytes bytes) {
  const std::span setup(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  Lines lines;
  for (const SetupField& field : SetupFields()) {
    lines.push_back(fmt::format("{:<20} {:<12} byte {}, {}", field.name, SetupFieldText(field, setup), field.offset,
                                field.meaning));
  }
  return lines;
}

// The answer of the BMC's that holds the request: version, selector, then the flags (IPMI 2.0, table 28-14).
Lines RequestLines(Bytes bytes) {
  const auto answer = Exactly<std::array<std::uint8_t, 2 + sizeof(BmcState::bootFlags)>>(bytes);
  if (!answer) {
    return Raw(bytes, "a persistent boot request");
  }
  BmcState state;
  std::copy(answer->begin() + 2, answer->end(), state.bootFlags.begin());
  return {BootFlagsText(state)};
}

Lines TableLines(Bytes bytes) {
  return BootOrderTableText({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

Lines OptionLines(Bytes bytes) { return LoadOptionText(bytes); }

struct NamedDecoder {
  std::u16string_view name;
  const EFI_GUID& guid;
  Lines (*decode)(Bytes bytes);
};
const NamedDecoder kByName[] = {
    {u"BootOrder", gEfiGlobalVariableGuid, OrderLines},
    {u"DriverOrder", gEfiGlobalVariableGuid, OrderLines},
    {u"SysPrepOrder", gEfiGlobalVariableGuid, OrderLines},
    {u"BootNext", gEfiGlobalVariableGuid, NumberLines},
    {u"BootCurrent", gEfiGlobalVariableGuid, NumberLines},
    {u"Timeout", gEfiGlobalVariableGuid, TimeoutLines},
    {u"ConIn", gEfiGlobalVariableGuid, PathLines},
    {u"ConOut", gEfiGlobalVariableGuid, PathLines},
    {u"ErrOut", gEfiGlobalVariableGuid, PathLines},
    {u"ConInDev", gEfiGlobalVariableGuid, PathLines},
    {u"ConOutDev", gEfiGlobalVariableGuid, PathLines},
    {u"ErrOutDev", gEfiGlobalVariableGuid, PathLines},
    {u"PlatformLang", gEfiGlobalVariableGuid, AsciiLines},
    {u"PlatformLangCodes", gEfiGlobalVariableGuid, AsciiLines},
    {u"LegacyDevOrder", bds::kLegacyDevOrderGuid, LegacyOrderLines},
    {u"OldLegacyDevOrder", bds::kLegacyDevOrderGuid, LegacyOrderLines},
    {bds::kDefaultBootOrderName, bds::kDefaultBootOrderGuid, OrderLines},
    {bds::kDefaultLegacyDevOrderName, bds::kDefaultLegacyDevOrderGuid, LegacyOrderLines},
    {kSetupName, kSetupGuid, SetupLines},
    {bds::kIpmiBootFlagsName, bds::kIpmiVariablesGuid, RequestLines},
    {bds::kSavedBootOrderName, bds::kIpmiVariablesGuid, OrderLines},
    {bds::kBotCopyName, bds::kBotVariablesGuid, TableLines},
    {bds::kBotChangedName, bds::kBotVariablesGuid, TableLines},
};

// "Boot0001", "Driver00ab": one of the words and four hexadecimal digits in either case.
bool IsLoadOptionName(std::u16string_view name) {
  for (const std::u16string_view word : {u"Boot", u"Driver", u"SysPrep"}) {
    if (name.size() == word.size() + 4 && name.starts_with(word)) {
      return name.find_first_not_of(u"0123456789ABCDEFabcdef", word.size()) == std::u16string_view::npos;
    }
  }
  return false;
}

}  // namespace

std::vector<std::string> DecodeVariable(const Variable& variable) {
  for (const NamedDecoder& each : kByName) {
    if (variable.name == each.name && variable.guid == each.guid) {
      return each.decode(variable.data);
    }
  }
  if (auto lines = DecodePolicyVariable(variable)) {
    return *lines;
  }
  if (auto lines = DecodeMacVariable(variable)) {
    return *lines;
  }
  const bool option = variable.guid == gEfiGlobalVariableGuid && IsLoadOptionName(variable.name);
  return option ? OptionLines(variable.data) : Raw(variable.data);
}

std::string VariableAttributesText(std::uint32_t attributes) {
  constexpr std::pair<std::uint32_t, const char*> kBits[] = {
      {EFI_VARIABLE_NON_VOLATILE, "NV"},   {EFI_VARIABLE_BOOTSERVICE_ACCESS, "BS"},
      {EFI_VARIABLE_RUNTIME_ACCESS, "RT"}, {kVariableHardwareErrorRecord, "HR"},
      {kVariableAuthenticatedWrite, "AW"}, {kVariableTimeBasedAuthenticatedWrite, "TA"},
  };
  std::vector<std::string> words;
  for (const auto& [bit, word] : kBits) {
    if ((attributes & bit) != 0) {
      words.emplace_back(word);
      attributes &= ~bit;
    }
  }
  if (attributes != 0) {
    words.push_back(fmt::format("0x{:X}", attributes));
  }
  return words.empty() ? "none" : fmt::format("{}", fmt::join(words, " "));
}

}  // namespace sim

#include "sim/policy/value_findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <limits>

#include "flexboot/policy_parser.h"
#include "flexboot/xml_cursor.h"

namespace sim {
namespace {

bool SameWord(const std::string& a, const char* b) { return bds::XmlStriCmp(a.c_str(), b) == 0; }

bool IsWordOf(const bds::LayoutField& field, const std::string& value) {
  return std::ranges::any_of(field.Words, [&](const bds::ValueWord& row) { return SameWord(value, row.Word); });
}

std::string WordList(const bds::LayoutField& field) {
  std::string list;
  for (const bds::ValueWord& row : field.Words) {
    list += fmt::format("{}{}", list.empty() ? "" : ", ", row.Word);
  }
  return list;
}

std::uint64_t Largest(std::size_t bytes) {
  return bytes >= sizeof(std::uint64_t) ? std::numeric_limits<std::uint64_t>::max() : (1ULL << (8 * bytes)) - 1;
}

// The driver's numbers are signed 32-bit ones, cut to the field.
std::string ObjectToNumber(const std::string& value, UINT32 base, std::size_t bytes) {
  const char* end = nullptr;
  const INT32 number = bds::XmlStrToInt(value.c_str(), &end, base);
  const std::uint64_t stored = static_cast<std::uint64_t>(static_cast<INT64>(number)) & Largest(bytes);
  const char* notation = base == 16 ? "hexadecimal" : "decimal";
  if (value.empty()) {
    return "empty: becomes 0";
  }
  if (base == 16 && value.size() > 1 && value[0] == '0' && (value[1] == 'x' || value[1] == 'X')) {
    return fmt::format("\"{}\" becomes 0: the number ends at the x; hexadecimal numbers are written as bare digits",
                       value);
  }
  if (*end != 0) {
    return fmt::format("\"{}\" becomes {:#x}: \"{}\" is no {} number", value, stored, end, notation);
  }
  if (number < 0 || static_cast<std::uint64_t>(number) > Largest(bytes)) {
    return fmt::format("\"{}\" becomes {:#x}: at most {:#x} fits", value, stored, Largest(bytes));
  }
  if (number == std::numeric_limits<INT32>::max()) {
    return fmt::format("\"{}\" becomes {:#x}, the largest number that is read", value, stored);
  }
  return {};
}

std::string ObjectToText(const std::string& value, std::size_t field) {
  if (value.size() < field) {
    return {};
  }
  return fmt::format("cut to {} characters: \"{}\"", field - 1, value.substr(0, field - 1));
}

std::string ObjectToMac(const std::string& value) {
  UINT8 mac[6];
  if (EFI_ERROR(bds::ParseMacAddress(value.c_str(), mac))) {
    return fmt::format("\"{}\" is no MAC address: expected six two-digit hexadecimal numbers with ':' between them",
                       value);
  }
  const bool digits = std::ranges::all_of(value, [](unsigned char c) { return std::isxdigit(c) != 0 || c == ':'; });
  if (value.size() != 17 || !digits) {
    return fmt::format("\"{}\" becomes {:02x}", value, fmt::join(mac, ":"));
  }
  return {};
}

std::string ObjectToPciAddress(const std::string& value) {
  UINT8 segment = 0;
  UINT8 bus = 0;
  UINT8 device = 0;
  UINT8 function = 0;
  if (EFI_ERROR(bds::ExtractPciAddressFromPolicy(value.c_str(), &segment, &bus, &device, &function))) {
    return fmt::format("\"{}\" is no PCI address", value);
  }
  const auto colons = std::ranges::count(value, ':');
  const auto dots = std::ranges::count(value, '.');
  if (colons != 2 || dots != 1) {
    return fmt::format("\"{}\" becomes {:04x}:{:02x}:{:02x}.{:x}: expected segment:bus:device.function", value, segment,
                       bus, device, function);
  }
  if (device > 31 || function > 7) {
    return fmt::format("\"{}\": there is no device {:#x} function {:#x} on a PCI bus", value, device, function);
  }
  return {};
}

std::string ObjectToYesNo(const std::string& value) {
  if (SameWord(value, "yes") || SameWord(value, "no")) {
    return {};
  }
  return fmt::format("\"{}\" is taken for no: expected yes or no", value);
}

}  // namespace

std::string ObjectToValue(const bds::LayoutField& field, const std::string& value) {
  using enum bds::Conversion;
  if (field.IgnoreEmpty && value.empty()) {
    return "empty: counts as not given";
  }
  if (IsWordOf(field, value)) {
    return {};
  }
  switch (field.How) {
    case YesNo:
    case YesOnly:
      return ObjectToYesNo(value);
    case Hexadecimal:
      return ObjectToNumber(value, 16, field.Size);
    case Decimal:
      return ObjectToNumber(value, 10, field.Size);
    case WordOnly:
      return fmt::format("\"{}\" becomes 0, which stands for any: expected {}", value, WordList(field));
    case Text:
      return ObjectToText(value, field.Size);
    case ReportName:
      return ObjectToText(value, sizeof(FLEXBOOT_TARGET::RN));
    case PciAddress:
      return ObjectToPciAddress(value);
    case MacAddress:
      return ObjectToMac(value);
  }
  return {};
}

std::string ObjectToHeaderValue(const bds::HeaderElementRow& row, const std::string& value) {
  return row.How == bds::Conversion::Hexadecimal ? ObjectToNumber(value, 16, row.Size) : ObjectToText(value, row.Size);
}

}  // namespace sim

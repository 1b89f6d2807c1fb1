#include "sim/policy/policy_text.h"

#include <fmt/format.h>

#include <cstring>
#include <string_view>

#include "sim/policy/target_findings.h"

namespace sim {
namespace {

std::string FieldText(const char* field, std::size_t size) { return {field, strnlen(field, size)}; }

std::uint64_t Number(const UINT8* data, std::size_t size) {
  std::uint64_t value = 0;
  std::memcpy(&value, data, size);
  return value;
}

// The value of one field in words; the layout says how it was written.
std::string ValueText(const bds::LayoutField& field, const UINT8* data) {
  using enum bds::Conversion;
  for (const bds::ValueWord& word : field.Words) {
    if (field.How == WordOnly && word.Number == data[0]) {
      return word.Word;
    }
  }
  switch (field.How) {
    case YesNo:
    case YesOnly:
      return data[0] != 0 ? "yes" : "no";
    case Decimal:
      return fmt::format("{}", Number(data, field.Size));
    case Hexadecimal:
    case WordOnly:
      return fmt::format("{:#x}", Number(data, field.Size));
    case Text:
      return FieldText(reinterpret_cast<const char*>(data), field.Size);
    case PciAddress:
      return data[1] == 0xFF ? fmt::format("any bus, device {:02x}.{:x}", data[2], data[3])
                             : fmt::format("{:04x}:{:02x}:{:02x}.{:x}", data[0], data[1], data[2], data[3]);
    case MacAddress:
      return fmt::format("{:02x}", fmt::join(data, data + 6, ":"));
    case ReportName:
      break;
  }
  return {};
}

}  // namespace

std::vector<std::string> DescribePolicyHeader(const FLEXBOOT_ORDER_HEADER& header) {
  std::vector<std::string> lines;
  for (const bds::HeaderElementRow& row : bds::kHeaderElements) {
    const char* field = reinterpret_cast<const char*>(&header) + row.Offset;
    const std::string value =
        row.How == bds::Conversion::Hexadecimal ? fmt::format("{}", header.NumBootTargets) : FieldText(field, row.Size);
    lines.push_back(fmt::format("{:<20} {}", row.Token + 1, value));
  }
  return lines;
}

std::vector<std::string> DescribePolicyTarget(const FLEXBOOT_TARGET& target) {
  if (target.Type >= bds::kTargetTypeCount) {
    return {fmt::format("type {}, which there is none of", target.Type)};
  }
  const bds::TargetTypeRow& type = bds::kTargetTypes[target.Type];
  const char* word = type.Word != nullptr ? type.Word : "unknown type";
  std::vector<std::string> lines = {target.Valid == 1 ? word
                                                      : fmt::format("{} (not used, as are all that follow)", word)};
  for (const auto& fields : {type.Pci, type.Fields}) {
    for (const bds::LayoutField& field : fields) {
      const UINT8* data = target.Data + field.Offset;
      if (field.How == bds::Conversion::ReportName) {
        if (target.RN[0] != 0) {
          lines.push_back(fmt::format("RN {}", FieldText(target.RN, sizeof(target.RN))));
        }
      } else if (data[field.Size] != 0) {  // the present flag
        lines.push_back(fmt::format("{} {}", ElementToken(field.Element).substr(1), ValueText(field, data)));
      }
    }
  }
  return lines;
}

std::vector<std::string> DescribePolicyRecord(std::span<const std::byte> bytes) {
  if (!bds::IsWholeRecord(bytes)) {
    return {"no whole policy record"};
  }
  std::vector<std::byte> copy(bytes.begin(), bytes.end());
  const auto& header = *reinterpret_cast<const FLEXBOOT_ORDER_HEADER*>(copy.data());
  std::vector<std::string> lines = DescribePolicyHeader(header);
  std::size_t number = 0;
  for (const FLEXBOOT_TARGET& target : bds::PolicyTargets(header)) {
    const std::vector<std::string> described = DescribePolicyTarget(target);
    lines.push_back(fmt::format("target {}: {}", ++number, fmt::join(described, ", ")));
  }
  return lines;
}

}  // namespace sim

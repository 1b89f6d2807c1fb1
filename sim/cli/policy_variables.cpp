#include "sim/cli/policy_variables.h"

#include <cstring>
#include <sstream>

#include "flexboot/used_policy.h"
#include "platform/flexboot_protocol.h"
#include "sim/cli/printable_text.h"
#include "sim/policy/policy_text.h"

namespace sim {
namespace {

using Lines = std::vector<std::string>;
using Bytes = std::span<const std::byte>;

std::optional<Lines> Printable(const Lines& lines) {
  Lines shown;
  for (const std::string& line : lines) {
    shown.push_back(PrintableText(line));
  }
  return shown;
}

std::optional<Lines> RecordLines(Bytes bytes) {
  return bds::IsWholeRecord(bytes) ? Printable(DescribePolicyRecord(bytes)) : std::nullopt;
}

std::optional<Lines> ReportLines(Bytes bytes) {
  std::istringstream text(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  Lines lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines.empty() ? std::nullopt : Printable(lines);
}

std::optional<Lines> Either(Bytes bytes, const char* one, const char* zero) {
  if (bytes.size() != 1) {
    return std::nullopt;
  }
  return Lines{bytes[0] == std::byte{0} ? zero : one};
}

std::optional<Lines> HaveLines(Bytes bytes) {
  return Either(bytes, "a policy was obtained on that boot", "no policy was obtained on that boot");
}

std::optional<Lines> OnceLines(Bytes bytes) {
  return Either(bytes, "the policy was for that boot only", "the policy is a lasting one, or there was none");
}

std::optional<Lines> UsedLines(Bytes bytes) {
  if (bytes.size() != sizeof(bds::POLICY_DIGEST)) {
    return std::nullopt;
  }
  return Lines{"a policy for one boot was used, and the BMC could not be told"};
}

struct Decoder {
  std::u16string_view name;
  std::optional<Lines> (*decode)(Bytes bytes);
};
constexpr Decoder kDecoders[] = {
    {kFlexBootOrderName, RecordLines}, {u"FlexBootReport", ReportLines},  {kHavePboName, HaveLines},
    {kOneTimeBootName, OnceLines},     {bds::kUsedPolicyName, UsedLines},
};

}  // namespace

std::optional<std::vector<std::string>> DecodePolicyVariable(const Variable& variable) {
  if (variable.guid != kPolicyVariablesGuid) {
    return std::nullopt;
  }
  for (const Decoder& each : kDecoders) {
    if (variable.name == each.name) {
      return each.decode(variable.data);
    }
  }
  return std::nullopt;
}

std::optional<std::string> BootTypeWithoutMode(const VariableStore& store) {
  const Variable* record = store.Find(kFlexBootOrderName, kPolicyVariablesGuid);
  if (record == nullptr || !bds::IsWholeRecord(record->data)) {
    return std::nullopt;
  }
  char type[sizeof(FLEXBOOT_ORDER_HEADER::BootType)];
  std::memcpy(type, record->data.data() + offsetof(FLEXBOOT_ORDER_HEADER, BootType), sizeof(type));
  std::string text(type, strnlen(type, sizeof(type)));
  return text == "legacy" || text == "uefi" ? std::nullopt : std::optional(text);
}

}  // namespace sim

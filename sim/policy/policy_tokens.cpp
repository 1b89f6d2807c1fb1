#include "sim/policy/policy_tokens.h"

#include "flexboot/state.h"
#include "flexboot/xml_cursor.h"
#include "sim/policy/policy_reading.h"
#include "sim/policy/quiet_driver.h"

namespace sim {
namespace {

// The '<' of a token that was read from offset on: blanks, texts and the rest of the previous tag lie before it.
std::size_t StartOfToken(std::string_view text, std::size_t offset) {
  const std::size_t start = text.find('<', offset);
  return start == std::string_view::npos ? text.size() : start;
}

// The first token lies behind the declaration's and the root's '<'.
std::size_t StartOfFirstToken(std::string_view text) {
  std::size_t start = StartOfToken(text, 0);
  start = StartOfToken(text, start + 1);
  return StartOfToken(text, start + 1);
}

}  // namespace

PolicyTokens TokenizePolicy(std::string_view text) {
  const QuietDriver quiet;
  text = text.substr(0, std::min(text.size(), kPolicyTextLimit));
  const std::string terminated(text);
  bds::XML_CURSOR cursor = bds::StartXml(
      terminated.c_str(), terminated.find('\0') == std::string::npos ? terminated.size() : terminated.find('\0'));
  char name[bds::kXmlTextSize] = {};
  char value[bds::kXmlTextSize] = {};
  PolicyTokens result;
  std::size_t start = StartOfFirstToken(text);
  EFI_STATUS status = bds::GetFirstToken(cursor, name, value);
  result.first = status;
  while (!EFI_ERROR(status)) {
    result.tokens.push_back({start, static_cast<std::size_t>(cursor.Offset), name, value});
    start = StartOfToken(text, cursor.Offset);
    status = bds::GetNextToken(cursor, name, value);
  }
  return result;
}

bool IsNoValue(const PolicyToken& token) {
  return token.value == bds::kXmlNoValue || token.value == bds::kXmlGroupToken;
}

}  // namespace sim

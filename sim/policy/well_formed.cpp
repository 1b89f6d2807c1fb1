#include "sim/policy/well_formed.h"

#include <expat.h>
#include <fmt/format.h>

#include <memory>

namespace sim {

std::optional<PolicyFinding> FindXmlError(std::string_view text) {
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
  if (!parser) {
    throw std::bad_alloc();
  }
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) != XML_STATUS_ERROR) {
    return std::nullopt;
  }
  return PolicyFinding{FindingKind::Warning, XML_GetCurrentLineNumber(parser.get()),
                       XML_GetCurrentColumnNumber(parser.get()) + 1,
                       fmt::format("not well-formed XML: {}", XML_ErrorString(XML_GetErrorCode(parser.get())))};
}

}  // namespace sim

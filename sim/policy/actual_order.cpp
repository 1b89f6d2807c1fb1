#include "sim/policy/actual_order.h"

#include <expat.h>
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <new>

namespace sim {
namespace {

constexpr std::string_view kHeader = "ActualBootOrderHeader";
constexpr std::string_view kTarget = "ActualBootTarget";

struct Reading {
  ActualOrderReport report;
  bool inHeader = false;
  bool inTarget = false;
};

std::string ValueOf(const XML_Char** attributes) {
  for (; *attributes != nullptr; attributes += 2) {
    if (std::string_view(attributes[0]) == "value") {
      return attributes[1];
    }
  }
  return {};
}

void XMLCALL OnStart(void* data, const XML_Char* name, const XML_Char** attributes) {
  auto& reading = *static_cast<Reading*>(data);
  if (name == kHeader) {
    reading.inHeader = true;
  } else if (name == kTarget) {
    reading.inTarget = true;
    reading.report.targets.push_back({ValueOf(attributes), {}});
  } else if (reading.inTarget) {
    reading.report.targets.back().fields.emplace_back(name, ValueOf(attributes));
  } else if (reading.inHeader) {
    reading.report.header.emplace_back(name, ValueOf(attributes));
  }
}

void XMLCALL OnEnd(void* data, const XML_Char* name) {
  auto& reading = *static_cast<Reading*>(data);
  reading.inHeader = reading.inHeader && name != kHeader;
  reading.inTarget = reading.inTarget && name != kTarget;
}

void XMLCALL OnComment(void* data, const XML_Char* text) { static_cast<Reading*>(data)->report.debug += text; }

}  // namespace

std::string ReportedTarget::Value(std::string_view name) const {
  const auto found = std::ranges::find(fields, name, &ReportFields::value_type::first);
  return found == fields.end() ? "" : found->second;
}

ActualOrderReport ReadActualOrder(std::string_view text) {
  Reading reading;
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
  if (!parser) {
    throw std::bad_alloc();
  }
  XML_SetUserData(parser.get(), &reading);
  XML_SetElementHandler(parser.get(), OnStart, OnEnd);
  XML_SetCommentHandler(parser.get(), OnComment);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) == XML_STATUS_ERROR) {
    reading.report.error = fmt::format("line {}: {}", XML_GetCurrentLineNumber(parser.get()),
                                       XML_ErrorString(XML_GetErrorCode(parser.get())));
  }
  return std::move(reading.report);
}

std::string ErrorCodeText(std::string_view code) {
  constexpr std::string_view kTexts[] = {"done", "no option", "too many options", "no target took it"};
  const bool known = code.size() == 1 && code[0] >= '0' && code[0] <= '3';
  return std::string(known ? kTexts[code[0] - '0'] : code);
}

}  // namespace sim

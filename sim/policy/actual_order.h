// The report of the actual boot order as it lies on the BMC, read for people and programs.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

using ReportFields = std::vector<std::pair<std::string, std::string>>;  // an element's name and value, in their order

struct ReportedTarget {
  std::string type;
  ReportFields fields;

  // The value of a field; empty when the report has none of this name.
  std::string Value(std::string_view name) const;
};

struct ActualOrderReport {
  ReportFields header;
  std::vector<ReportedTarget> targets;
  std::string debug;  // what the comment behind the document says
  std::string error;  // why, and in which line, the text is not well-formed; what was read before it is there
};

ActualOrderReport ReadActualOrder(std::string_view text);

// What an ErrorCode means.
std::string ErrorCodeText(std::string_view code);

}  // namespace sim

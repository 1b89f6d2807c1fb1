// Policies as texts, put together from what a case is about.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace test {

inline std::string PolicyTarget(std::string_view type, std::string_view elements) {
  return fmt::format("<FlexBootTarget value=\"{}\">{}</FlexBootTarget>", type, elements);
}

inline std::string Policy(std::string_view targets, std::string_view count = "1", std::string_view type = "uefi") {
  return fmt::format(
      "<?xml version='1.0'?><Root><FlexBootOrderHeader><Version value=\"1.0\" /><ServiceProfile value=\"sp\" />"
      "<BootType value=\"{}\" /><NumBootTargets value=\"{}\" /></FlexBootOrderHeader>"
      "<FlexBootTargets>{}</FlexBootTargets></Root>\n",
      type, count, targets);
}

}  // namespace test

// Texts of fixed width, as drives and BBS strings have them, without what fills them up.
#pragma once

#include <string>

namespace sim {

inline std::string Trimmed(std::string text) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) {
    text.pop_back();
  }
  return text;
}

}  // namespace sim

// Colours of the terminal, or none.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace sim {

struct Style {
  bool colour = false;

  std::string Strong(std::string_view text) const { return Paint("1", text); }
  std::string Good(std::string_view text) const { return Paint("32", text); }
  std::string Bad(std::string_view text) const { return Paint("31", text); }
  std::string Faint(std::string_view text) const { return Paint("2", text); }

 private:
  std::string Paint(const char* code, std::string_view text) const {
    return colour ? fmt::format("\x1B[{}m{}\x1B[0m", code, text) : std::string(text);
  }
};

}  // namespace sim

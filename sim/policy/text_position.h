// Lines and columns of a text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace sim {

class TextPositions {
 public:
  explicit TextPositions(std::string_view text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
      if (text[at] == '\n') {
        starts_.push_back(at + 1);
      }
    }
  }
  // Both from 1.
  std::size_t LineOf(std::size_t offset) const {
    return static_cast<std::size_t>(std::ranges::upper_bound(starts_, offset) - starts_.begin());
  }
  std::size_t ColumnOf(std::size_t offset) const { return offset - starts_[LineOf(offset) - 1] + 1; }

 private:
  std::vector<std::size_t> starts_ = {0};
};

}  // namespace sim

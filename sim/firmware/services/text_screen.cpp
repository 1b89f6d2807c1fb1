#include "sim/firmware/services/text_screen.h"

#include <algorithm>

#include "sim/firmware/variables/variable_name_text.h"

namespace sim {

void TextScreen::Clear() {
  cells_.assign(static_cast<std::size_t>(rows_), std::u16string(static_cast<std::size_t>(columns_), u' '));
  MoveTo(0, 0);
}

void TextScreen::NextLine() {
  if (++row_ < rows_) {
    return;
  }
  row_ = rows_ - 1;
  cells_.erase(cells_.begin());
  cells_.emplace_back(static_cast<std::size_t>(columns_), u' ');
}

void TextScreen::Put(char16_t character) {
  switch (character) {
    case u'\r':
      column_ = 0;
      return;
    case u'\n':
      NextLine();
      return;
    case u'\b':
      column_ = std::max(column_ - 1, 0);
      return;
    default:
      break;
  }
  cells_[static_cast<std::size_t>(row_)][static_cast<std::size_t>(column_)] = character;
  if (++column_ == columns_) {
    column_ = 0;
    NextLine();
  }
}

std::vector<std::string> TextScreen::Lines() const {
  std::vector<std::string> lines;
  for (const std::u16string& row : cells_) {
    lines.push_back(Utf8FromUtf16(row.substr(0, row.find_last_not_of(u' ') + 1)));
  }
  while (!lines.empty() && lines.back().empty()) {
    lines.pop_back();
  }
  return lines;
}

}  // namespace sim

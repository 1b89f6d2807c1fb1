// What a text console shows: a grid of characters with a cursor, written as UEFI 2.10, 12.4 describes it. A line that
// is full goes on in the next one, and the last line scrolls.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

class TextScreen {
 public:
  TextScreen(int columns, int rows) : columns_(columns), rows_(rows) { Clear(); }

  void Put(char16_t character);
  void Clear();
  // Within the screen; the caller checks.
  void MoveTo(int column, int row) { column_ = column, row_ = row; }
  int Columns() const { return columns_; }
  int Rows() const { return rows_; }
  int Column() const { return column_; }
  int Row() const { return row_; }

  // UTF-8, without the blanks at the lines' ends and the empty lines at the bottom.
  std::vector<std::string> Lines() const;

 private:
  void NextLine();

  int columns_;
  int rows_;
  int column_ = 0;
  int row_ = 0;
  std::vector<std::u16string> cells_;
};

}  // namespace sim

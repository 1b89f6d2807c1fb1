// Reads one TOML table strictly: every key is asked for by name and range, and whatever was not asked for is an error
// that names the file, the line, the key and what was expected.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <toml++/toml.h>

namespace sim {

// Line 0: the file as a whole.
class DescriptionError : public std::runtime_error {
 public:
  DescriptionError(const std::string& file, std::uint32_t line, const std::string& key, const std::string& expected);
};

class TableReader {
 public:
  // path is the table's own name as it stands in messages ("root_bridge[0]"); empty for the file itself.
  TableReader(const toml::table& table, std::string file, std::string path)
      : table_(table), file_(std::move(file)), path_(std::move(path)) {}

  bool Has(std::string_view key) const { return table_.contains(key); }
  bool Boolean(std::string_view key, bool otherwise);
  std::uint64_t Integer(std::string_view key, std::uint64_t otherwise, std::uint64_t least, std::uint64_t most);
  std::optional<std::uint64_t> OptionalInteger(std::string_view key, std::uint64_t least, std::uint64_t most);
  std::uint64_t RequiredInteger(std::string_view key, std::uint64_t least, std::uint64_t most);
  // All 64 bits: a number, or, since TOML's numbers end at 2^63 - 1, a text of hexadecimal digits behind "0x".
  std::optional<std::uint64_t> OptionalWide(std::string_view key);
  std::string Text(std::string_view key, std::string otherwise = {});
  std::string RequiredText(std::string_view key);
  std::vector<std::uint64_t> Integers(std::string_view key, std::uint64_t least, std::uint64_t most);
  std::vector<std::string> Texts(std::string_view key);
  // One of the words; its place among them.
  std::size_t Word(std::string_view key, const std::vector<std::string>& words, std::size_t otherwise);
  std::size_t RequiredWord(std::string_view key, const std::vector<std::string>& words);

  std::optional<TableReader> Table(std::string_view key);
  // The elements of an array of tables; none when the key is absent.
  std::vector<TableReader> Tables(std::string_view key);

  // Throws for the first key that nobody asked for.
  void Finish() const;
  // Throws for this key (or the table itself, when the key is empty or absent).
  [[noreturn]] void Fail(std::string_view key, const std::string& expected) const;

 private:
  const toml::node* Find(std::string_view key);
  std::string Name(std::string_view key) const;
  std::uint64_t Checked(std::string_view key, const toml::node& node, std::uint64_t least, std::uint64_t most) const;

  const toml::table& table_;
  std::string file_;
  std::string path_;
  std::set<std::string, std::less<>> asked_;
};

}  // namespace sim

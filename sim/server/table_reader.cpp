#include "sim/server/table_reader.h"

#include <fmt/format.h>

#include <charconv>

namespace sim {
namespace {

std::string Range(std::uint64_t least, std::uint64_t most) {
  return most > 0xFFFF ? fmt::format("a number from {} to 0x{:X}", least, most)
                       : fmt::format("a number from {} to {}", least, most);
}

}  // namespace

DescriptionError::DescriptionError(const std::string& file, std::uint32_t line, const std::string& key,
                                   const std::string& expected)
    : std::runtime_error(line == 0
                             ? fmt::format("{}: {}", file, expected)
                             : fmt::format("{}:{}: {}: {}", file, line, key.empty() ? "description" : key, expected)) {}

std::string TableReader::Name(std::string_view key) const {
  if (key.empty()) {
    return path_;
  }
  return path_.empty() ? std::string(key) : fmt::format("{}.{}", path_, key);
}

void TableReader::Fail(std::string_view key, const std::string& expected) const {
  const toml::node* node = key.empty() ? nullptr : table_.get(key);
  const auto line = (node != nullptr ? node->source() : table_.source()).begin.line;
  throw DescriptionError(file_, line, Name(key), "expected " + expected);
}

const toml::node* TableReader::Find(std::string_view key) {
  asked_.emplace(key);
  return table_.get(key);
}

std::uint64_t TableReader::Checked(std::string_view key, const toml::node& node, std::uint64_t least,
                                   std::uint64_t most) const {
  const auto value = node.value_exact<std::int64_t>();
  if (!value || *value < 0 || static_cast<std::uint64_t>(*value) < least || static_cast<std::uint64_t>(*value) > most) {
    Fail(key, Range(least, most));
  }
  return static_cast<std::uint64_t>(*value);
}

bool TableReader::Boolean(std::string_view key, bool otherwise) {
  const toml::node* node = Find(key);
  if (node == nullptr) {
    return otherwise;
  }
  const auto value = node->value_exact<bool>();
  if (!value) {
    Fail(key, "true or false");
  }
  return *value;
}

std::optional<std::uint64_t> TableReader::OptionalInteger(std::string_view key, std::uint64_t least,
                                                          std::uint64_t most) {
  const toml::node* node = Find(key);
  return node == nullptr ? std::nullopt : std::optional(Checked(key, *node, least, most));
}

std::uint64_t TableReader::Integer(std::string_view key, std::uint64_t otherwise, std::uint64_t least,
                                   std::uint64_t most) {
  return OptionalInteger(key, least, most).value_or(otherwise);
}

std::optional<std::uint64_t> TableReader::OptionalWide(std::string_view key) {
  const toml::node* node = Find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  const auto text = node->value_exact<std::string>();
  const auto number = node->value_exact<std::int64_t>();
  if (number && *number >= 0) {
    return static_cast<std::uint64_t>(*number);
  }
  std::uint64_t value = 0;
  if (text && text->starts_with("0x") && text->size() > 2) {
    const char* end = text->data() + text->size();
    const auto read = std::from_chars(text->data() + 2, end, value, 16);
    if (read.ec == std::errc{} && read.ptr == end) {
      return value;
    }
  }
  Fail(key, "a number from 0 to 0x7FFFFFFFFFFFFFFF, or a text such as \"0xFFFFFFFFFFFFFFFF\"");
}

std::uint64_t TableReader::RequiredInteger(std::string_view key, std::uint64_t least, std::uint64_t most) {
  const auto value = OptionalInteger(key, least, most);
  if (!value) {
    Fail({}, fmt::format("the key '{}', {}", key, Range(least, most)));
  }
  return *value;
}

std::string TableReader::Text(std::string_view key, std::string otherwise) {
  const toml::node* node = Find(key);
  if (node == nullptr) {
    return otherwise;
  }
  const auto value = node->value_exact<std::string>();
  if (!value) {
    Fail(key, "a text");
  }
  return *value;
}

std::string TableReader::RequiredText(std::string_view key) {
  if (Find(key) == nullptr) {
    Fail({}, fmt::format("the key '{}', a text", key));
  }
  return Text(key);
}

std::vector<std::uint64_t> TableReader::Integers(std::string_view key, std::uint64_t least, std::uint64_t most) {
  std::vector<std::uint64_t> values;
  const toml::node* node = Find(key);
  if (node == nullptr) {
    return values;
  }
  const toml::array* array = node->as_array();
  if (array == nullptr) {
    Fail(key, "a list of numbers");
  }
  for (const toml::node& element : *array) {
    values.push_back(Checked(key, element, least, most));
  }
  return values;
}

std::vector<std::string> TableReader::Texts(std::string_view key) {
  std::vector<std::string> values;
  const toml::node* node = Find(key);
  if (node == nullptr) {
    return values;
  }
  const toml::array* array = node->as_array();
  if (array == nullptr) {
    Fail(key, "a list of texts");
  }
  for (const toml::node& element : *array) {
    const auto value = element.value_exact<std::string>();
    if (!value) {
      Fail(key, "a list of texts");
    }
    values.push_back(*value);
  }
  return values;
}

std::size_t TableReader::Word(std::string_view key, const std::vector<std::string>& words, std::size_t otherwise) {
  return Find(key) == nullptr ? otherwise : RequiredWord(key, words);
}

std::size_t TableReader::RequiredWord(std::string_view key, const std::vector<std::string>& words) {
  const std::string word = RequiredText(key);
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i] == word) {
      return i;
    }
  }
  Fail(key, fmt::format("one of \"{}\"", fmt::join(words, "\", \"")));
}

std::optional<TableReader> TableReader::Table(std::string_view key) {
  const toml::node* node = Find(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  if (!node->is_table()) {
    Fail(key, "a table");
  }
  return TableReader(*node->as_table(), file_, Name(key));
}

std::vector<TableReader> TableReader::Tables(std::string_view key) {
  std::vector<TableReader> tables;
  const toml::node* node = Find(key);
  if (node == nullptr) {
    return tables;
  }
  if (!node->is_array_of_tables()) {
    Fail(key, fmt::format("tables, each begun by [[{}]]", Name(key)));
  }
  for (const toml::node& element : *node->as_array()) {
    tables.emplace_back(*element.as_table(), file_, fmt::format("{}[{}]", Name(key), tables.size()));
  }
  return tables;
}

void TableReader::Finish() const {
  for (const auto& [key, node] : table_) {
    if (!asked_.contains(key.str())) {
      throw DescriptionError(file_, node.source().begin.line, Name(key.str()),
                             fmt::format("unknown key; known here: {}", fmt::join(asked_, ", ")));
    }
  }
}

}  // namespace sim

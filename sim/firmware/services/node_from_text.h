// One node of a device path from the words of its text: the arguments, the readers' table, and raw nodes.
#pragma once

#include <arpa/inet.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/device_path.h"
#include "sim/firmware/guid_text.h"
#include "sim/firmware/services/text_numbers.h"

namespace sim {

// The arguments of one node. Any argument that does not fit marks the whole list as failed, so that readers need no
// check of their own.
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> texts) : texts_(std::move(texts)) {}

  std::string Text() { return next_ < texts_.size() ? texts_[next_++] : std::string(); }
  std::uint64_t Number(std::uint64_t limit = ~std::uint64_t{0}) {
    const std::string text = Text();
    const auto value = text.empty() ? std::optional<std::uint64_t>(0) : NumberFromText(text, limit);
    Check(value.has_value());
    return value.value_or(0);
  }
  template <typename T>
  void Number(T& value) {
    value = static_cast<T>(Number(static_cast<std::uint64_t>(static_cast<T>(~T{0}))));
  }
  EFI_GUID Guid() {
    const auto guid = ParseGuid(Text());
    Check(guid.has_value());
    return guid.value_or(EFI_GUID{});
  }
  std::string HexData() {
    const auto data = BytesFromHex(Text());
    Check(data.has_value());
    return data.value_or("");
  }
  // Bytes of a number written in full (a MAC or SAS address), zero-padded behind.
  template <std::size_t N>
  void Fill(UINT8 (&field)[N]) {
    std::string text = Text();
    text = text.starts_with("0x") ? text.substr(2) : text;
    const auto data = BytesFromHex(text);
    Check(data && data->size() <= N);
    std::memset(field, 0, N);
    if (data && data->size() <= N) {
      std::memcpy(field, data->data(), data->size());
    }
  }
  template <std::size_t N>
  void Address(UINT8 (&field)[N]) {
    const std::string text = Text();
    std::memset(field, 0, N);
    Check(text.empty() || inet_pton(N == 4 ? AF_INET : AF_INET6, text.c_str(), field) == 1);
  }
  // The position of a word in a table, or a number for what the table does not have.
  template <typename Table>
  std::uint64_t Word(const Table& words, std::uint64_t limit = 0xFF) {
    const std::string text = Text();
    for (std::size_t i = 0; i < std::size(words); ++i) {
      if (text == words[i]) {
        return i;
      }
    }
    const auto value = text.empty() ? std::optional<std::uint64_t>(0) : NumberFromText(text, limit);
    Check(value.has_value());
    return value.value_or(0);
  }
  void Check(bool fits) { failed_ = failed_ || !fits; }
  bool Failed() const { return failed_ || next_ < texts_.size(); }

 private:
  std::vector<std::string> texts_;
  std::size_t next_ = 0;
  bool failed_ = false;
};

// A node of that type around a body.
std::vector<std::byte> RawNode(std::uint8_t type, std::uint8_t subType, const void* body, std::size_t size);
std::vector<std::byte> RawNode(std::uint8_t type, std::uint8_t subType, const std::string& body);

struct NodeReader;
using Read = std::vector<std::byte> (*)(Arguments& in, const NodeReader& reader);
struct NodeReader {
  const char* name;
  Read read;
  std::uint8_t type = 0;
  std::uint8_t subType = 0;
  std::uint32_t detail = 0;  // whatever distinguishes nodes that one reader reads
};

// The reader of that node name; names that stand for one value of a node come from the tables they print with.
std::optional<NodeReader> FindReader(std::string_view name);

}  // namespace sim

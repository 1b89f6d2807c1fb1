// The BMC's boot option parameters as a TOML file: numbers, and byte strings in hexadecimal.
#include "sim/bmc/bmc_state.h"

#include <fstream>
#include <set>
#include <span>
#include <system_error>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <toml++/toml.h>

namespace sim {
namespace {

std::optional<std::vector<std::uint8_t>> HexBytes(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  int nibbles = 0;
  unsigned value = 0;
  for (const char c : text) {
    if (c == ' ' && nibbles == 0) {
      continue;
    }
    const bool digit = c >= '0' && c <= '9';
    if (!digit && !(c >= 'a' && c <= 'f')) {
      return std::nullopt;
    }
    value = value * 16 + static_cast<unsigned>(digit ? c - '0' : c - 'a' + 10);
    if (++nibbles == 2) {
      bytes.push_back(static_cast<std::uint8_t>(value));
      nibbles = 0;
      value = 0;
    }
  }
  return nibbles == 0 ? std::optional(bytes) : std::nullopt;
}

// Takes the file's values over one by one and remembers the first that is wrong.
class Reader {
 public:
  Reader(const toml::table& table, std::string file) : table_(table), file_(std::move(file)) {}

  template <typename Integer>
  void Number(std::string_view key, Integer& value, std::uint64_t limit) {
    const toml::node* node = Find(key);
    if (node == nullptr) {
      return;
    }
    const auto number = node->value_exact<std::int64_t>();
    if (!number || *number < 0 || static_cast<std::uint64_t>(*number) > limit) {
      Wrong(*node, key, fmt::format("expected a number from 0 to {}", limit));
      return;
    }
    value = static_cast<Integer>(*number);
  }
  std::optional<std::vector<std::uint8_t>> Bytes(std::string_view key, std::size_t least, std::size_t most) {
    const toml::node* node = Find(key);
    if (node == nullptr) {
      return std::nullopt;
    }
    const auto text = node->value_exact<std::string>();
    auto bytes = text ? HexBytes(*text) : std::nullopt;
    if (!bytes || bytes->size() < least || bytes->size() > most) {
      Wrong(*node, key, fmt::format("expected {} to {} bytes in hexadecimal, as text", least, most));
      return std::nullopt;
    }
    return bytes;
  }
  void RefuseOthers() {
    for (const auto& [key, node] : table_) {
      if (!known_.contains(std::string(key.str()))) {
        Wrong(node, key.str(), "no such key");
      }
    }
  }
  const std::string& Error() const { return error_; }

 private:
  const toml::node* Find(std::string_view key) {
    known_.insert(std::string(key));
    return table_.get(key);
  }
  void Wrong(const toml::node& node, std::string_view key, std::string_view what) {
    if (error_.empty()) {
      error_ = fmt::format("{}:{}: {}: {}", file_, node.source().begin.line, key, what);
    }
  }

  const toml::table& table_;
  std::string file_;
  std::string error_;
  std::set<std::string> known_;
};

std::string Hex(std::span<const std::uint8_t> bytes) { return fmt::format("{:02x}", fmt::join(bytes, " ")); }

}  // namespace

std::optional<BmcState> BmcState::Load(const std::filesystem::path& file, std::string& error) {
  std::error_code code;
  if (!std::filesystem::exists(file, code)) {
    return BmcState{};
  }
  toml::table table;
  try {
    table = toml::parse_file(file.string());
  } catch (const toml::parse_error& wrong) {
    error = fmt::format("{}:{}: {}", file.string(), wrong.source().begin.line, wrong.description());
    return std::nullopt;
  }
  BmcState state;
  Reader reader(table, file.string());
  reader.Number("set_in_progress", state.setInProgress, 2);
  reader.Number("valid_bit_clearing", state.validBitClearing, 0x1F);
  reader.Number("acknowledge", state.acknowledge, 0xFF);
  reader.Number("boot_order_block_size", state.botBlockSize, 0xFF);
  reader.Number("one_time_stale_requests", state.oneTimeStaleRequests, 0xFFFFFFFF);
  if (const auto flags = reader.Bytes("boot_flags", 5, 5)) {
    std::copy(flags->begin(), flags->end(), state.bootFlags.begin());
  }
  if (auto bytes = reader.Bytes("boot_order_table", 0, kMaxTable)) {
    state.bootOrderTable = std::move(*bytes);
  }
  reader.RefuseOthers();
  if (!reader.Error().empty()) {
    error = reader.Error();
    return std::nullopt;
  }
  return state;
}

bool BmcState::Save(const std::filesystem::path& file, std::string& error) const {
  std::error_code code;
  if (file.has_parent_path()) {
    std::filesystem::create_directories(file.parent_path(), code);
  }
  std::filesystem::path fresh = file;
  fresh += ".new";
  std::ofstream out(fresh, std::ios::trunc);
  out << "# The BMC's System Boot Options, byte by byte.\n"
      << fmt::format("set_in_progress = {}\n", setInProgress)
      << fmt::format("valid_bit_clearing = {}\n", validBitClearing) << fmt::format("acknowledge = {}\n", acknowledge)
      << fmt::format("boot_flags = \"{}\"\n", Hex(bootFlags))
      << fmt::format("boot_order_block_size = {}\n", botBlockSize)
      << fmt::format("boot_order_table = \"{}\"\n", Hex(bootOrderTable))
      << fmt::format("one_time_stale_requests = {}\n", oneTimeStaleRequests);
  out.close();
  if (!out.good()) {
    error = fmt::format("{} cannot be written", fresh.string());
    return false;
  }
  std::filesystem::rename(fresh, file, code);
  if (code) {
    error = fmt::format("{} cannot be replaced: {}", file.string(), code.message());
    return false;
  }
  return true;
}

}  // namespace sim

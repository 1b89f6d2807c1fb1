#include "sim/server/boot_order_table.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <numeric>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "sim/bus/utf_text.h"

namespace sim {
namespace {

constexpr std::array<std::uint8_t, 4> kSignature{'_', 'B', 'O', '_'};
constexpr std::size_t kChecksumAt = 4;
constexpr std::size_t kKindAt = 6;
constexpr std::size_t kLengthAt = 7;
constexpr std::size_t kFlagsAt = 10;
constexpr std::size_t kHeaderSize = 11;
constexpr std::uint8_t kKind = 0x95;

struct GroupRow {
  std::uint8_t code;
  const char* name;
};
constexpr GroupRow kGroups[] = {{0x01, "FDD"}, {0x08, "IHD"}, {0x03, "CDD"}, {0x05, "USB"},
                                {0x06, "NIC"}, {0x80, "BEV"}, {0x10, "EFI"}};

// What the driver sends of a boot under a policy, when the order is the policy's and not the table's.
constexpr std::array<std::uint8_t, 19> kUnderPolicy{0x5F, 0x42, 0x4F, 0x5F, 0x16, 0x00, 0x5F, 0x13, 0x00, 0x00,
                                                    0x00, 0x00, 0x08, 0x03, 0x01, 0x06, 0x08, 0x10, 0xFF};

using Bytes = std::span<const std::uint8_t>;

bool IsOfPolicyBoot(Bytes table) {
  return table.size() >= kUnderPolicy.size() && std::equal(kUnderPolicy.begin(), kUnderPolicy.end(), table.begin());
}

std::uint16_t WordAt(Bytes bytes, std::size_t at) { return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8); }

std::uint8_t Sum(Bytes bytes) { return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0U)); }

// Takes bytes off the front; a take that would pass the end leaves all as it is.
class Reader {
 public:
  explicit Reader(Bytes bytes) : rest_(bytes) {}
  bool Take(std::size_t size, Bytes& taken) {
    if (rest_.size() < size) {
      return false;
    }
    taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return true;
  }
  bool Byte(std::uint8_t& value) {
    Bytes taken;
    return Take(1, taken) && (value = taken[0], true);
  }
  bool Word(std::uint16_t& value) {
    Bytes taken;
    return Take(2, taken) && (value = WordAt(taken, 0), true);
  }
  bool Empty() const { return rest_.empty(); }

 private:
  Bytes rest_;
};

bool ReadEntries(Reader& reader, BootOrderTable& table) {
  for (;;) {
    BootOrderTable::Entry entry;
    std::uint8_t count = 0;
    if (!reader.Byte(entry.code) || !reader.Byte(count)) {
      return false;
    }
    for (unsigned item = 0; item < count; ++item) {
      std::uint8_t byte = 0;
      std::uint16_t word = 0;
      if (entry.code == BootOrderTable::kEfi ? !reader.Word(word) : !reader.Byte(byte)) {
        return false;
      }
      entry.items.push_back(entry.code == BootOrderTable::kEfi ? word : byte);
    }
    if (entry.code == BootOrderTable::kEnd) {
      return true;
    }
    table.entries.push_back(std::move(entry));
  }
}

bool ReadUefiName(Reader& reader, BootOrderTable::Name& name) {
  std::uint16_t pathLength = 0;
  if (!reader.Word(pathLength)) {
    return false;
  }
  std::u16string text;
  std::uint16_t character = 0;
  while (reader.Word(character) && character != 0) {
    text += static_cast<char16_t>(character);
  }
  Bytes path;
  if (character != 0 || !reader.Take(pathLength, path)) {
    return false;
  }
  name.text = Utf8OfText(text);
  name.path.assign(path.begin(), path.end());
  return true;
}

bool ReadNames(Reader& reader, BootOrderTable& table) {
  while (!reader.Empty()) {
    BootOrderTable::Name name;
    if (!reader.Byte(name.code) || !reader.Word(name.item)) {
      return false;
    }
    if (name.code == BootOrderTable::kEfi) {
      if (!ReadUefiName(reader, name)) {
        return false;
      }
    } else {
      std::uint8_t character = 0;
      while (reader.Byte(character) && character != 0) {
        name.text += static_cast<char>(character);
      }
      if (character != 0) {
        return false;
      }
    }
    table.names.push_back(std::move(name));
  }
  return true;
}

std::string ItemText(const BootOrderTable& table, std::uint8_t code, std::uint16_t item) {
  const std::string name = table.NameOf(code, item);
  const std::string number = code == BootOrderTable::kEfi ? fmt::format("Boot{:04X}", item) : fmt::format("{}", item);
  return name.empty() ? number : fmt::format("{} \"{}\"", number, name);
}

// A line each; the first one names the group.
void AddEntryText(const BootOrderTable& table, const BootOrderTable::Entry& entry, std::vector<std::string>& lines) {
  std::string group = BootGroupName(entry.code);
  for (const std::uint16_t item : entry.items) {
    lines.push_back(fmt::format("{:<6} {}", group, ItemText(table, entry.code, item)));
    group.clear();
  }
}

std::vector<std::uint8_t> NewTable() {
  std::vector<std::uint8_t> table(kHeaderSize);
  std::copy(kSignature.begin(), kSignature.end(), table.begin());
  table[kKindAt] = kKind;
  table.insert(table.end(), {BootOrderTable::kEnd, 0});
  table[kLengthAt] = static_cast<std::uint8_t>(table.size());
  return table;
}

std::optional<std::uint8_t> CodeOf(std::string name) {
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  const auto row = std::ranges::find_if(kGroups, [&name](const GroupRow& group) { return name == group.name; });
  return row != std::end(kGroups) ? std::optional(row->code) : std::nullopt;
}

std::optional<std::vector<std::uint8_t>> CodesOf(const std::vector<std::string>& names, std::string& error) {
  std::vector<std::uint8_t> codes;
  for (const std::string& name : names) {
    const auto code = CodeOf(name);
    if (!code || std::ranges::count(codes, *code) != 0) {
      error = fmt::format("\"{}\" {}: expected some of FDD, IHD, CDD, USB, NIC, BEV and EFI, each once", name,
                          code ? "is there twice" : "is no group");
      return std::nullopt;
    }
    codes.push_back(*code);
  }
  return codes;
}

}  // namespace

std::optional<BootOrderTable> BootOrderTable::Parse(Bytes bytes) {
  if (bytes.size() < kHeaderSize || !std::equal(kSignature.begin(), kSignature.end(), bytes.begin())) {
    return std::nullopt;
  }
  BootOrderTable table;
  table.length = WordAt(bytes, kLengthAt);
  table.flags = bytes[kFlagsAt];
  table.sumIsGood = Sum(bytes) == 0;
  if (table.length < kHeaderSize || table.length > bytes.size()) {
    table.damage = fmt::format("its length is {}, and {} bytes are there", table.length, bytes.size());
    return table;
  }
  Reader reader(bytes.first(table.length).subspan(kHeaderSize));
  if (!ReadEntries(reader, table)) {
    table.damage = "it ends within its groups";
  } else if (!ReadNames(reader, table)) {
    table.damage = "it ends within a name";
  }
  return table;
}

std::vector<std::uint8_t> BootOrderTable::Groups() const {
  if (entries.empty() || entries.front().code != kSys) {
    return {};
  }
  return {entries.front().items.begin(), entries.front().items.end()};
}

std::string BootOrderTable::NameOf(std::uint8_t code, std::uint16_t item) const {
  const auto found =
      std::ranges::find_if(names, [&](const Name& name) { return name.code == code && name.item == item; });
  return found != names.end() ? found->text : "";
}

std::string BootGroupName(std::uint8_t code) {
  const auto row = std::ranges::find(kGroups, code, &GroupRow::code);
  return row != std::end(kGroups) ? row->name : fmt::format("0x{:02X}", code);
}

std::vector<std::string> BootOrderTableText(Bytes bytes) {
  const auto table = BootOrderTable::Parse(bytes);
  if (!table) {
    return {fmt::format("{} bytes, no boot order table", bytes.size())};
  }
  if (IsOfPolicyBoot(bytes)) {
    return {"order  that of the boot policy (bds-sim bmc DIR report)"};
  }
  std::vector<std::string> order;
  for (const std::uint8_t code : table->Groups()) {
    order.push_back(BootGroupName(code));
  }
  std::vector<std::string> lines{
      fmt::format("order  {}{}", order.empty() ? "none" : fmt::format("{}", fmt::join(order, " ")),
                  (table->flags & BootOrderTable::kChanged) != 0 ? "  (changed by the BMC)" : "")};
  for (const BootOrderTable::Entry& entry : table->entries) {
    if (entry.code != BootOrderTable::kSys) {
      AddEntryText(*table, entry, lines);
    }
  }
  if (!table->sumIsGood) {
    lines.push_back("damaged: the bytes do not sum to 0");
  }
  if (!table->damage.empty()) {
    lines.push_back("damaged: " + table->damage);
  }
  return lines;
}

std::optional<std::vector<std::uint8_t>> WithGroupOrder(Bytes bytes, const std::vector<std::string>& names,
                                                        std::string& error) {
  const auto codes = CodesOf(names, error);
  if (!codes) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> table(bytes.begin(), bytes.end());
  auto old = BootOrderTable::Parse(table);
  if (!old || !old->damage.empty()) {
    table = NewTable();
    old = BootOrderTable::Parse(table);
  }
  table.resize(old->length);
  const bool hasSys = !old->entries.empty() && old->entries.front().code == BootOrderTable::kSys;
  const std::size_t sysSize = hasSys ? 2 + old->entries.front().items.size() : 0;
  const auto sys = table.begin() + kHeaderSize;
  std::vector<std::uint8_t> entry{BootOrderTable::kSys, static_cast<std::uint8_t>(codes->size())};
  entry.insert(entry.end(), codes->begin(), codes->end());
  table.erase(sys, sys + static_cast<std::ptrdiff_t>(sysSize));
  table.insert(table.begin() + kHeaderSize, entry.begin(), entry.end());
  table[kFlagsAt] |= BootOrderTable::kChanged;
  table[kLengthAt] = static_cast<std::uint8_t>(table.size() & 0xFF);
  table[kLengthAt + 1] = static_cast<std::uint8_t>(table.size() >> 8);
  table[kChecksumAt] = static_cast<std::uint8_t>(table[kChecksumAt] - Sum(table));
  return table;
}

}  // namespace sim

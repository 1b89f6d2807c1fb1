#include "sim/cli/mac_variables.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "inventory/mac_database.h"
#include "sim/cli/printable_text.h"

namespace sim {
namespace {

using Bytes = std::span<const std::byte>;
using Lines = std::vector<std::string>;

// The characters of a field up to its NUL or end.
std::string FieldText(std::span<const char> field) {
  return PrintableText(std::string(field.begin(), std::ranges::find(field, '\0')));
}

std::optional<bds::MAC_DATABASE_HEADER> HeaderOf(Bytes bytes) {
  bds::MAC_DATABASE_HEADER header{};
  if (bytes.size() < sizeof(header)) {
    return std::nullopt;
  }
  std::memcpy(&header, bytes.data(), sizeof(header));
  const std::size_t size = sizeof(header) + header.InterfaceCount * sizeof(bds::MAC_DATABASE_INTERFACE);
  const bool fits = size == bytes.size() && header.Size == static_cast<UINT16>(size);
  return header.Signature == bds::kMacDatabaseSignature && fits ? std::optional(header) : std::nullopt;
}

bool Filled(const bds::MAC_DATABASE_SLOT& slot) { return slot.SlotId != 0; }

std::string InterfaceLine(Bytes bytes) {
  bds::MAC_DATABASE_INTERFACE record{};
  std::memcpy(&record, bytes.data(), sizeof(record));
  if (record.MacAddress[0] == 0) {
    return "interface  not filled";
  }
  const bool board = record.SlotId == bds::kSlotIdLom && record.LomMark == bds::kLomMark;
  const std::string place = board ? "on board" : fmt::format("slot {}", UINT16{record.SlotId});
  return fmt::format("interface  {}  {:<9} port {}", FieldText(record.MacAddress), place, UINT16{record.InterfaceId});
}

std::optional<Lines> DatabaseLines(Bytes bytes) {
  const auto header = HeaderOf(bytes);
  if (!header) {
    return std::nullopt;
  }
  Lines lines{*MacDatabaseSummary(bytes)};
  const auto slot = [&lines](const std::string& name, const bds::MAC_DATABASE_SLOT& record) {
    if (Filled(record)) {
      lines.push_back(
          fmt::format("{:<9}  {} interfaces  \"{}\"", name, UINT16{record.InterfaceCount}, FieldText(record.Name)));
    }
  };
  for (const bds::MAC_DATABASE_SLOT& record : header->Slots) {
    slot(fmt::format("slot {}", UINT16{record.SlotId}), record);
  }
  slot("on board", header->Lom);
  for (std::size_t at = sizeof(*header); at < bytes.size(); at += sizeof(bds::MAC_DATABASE_INTERFACE)) {
    lines.push_back(InterfaceLine(bytes.subspan(at)));
  }
  return lines;
}

std::optional<Lines> LomLines(Bytes bytes) {
  bds::LOM_INTERFACE record{};
  if (bytes.size() != sizeof(record)) {
    return std::nullopt;
  }
  std::memcpy(&record, bytes.data(), sizeof(record));
  return Lines{fmt::format("{:02x}, port {}", fmt::join(record.MacAddress, ":"), record.LanPort)};
}

}  // namespace

std::optional<std::string> MacDatabaseSummary(std::span<const std::byte> bytes) {
  const auto header = HeaderOf(bytes);
  if (!header) {
    return std::nullopt;
  }
  return fmt::format("MAC addresses: {} slots, {} interfaces", header->SlotCount, UINT16{header->InterfaceCount});
}

std::optional<std::vector<std::string>> DecodeMacVariable(const Variable& variable) {
  if (variable.guid != bds::kMacDatabaseGuid) {
    return std::nullopt;
  }
  if (variable.name == bds::kMacDatabaseName) {
    return DatabaseLines(variable.data);
  }
  const bool lom =
      std::ranges::any_of(bds::kLomInterfaceNames, [&](const CHAR16* name) { return variable.name == name; });
  return lom ? LomLines(variable.data) : std::nullopt;
}

}  // namespace sim

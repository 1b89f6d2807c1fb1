#include "sim/server/network_reader.h"

#include <fmt/format.h>

#include "support/text.h"

namespace sim {
namespace {

constexpr std::size_t kLongestIscsiName = 223;  // RFC 3720, 3.2.6.1

// Six or eight bytes, as MAC addresses and world wide names are written; the first one becomes the highest.
std::uint64_t ColonBytes(TableReader& table, const char* key, std::size_t count) {
  const std::string text = table.RequiredText(key);
  std::uint64_t value = 0;
  bool fits = text.size() == count * 3 - 1;
  for (std::size_t i = 0; fits && i < text.size(); ++i) {
    if (i % 3 == 2) {
      fits = text[i] == ':';
      continue;
    }
    const int digit = bds::HexDigitValue(text[i]);
    fits = digit >= 0;
    value = value << 4 | static_cast<std::uint64_t>(digit);
  }
  if (!fits) {
    table.Fail(
        key, fmt::format("{} hexadecimal bytes of two digits with colons between them", count == 6 ? "six" : "eight"));
  }
  return value;
}

}  // namespace

FibreChannelController ReadFibre(TableReader& table, const DriveReader& drives) {
  return {ReadDevices<FibreChannelLun>(table, "lun", [&drives](TableReader& element, FibreChannelLun& unit) {
    unit.portName = ColonBytes(element, "wwpn", 8);
    unit.lun = element.Integer("lun", 0, 0, INT64_MAX);
    unit.node = static_cast<FibreNode>(element.Word("node", {"fibre-ex", "fibre"}, 0));
    unit.drive = drives.ReadDrive(element, false);
  })};
}

NetworkController ReadNetwork(TableReader& table, const DriveReader& drives, bool boots) {
  NetworkPort port;
  const std::uint64_t mac = ColonBytes(table, "mac", port.mac.size());
  for (std::size_t i = 0; i < port.mac.size(); ++i) {
    port.mac[i] = static_cast<std::uint8_t>(mac >> (8 * (port.mac.size() - 1 - i)));
  }
  port.mediaPresent = table.Boolean("link", true);
  port.ipv4 = table.Boolean("ipv4", boots);
  port.ipv6 = table.Boolean("ipv6", boots);
  port.bootMacNode = table.Boolean("boot_mac_node", false);
  port.boot.imageFile = drives.ReadFile(table, "boot_file");
  const std::size_t identifiers = table.Word("nii", {"current", "old", "both", "none"}, 0);
  port.identifier = identifiers == 0 || identifiers == 2;
  port.oldIdentifier = identifiers == 1 || identifiers == 2;
  port.iscsi = ReadDevices<IscsiLun>(table, "iscsi", [&drives](TableReader& element, IscsiLun& unit) {
    unit.target = element.RequiredText("target");
    if (unit.target.size() > kLongestIscsiName) {
      element.Fail("target", "an iSCSI name of 223 characters at most");
    }
    unit.portalGroup = static_cast<std::uint16_t>(element.Integer("portal_group", 1, 0, 0xFFFF));
    unit.lun = element.Integer("lun", 0, 0, INT64_MAX);
    unit.drive = drives.ReadDrive(element, false);
  });
  return {{std::move(port)}};
}

AdapterNvm ReadNvm(TableReader& table, std::uint8_t function, const decltype(NetworkPort::mac)& mac) {
  AdapterNvm nvm;
  nvm.family = static_cast<NvmFamily>(table.RequiredWord("family", {"i350", "x540", "x710"}));
  nvm.port = static_cast<std::uint8_t>(table.Integer("port", function % 4U, 0, 3));
  nvm.mac = mac;
  nvm.blank = table.Boolean("blank", false);
  nvm.done = table.Boolean("done", true);
  nvm.doneAfter = static_cast<std::uint32_t>(table.Integer("done_after", 0, 0, 100'000));
  nvm.pointer = static_cast<std::uint16_t>(table.Integer("pointer", nvm.pointer, 0, 0xFFFF));
  nvm.relative = static_cast<std::uint16_t>(table.Integer("relative", nvm.relative, 0, 0xFFFF));
  table.Finish();
  return nvm;
}

}  // namespace sim

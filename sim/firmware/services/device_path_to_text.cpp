// Device path nodes to text: a table of node kinds, one writer each (UEFI 2.10, table 10.6.1.6).
#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "sim/firmware/guid_text.h"
#include "sim/firmware/services/device_path_kinds.h"
#include "sim/firmware/services/device_path_text.h"
#include "sim/firmware/services/text_numbers.h"

namespace sim {
namespace {

using Bytes = std::span<const std::byte>;
constexpr std::size_t kHeaderSize = sizeof(EFI_DEVICE_PATH_PROTOCOL);

template <typename Node>
Node As(Bytes node) {
  Node value;
  std::memcpy(&value, node.data(), sizeof(Node));
  return value;
}

std::u16string Wide(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

// UTF-16 up to its NUL or the end of the bytes.
std::u16string WideText(Bytes bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * 2);
  return text.substr(0, text.find(u'\0'));
}

std::string Ip4(const UINT8 (&address)[4]) {
  return fmt::format("{}.{}.{}.{}", address[0], address[1], address[2], address[3]);
}
std::string Ip6(const UINT8 (&address)[16]) {
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(AF_INET6, address, text, sizeof(text));
  return text;
}
std::string IpProtocol(UINT16 protocol) { return protocol == 6 ? "TCP" : protocol == 17 ? "UDP" : Hex(protocol); }

std::string General(Bytes node) {
  static constexpr const char* kNames[] = {nullptr, "HardwarePath", "AcpiPath", "Msg", "MediaPath", "BbsPath"};
  const auto type = std::to_integer<unsigned>(node[0]);
  const auto subType = std::to_integer<unsigned>(node[1]);
  const std::string data = HexBytes(node.subspan(kHeaderSize));
  const std::string tail = data.empty() ? "" : "," + data;
  return type >= 1 && type <= 5 ? fmt::format("{}({}{})", kNames[type], subType, tail)
                                : fmt::format("Path({},{}{})", type, subType, tail);
}

std::string Pci(Bytes node, DevicePathTextStyle) {
  const auto pci = As<PCI_DEVICE_PATH>(node);
  return fmt::format("Pci(0x{:X},0x{:X})", pci.Device, pci.Function);
}
std::string PcCard(Bytes node, DevicePathTextStyle) {
  return fmt::format("PcCard(0x{:X})", std::to_integer<unsigned>(node[kHeaderSize]));
}
std::string MemoryMapped(Bytes node, DevicePathTextStyle) {
  const auto map = As<MemoryMappedNode>(node);
  return fmt::format("MemoryMapped(0x{:X},0x{:X},0x{:X})", map.memoryType, map.start, map.end);
}
std::string Controller(Bytes node, DevicePathTextStyle) {
  return fmt::format("Ctrl(0x{:X})", +As<CONTROLLER_DEVICE_PATH>(node).ControllerNumber);
}

std::string SasTopology(UINT16 topology) {
  const unsigned more = topology & 0x0F;
  if (more == 0 && (topology & 0x80) == 0) {
    return "NoTopology,0,0,0";
  }
  if (more > 2 || (topology & 0x80) != 0) {
    return Hex(topology) + ",0,0,0";
  }
  return fmt::format("{},{},{},{}", (topology & 0x10) != 0 ? "SATA" : "SAS",
                     (topology & 0x20) != 0 ? "External" : "Internal", (topology & 0x40) != 0 ? "Expanded" : "Direct",
                     more == 1 ? "0" : Hex((topology >> 8) + 1));
}

std::string MessagingShortcut(Bytes node) {
  const EFI_GUID guid = As<VENDOR_DEVICE_PATH>(node).Guid;
  if (const char* name = TerminalName(guid)) {
    return node.size() == sizeof(VENDOR_DEVICE_PATH) ? fmt::format("{}()", name) : "";
  }
  if (guid == kUartFlowControlGuid && node.size() == sizeof(VENDOR_DEVICE_PATH) + 4) {
    const auto control = std::to_integer<unsigned>(node[sizeof(VENDOR_DEVICE_PATH)]);
    return control <= 2 ? fmt::format("UartFlowCtrl({})", kFlowControlNames[control]) : "";
  }
  if (guid == kSasGuid && node.size() == sizeof(SasNode)) {
    const auto sas = As<SasNode>(node);
    return fmt::format("SAS(0x{:X},0x{:X},0x{:X},{},0x{:X})", +sas.address, +sas.lun, +sas.relativeTargetPort,
                       SasTopology(sas.topology), +sas.reserved);
  }
  return "";
}

std::string Vendor(Bytes node, DevicePathTextStyle style) {
  const auto type = std::to_integer<unsigned>(node[0]);
  if (type == MESSAGING_DEVICE_PATH && style.allowShortcuts) {
    if (const std::string shortcut = MessagingShortcut(node); !shortcut.empty()) {
      return shortcut;
    }
  }
  const std::string data = HexBytes(node.subspan(sizeof(VENDOR_DEVICE_PATH)));
  const char* name = type == HARDWARE_DEVICE_PATH ? "VenHw" : type == MESSAGING_DEVICE_PATH ? "VenMsg" : "VenMedia";
  return fmt::format("{}({}{}{})", name, GuidText(As<VENDOR_DEVICE_PATH>(node).Guid), data.empty() ? "" : ",", data);
}

std::string Acpi(Bytes node, DevicePathTextStyle style) {
  const auto acpi = As<ACPI_HID_DEVICE_PATH>(node);
  const auto known = std::find_if(std::begin(kAcpiNames), std::end(kAcpiNames),
                                  [&](const AcpiName& each) { return each.hid == acpi.HID; });
  if (style.allowShortcuts && known != std::end(kAcpiNames)) {
    return fmt::format("{}(0x{:X})", known->name, +acpi.UID);
  }
  return fmt::format("Acpi({},0x{:X})", EisaText(acpi.HID).value_or(Hex(acpi.HID)), +acpi.UID);
}

std::string Atapi(Bytes node, DevicePathTextStyle style) {
  const auto ata = As<ATAPI_DEVICE_PATH>(node);
  if (style.displayOnly) {
    return fmt::format("Ata(0x{:X})", +ata.Lun);
  }
  return fmt::format("Ata({},{},0x{:X})", ata.PrimarySecondary == 1 ? "Secondary" : "Primary",
                     ata.SlaveMaster == 1 ? "Slave" : "Master", +ata.Lun);
}
std::string Scsi(Bytes node, DevicePathTextStyle) {
  const auto scsi = As<SCSI_DEVICE_PATH>(node);
  return fmt::format("Scsi(0x{:X},0x{:X})", +scsi.Pun, +scsi.Lun);
}
std::string Fibre(Bytes node, DevicePathTextStyle) {
  const auto fibre = As<FIBRECHANNEL_DEVICE_PATH>(node);
  return fmt::format("Fibre(0x{:X},0x{:X})", As<std::uint64_t>(std::as_bytes(std::span(fibre.WWN))),
                     As<std::uint64_t>(std::as_bytes(std::span(fibre.Lun))));
}
std::string FibreEx(Bytes node, DevicePathTextStyle) {
  const auto fibre = As<FIBRECHANNEL_DEVICE_PATH>(node);
  return fmt::format("FibreEx(0x{},0x{})", HexBytes(std::as_bytes(std::span(fibre.WWN))),
                     HexBytes(std::as_bytes(std::span(fibre.Lun))));
}
std::string Iscsi(Bytes node, DevicePathTextStyle) {
  const auto iscsi = As<ISCSI_DEVICE_PATH>(node);
  const Bytes tail = node.subspan(sizeof(ISCSI_DEVICE_PATH));
  std::string name(reinterpret_cast<const char*>(tail.data()), tail.size());
  name = name.substr(0, name.find('\0'));
  const auto digest = [&](unsigned shift) { return ((iscsi.LoginOption >> shift) & 2) != 0 ? "CRC32C" : "None"; };
  const char* authentication = (iscsi.LoginOption & 0x800) != 0    ? "None"
                               : (iscsi.LoginOption & 0x1000) != 0 ? "CHAP_UNI"
                                                                   : "CHAP_BI";
  return fmt::format("iSCSI({},0x{:X},0x{},{},{},{},{})", Quoted(name), +iscsi.TargetPortalGroupTag,
                     HexBytes(std::as_bytes(std::span(iscsi.Lun))), digest(0), digest(2), authentication,
                     iscsi.NetworkProtocol == 0 ? "TCP" : "reserved");
}
std::string Usb(Bytes node, DevicePathTextStyle) {
  const auto usb = As<USB_DEVICE_PATH>(node);
  return fmt::format("USB(0x{:X},0x{:X})", usb.ParentPortNumber, usb.InterfaceNumber);
}

std::string UsbClass(Bytes node, DevicePathTextStyle style) {
  const auto usb = As<USB_CLASS_DEVICE_PATH>(node);
  const std::string ids = fmt::format("0x{:X},0x{:X}", +usb.VendorId, +usb.ProductId);
  for (const UsbClassName& each : kUsbClassNames) {
    if (!style.allowShortcuts || each.deviceClass != usb.DeviceClass) {
      continue;
    }
    if (each.subClass == kAnySubClass) {
      return fmt::format("{}({},0x{:X},0x{:X})", each.name, ids, usb.DeviceSubClass, usb.DeviceProtocol);
    }
    if (each.subClass == usb.DeviceSubClass) {
      return fmt::format("{}({},0x{:X})", each.name, ids, usb.DeviceProtocol);
    }
  }
  return fmt::format("UsbClass({},0x{:X},0x{:X},0x{:X})", ids, usb.DeviceClass, usb.DeviceSubClass, usb.DeviceProtocol);
}

std::string Unit(Bytes node, DevicePathTextStyle) {
  return fmt::format("Unit(0x{:X})", As<DEVICE_LOGICAL_UNIT_DEVICE_PATH>(node).Lun);
}
std::string Sata(Bytes node, DevicePathTextStyle) {
  const auto sata = As<SATA_DEVICE_PATH>(node);
  return fmt::format("Sata(0x{:X},0x{:X},0x{:X})", +sata.HBAPortNumber, +sata.PortMultiplierPortNumber, +sata.Lun);
}

std::string SasEx(Bytes node, DevicePathTextStyle) {
  const auto sas = As<SASEX_DEVICE_PATH>(node);
  return fmt::format("SasEx(0x{},0x{},0x{:X},{})", HexBytes(std::as_bytes(std::span(sas.SasAddress))),
                     HexBytes(std::as_bytes(std::span(sas.Lun))), +sas.RelativeTargetPort,
                     SasTopology(sas.DeviceTopology));
}

std::string Nvme(Bytes node, DevicePathTextStyle) {
  const auto nvme = As<NVME_NAMESPACE_DEVICE_PATH>(node);
  std::string eui;
  for (int shift = 56; shift >= 0; shift -= 8) {
    eui += (eui.empty() ? "" : "-") + HexDigits((nvme.NamespaceUuid >> shift) & 0xFF, 2);
  }
  return fmt::format("NVMe(0x{:X},{})", +nvme.NamespaceId, eui);
}

std::string Mac(Bytes node, DevicePathTextStyle) {
  const auto mac = As<MAC_ADDR_DEVICE_PATH>(node);
  const std::size_t size = mac.IfType <= 1 ? 6 : sizeof(mac.MacAddress);
  return fmt::format("MAC({},0x{:X})", HexBytes(std::as_bytes(std::span(mac.MacAddress)).first(size)), mac.IfType);
}

std::string IPv4(Bytes node, DevicePathTextStyle style) {
  const auto ip = As<IPv4_DEVICE_PATH>(node);
  if (style.displayOnly) {
    return fmt::format("IPv4({})", Ip4(ip.RemoteIpAddress));
  }
  return fmt::format("IPv4({},{},{},{},{},{})", Ip4(ip.RemoteIpAddress), IpProtocol(ip.Protocol),
                     ip.StaticIpAddress != 0 ? "Static" : "DHCP", Ip4(ip.LocalIpAddress), Ip4(ip.GatewayIpAddress),
                     Ip4(ip.SubnetMask));
}

std::string IPv6(Bytes node, DevicePathTextStyle style) {
  const auto ip = As<IPv6_DEVICE_PATH>(node);
  if (style.displayOnly) {
    return fmt::format("IPv6({})", Ip6(ip.RemoteIpAddress));
  }
  const std::string origin = ip.IpAddressOrigin < 3 ? kIp6Origins[ip.IpAddressOrigin] : Hex(ip.IpAddressOrigin);
  return fmt::format("IPv6({},{},{},{},0x{:X},{})", Ip6(ip.RemoteIpAddress), IpProtocol(ip.Protocol), origin,
                     Ip6(ip.LocalIpAddress), ip.PrefixLength, Ip6(ip.GatewayIpAddress));
}

std::string Uart(Bytes node, DevicePathTextStyle) {
  const auto uart = As<UART_DEVICE_PATH>(node);
  const std::string baud = uart.BaudRate == 0 ? "DEFAULT" : std::to_string(uart.BaudRate);
  const std::string bits = uart.DataBits == 0 ? "DEFAULT" : std::to_string(uart.DataBits);
  const std::string parity = uart.Parity < 6 ? std::string(1, kParityLetters[uart.Parity]) : Hex(uart.Parity);
  const std::string stop = uart.StopBits < 4 ? kStopBits[uart.StopBits] : Hex(uart.StopBits);
  return fmt::format("Uart({},{},{},{})", baud, bits, parity, stop);
}

std::string HardDrive(Bytes node, DevicePathTextStyle style) {
  const auto disk = As<HARDDRIVE_DEVICE_PATH>(node);
  std::string text = fmt::format("HD({},", +disk.PartitionNumber);
  if (disk.SignatureType == 1) {
    text += "MBR,0x" + HexDigits(As<std::uint32_t>(std::as_bytes(std::span(disk.Signature))), 8);
  } else if (disk.SignatureType == 2) {
    text += "GPT," + GuidText(As<EFI_GUID>(std::as_bytes(std::span(disk.Signature))));
  } else {
    text += fmt::format("{},0", disk.SignatureType);
  }
  return style.displayOnly ? text + ")"
                           : fmt::format("{},0x{:X},0x{:X})", text, +disk.PartitionStart, +disk.PartitionSize);
}
std::string CdRom(Bytes node, DevicePathTextStyle style) {
  const auto cd = As<CDROM_DEVICE_PATH>(node);
  return style.displayOnly
             ? fmt::format("CDROM(0x{:X})", +cd.BootEntry)
             : fmt::format("CDROM(0x{:X},0x{:X},0x{:X})", +cd.BootEntry, +cd.PartitionStart, +cd.PartitionSize);
}

// Media protocol, firmware volume and firmware file nodes: a name and a GUID.
std::string Named(Bytes node, DevicePathTextStyle) {
  const auto subType = std::to_integer<unsigned>(node[1]);
  const char* name = subType == MEDIA_PROTOCOL_DP ? "Media" : subType == MEDIA_PIWG_FW_FILE_DP ? "FvFile" : "Fv";
  return fmt::format("{}({})", name, GuidText(As<VENDOR_DEVICE_PATH>(node).Guid));
}

std::string Bbs(Bytes node, DevicePathTextStyle style) {
  const auto bbs = As<BBS_BBS_DEVICE_PATH>(node);
  const Bytes tail = node.subspan(offsetof(BBS_BBS_DEVICE_PATH, String));
  std::string name(reinterpret_cast<const char*>(tail.data()), tail.size());
  name = name.substr(0, name.find('\0'));
  const auto* type = BbsTypeName(bbs.DeviceType);
  const std::string flags = style.displayOnly ? "" : "," + Hex(bbs.StatusFlag);
  return fmt::format("BBS({},{}{})", type != nullptr ? type : Hex(bbs.DeviceType), Quoted(name), flags);
}

struct NodeWriter {
  std::uint8_t type;
  std::uint8_t subType;
  std::size_t least;  // bytes that the node must have, its header included
  std::string (*write)(Bytes node, DevicePathTextStyle style);
};
constexpr NodeWriter kWriters[] = {
    {HARDWARE_DEVICE_PATH, HW_PCI_DP, sizeof(PCI_DEVICE_PATH), Pci},
    {HARDWARE_DEVICE_PATH, HW_PCCARD_DP, kHeaderSize + 1, PcCard},
    {HARDWARE_DEVICE_PATH, HW_MEMMAP_DP, sizeof(MemoryMappedNode), MemoryMapped},
    {HARDWARE_DEVICE_PATH, HW_VENDOR_DP, sizeof(VENDOR_DEVICE_PATH), Vendor},
    {HARDWARE_DEVICE_PATH, HW_CONTROLLER_DP, sizeof(CONTROLLER_DEVICE_PATH), Controller},
    {ACPI_DEVICE_PATH, ACPI_DP, sizeof(ACPI_HID_DEVICE_PATH), Acpi},
    {MESSAGING_DEVICE_PATH, MSG_ATAPI_DP, sizeof(ATAPI_DEVICE_PATH), Atapi},
    {MESSAGING_DEVICE_PATH, MSG_SCSI_DP, sizeof(SCSI_DEVICE_PATH), Scsi},
    {MESSAGING_DEVICE_PATH, MSG_FIBRECHANNEL_DP, sizeof(FIBRECHANNEL_DEVICE_PATH), Fibre},
    {MESSAGING_DEVICE_PATH, MSG_FIBRECHANNELEX_DP, sizeof(FIBRECHANNEL_DEVICE_PATH), FibreEx},
    {MESSAGING_DEVICE_PATH, MSG_ISCSI_DP, sizeof(ISCSI_DEVICE_PATH), Iscsi},
    {MESSAGING_DEVICE_PATH, MSG_USB_DP, sizeof(USB_DEVICE_PATH), Usb},
    {MESSAGING_DEVICE_PATH, MSG_VENDOR_DP, sizeof(VENDOR_DEVICE_PATH), Vendor},
    {MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP, sizeof(MAC_ADDR_DEVICE_PATH), Mac},
    {MESSAGING_DEVICE_PATH, MSG_IPV4_DP, sizeof(IPv4_DEVICE_PATH), IPv4},
    {MESSAGING_DEVICE_PATH, MSG_IPV6_DP, sizeof(IPv6_DEVICE_PATH), IPv6},
    {MESSAGING_DEVICE_PATH, MSG_UART_DP, sizeof(UART_DEVICE_PATH), Uart},
    {MESSAGING_DEVICE_PATH, MSG_USB_CLASS_DP, sizeof(USB_CLASS_DEVICE_PATH), UsbClass},
    {MESSAGING_DEVICE_PATH, MSG_LOGICAL_UNIT_DP, sizeof(DEVICE_LOGICAL_UNIT_DEVICE_PATH), Unit},
    {MESSAGING_DEVICE_PATH, MSG_SATA_DP, sizeof(SATA_DEVICE_PATH), Sata},
    {MESSAGING_DEVICE_PATH, MSG_SASEX_DP, sizeof(SASEX_DEVICE_PATH), SasEx},
    {MESSAGING_DEVICE_PATH, MSG_NVME_NAMESPACE_DP, sizeof(NVME_NAMESPACE_DEVICE_PATH), Nvme},
    {MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, sizeof(HARDDRIVE_DEVICE_PATH), HardDrive},
    {MEDIA_DEVICE_PATH, MEDIA_CDROM_DP, sizeof(CDROM_DEVICE_PATH), CdRom},
    {MEDIA_DEVICE_PATH, MEDIA_VENDOR_DP, sizeof(VENDOR_DEVICE_PATH), Vendor},
    {MEDIA_DEVICE_PATH, MEDIA_PROTOCOL_DP, sizeof(VENDOR_DEVICE_PATH), Named},
    {MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_FILE_DP, sizeof(VENDOR_DEVICE_PATH), Named},
    {MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_VOL_DP, sizeof(VENDOR_DEVICE_PATH), Named},
    {BBS_DEVICE_PATH, BBS_BBS_DP, sizeof(BBS_BBS_DEVICE_PATH), Bbs},
};

// The two kinds whose text holds UTF-16 of the node itself.
std::optional<std::u16string> WideNode(Bytes node) {
  const auto type = std::to_integer<unsigned>(node[0]);
  const auto subType = std::to_integer<unsigned>(node[1]);
  if (type == MEDIA_DEVICE_PATH && subType == MEDIA_FILEPATH_DP) {
    return WideText(node.subspan(kHeaderSize));
  }
  if (type == MESSAGING_DEVICE_PATH && subType == MSG_USB_WWID_DP && node.size() >= sizeof(USB_WWID_DEVICE_PATH)) {
    const auto usb = As<USB_WWID_DEVICE_PATH>(node);
    const std::string front =
        fmt::format("UsbWwid(0x{:X},0x{:X},0x{:X},\"", +usb.VendorId, +usb.ProductId, +usb.InterfaceNumber);
    return Wide(front) + WideText(node.subspan(sizeof(USB_WWID_DEVICE_PATH))) + u"\")";
  }
  return std::nullopt;
}

}  // namespace

std::u16string DeviceNodeText(Bytes node, DevicePathTextStyle style) {
  if (node.size() < kHeaderSize) {
    return {};
  }
  if (auto text = WideNode(node)) {
    return *text;
  }
  const auto writer = std::find_if(std::begin(kWriters), std::end(kWriters), [&](const NodeWriter& each) {
    return std::byte{each.type} == node[0] && std::byte{each.subType} == node[1] && node.size() >= each.least;
  });
  return Wide(writer != std::end(kWriters) ? writer->write(node, style) : General(node));
}

std::optional<std::u16string> DevicePathText(Bytes path, DevicePathTextStyle style) {
  std::u16string text;
  bool first = true;
  for (;;) {
    if (path.size() < kHeaderSize) {
      return std::nullopt;
    }
    const auto header = As<EFI_DEVICE_PATH_PROTOCOL>(path);
    const std::size_t length = header.Length[0] | (std::size_t{header.Length[1]} << 8);
    if (length < kHeaderSize || length > path.size()) {
      return std::nullopt;
    }
    const bool end = header.Type == END_DEVICE_PATH_TYPE;
    if (end && header.SubType == END_ENTIRE_DEVICE_PATH_SUBTYPE) {
      return text;
    }
    text += end ? u"," : (first ? u"" : u"/") + DeviceNodeText(path.first(length), style);
    first = end;
    path = path.subspan(length);
  }
}

}  // namespace sim

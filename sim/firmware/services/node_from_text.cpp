// The readers of device path nodes, one a name. A reader takes its arguments in order; a missing one counts as zero
// where the standard makes it optional, a wrong one refuses the whole node.
#include "sim/firmware/services/node_from_text.h"

#include <algorithm>

#include "sim/firmware/services/device_path_kinds.h"

namespace sim {
namespace {

constexpr std::size_t kHeaderSize = sizeof(EFI_DEVICE_PATH_PROTOCOL);

}  // namespace

std::vector<std::byte> RawNode(std::uint8_t type, std::uint8_t subType, const void* body, std::size_t size) {
  std::vector<std::byte> node(kHeaderSize + size);
  const std::size_t length = node.size();
  const std::uint8_t header[] = {type, subType, static_cast<std::uint8_t>(length),
                                 static_cast<std::uint8_t>(length >> 8)};
  std::memcpy(node.data(), header, kHeaderSize);
  if (size != 0) {
    std::memcpy(node.data() + kHeaderSize, body, size);
  }
  return node;
}

std::vector<std::byte> RawNode(std::uint8_t type, std::uint8_t subType, const std::string& body) {
  return RawNode(type, subType, body.data(), body.size());
}

namespace {

template <typename T>
std::vector<std::byte> Record(std::uint8_t type, std::uint8_t subType, const T& record) {
  return RawNode(type, subType, reinterpret_cast<const std::byte*>(&record) + kHeaderSize, sizeof(T) - kHeaderSize);
}
std::vector<std::byte> VendorNode(std::uint8_t type, std::uint8_t subType, const EFI_GUID& guid,
                                  const std::string& data = "") {
  return RawNode(type, subType, std::string(reinterpret_cast<const char*>(&guid), sizeof(guid)) + data);
}

std::vector<std::byte> Generic(Arguments& in, const NodeReader& reader) {
  const auto type = reader.type != 0 ? reader.type : static_cast<std::uint8_t>(in.Number(0x7E));
  const auto subType = static_cast<std::uint8_t>(in.Number(0xFF));
  return RawNode(type, subType, in.HexData());
}
std::vector<std::byte> Pci(Arguments& in, const NodeReader&) {
  PCI_DEVICE_PATH node{};
  in.Number(node.Device);
  in.Number(node.Function);
  return Record(HARDWARE_DEVICE_PATH, HW_PCI_DP, node);
}
std::vector<std::byte> OneByte(Arguments& in, const NodeReader& reader) {
  const auto value = static_cast<char>(in.Number(0xFF));
  return RawNode(reader.type, reader.subType, std::string(1, value));
}
std::vector<std::byte> MemoryMapped(Arguments& in, const NodeReader&) {
  MemoryMappedNode node{};
  node.memoryType = static_cast<std::uint32_t>(in.Number(0xFFFFFFFF));
  node.start = in.Number();
  node.end = in.Number();
  return Record(HARDWARE_DEVICE_PATH, HW_MEMMAP_DP, node);
}
std::vector<std::byte> Controller(Arguments& in, const NodeReader&) {
  CONTROLLER_DEVICE_PATH node{};
  node.ControllerNumber = static_cast<UINT32>(in.Number(0xFFFFFFFF));
  return Record(HARDWARE_DEVICE_PATH, HW_CONTROLLER_DP, node);
}
std::vector<std::byte> Vendor(Arguments& in, const NodeReader& reader) {
  const EFI_GUID guid = in.Guid();
  return VendorNode(reader.type, reader.subType, guid, in.HexData());
}
std::vector<std::byte> Named(Arguments& in, const NodeReader& reader) {
  return VendorNode(reader.type, reader.subType, in.Guid());
}
std::vector<std::byte> Terminal(Arguments& in, const NodeReader& reader) {
  in.Check(in.Text().empty());
  return VendorNode(MESSAGING_DEVICE_PATH, MSG_VENDOR_DP, kTerminals[reader.detail].guid);
}
std::vector<std::byte> UartFlowControl(Arguments& in, const NodeReader&) {
  const auto control = static_cast<char>(in.Word(kFlowControlNames, 2));
  return VendorNode(MESSAGING_DEVICE_PATH, MSG_VENDOR_DP, kUartFlowControlGuid, std::string{control, 0, 0, 0});
}

std::vector<std::byte> Acpi(Arguments& in, const NodeReader& reader) {
  ACPI_HID_DEVICE_PATH node{};
  node.HID = reader.detail;
  if (reader.detail == 0) {
    const std::string hid = in.Text();
    const auto eisa = EisaFromText(hid);
    const auto number = eisa ? std::optional<std::uint64_t>(*eisa) : NumberFromText(hid, 0xFFFFFFFF);
    in.Check(number.has_value());
    node.HID = static_cast<UINT32>(number.value_or(0));
  }
  node.UID = static_cast<UINT32>(in.Number(0xFFFFFFFF));
  return Record(ACPI_DEVICE_PATH, ACPI_DP, node);
}
std::vector<std::byte> Atapi(Arguments& in, const NodeReader&) {
  static constexpr const char* kChannels[] = {"Primary", "Secondary"};
  static constexpr const char* kDrives[] = {"Master", "Slave"};
  ATAPI_DEVICE_PATH node{};
  node.PrimarySecondary = static_cast<UINT8>(in.Word(kChannels, 1));
  node.SlaveMaster = static_cast<UINT8>(in.Word(kDrives, 1));
  node.Lun = static_cast<UINT16>(in.Number(0xFFFF));
  return Record(MESSAGING_DEVICE_PATH, MSG_ATAPI_DP, node);
}
std::vector<std::byte> Scsi(Arguments& in, const NodeReader&) {
  SCSI_DEVICE_PATH node{};
  node.Pun = static_cast<UINT16>(in.Number(0xFFFF));
  node.Lun = static_cast<UINT16>(in.Number(0xFFFF));
  return Record(MESSAGING_DEVICE_PATH, MSG_SCSI_DP, node);
}
std::vector<std::byte> Fibre(Arguments& in, const NodeReader&) {
  FIBRECHANNEL_DEVICE_PATH node{};
  const std::uint64_t name = in.Number();
  const std::uint64_t lun = in.Number();
  std::memcpy(node.WWN, &name, sizeof(name));
  std::memcpy(node.Lun, &lun, sizeof(lun));
  return Record(MESSAGING_DEVICE_PATH, MSG_FIBRECHANNEL_DP, node);
}
std::vector<std::byte> FibreEx(Arguments& in, const NodeReader&) {
  FIBRECHANNEL_DEVICE_PATH node{};
  in.Fill(node.WWN);
  in.Fill(node.Lun);
  return Record(MESSAGING_DEVICE_PATH, MSG_FIBRECHANNELEX_DP, node);
}
std::vector<std::byte> Iscsi(Arguments& in, const NodeReader&) {
  static constexpr const char* kDigests[] = {"None", "-", "CRC32C"};
  static constexpr const char* kAuthentications[] = {"CHAP_BI", "-", "None", "-", "CHAP_UNI"};
  static constexpr const char* kProtocols[] = {"TCP", "reserved"};
  ISCSI_DEVICE_PATH node{};
  const std::string name = in.Text();
  node.TargetPortalGroupTag = static_cast<UINT16>(in.Number(0xFFFF));
  in.Fill(node.Lun);
  const std::uint64_t header = in.Word(kDigests, 2);
  const std::uint64_t data = in.Word(kDigests, 2);
  node.LoginOption = static_cast<UINT16>(header | data << 2 | in.Word(kAuthentications, 4) << 10);
  node.NetworkProtocol = static_cast<UINT16>(in.Word(kProtocols, 1));
  std::string body(reinterpret_cast<const char*>(&node) + kHeaderSize, sizeof(node) - kHeaderSize);
  return RawNode(MESSAGING_DEVICE_PATH, MSG_ISCSI_DP, body + name);
}
std::vector<std::byte> Usb(Arguments& in, const NodeReader&) {
  USB_DEVICE_PATH node{};
  in.Number(node.ParentPortNumber);
  in.Number(node.InterfaceNumber);
  return Record(MESSAGING_DEVICE_PATH, MSG_USB_DP, node);
}
// detail: 0 for UsbClass itself, otherwise one more than the place in kUsbClassNames.
std::vector<std::byte> UsbClass(Arguments& in, const NodeReader& reader) {
  USB_CLASS_DEVICE_PATH node{};
  node.VendorId = static_cast<UINT16>(in.Number(0xFFFF));
  node.ProductId = static_cast<UINT16>(in.Number(0xFFFF));
  const UsbClassName* known = reader.detail == 0 ? nullptr : &kUsbClassNames[reader.detail - 1];
  node.DeviceClass = known != nullptr ? known->deviceClass : static_cast<UINT8>(in.Number(0xFF));
  const bool fixed = known != nullptr && known->subClass != kAnySubClass;
  node.DeviceSubClass = fixed ? static_cast<UINT8>(known->subClass) : static_cast<UINT8>(in.Number(0xFF));
  in.Number(node.DeviceProtocol);
  return Record(MESSAGING_DEVICE_PATH, MSG_USB_CLASS_DP, node);
}
std::vector<std::byte> Sata(Arguments& in, const NodeReader&) {
  SATA_DEVICE_PATH node{};
  node.HBAPortNumber = static_cast<UINT16>(in.Number(0xFFFF));
  node.PortMultiplierPortNumber = static_cast<UINT16>(in.Number(0xFFFF));
  node.Lun = static_cast<UINT16>(in.Number(0xFFFF));
  return Record(MESSAGING_DEVICE_PATH, MSG_SATA_DP, node);
}

UINT16 SasTopology(Arguments& in) {
  static constexpr const char* kLocations[] = {"Internal", "External"};
  static constexpr const char* kConnections[] = {"Direct", "Expanded"};
  const std::string kind = in.Text();
  const bool known = kind == "SAS" || kind == "SATA";
  const auto number =
      kind.empty() || kind == "NoTopology" ? std::optional<std::uint64_t>(0) : NumberFromText(kind, 0xFFFF);
  const auto location = in.Word(kLocations, 1);
  const auto connection = in.Word(kConnections, 1);
  const auto bay = in.Number(0x100);
  if (!known) {
    in.Check(number.has_value());
    return static_cast<UINT16>(number.value_or(0));
  }
  const std::uint64_t more = bay == 0 ? 1 : 2 | ((bay - 1) << 8);
  return static_cast<UINT16>(more | (kind == "SATA" ? 0x10 : 0) | (location << 5) | (connection << 6));
}
std::vector<std::byte> SasEx(Arguments& in, const NodeReader&) {
  SASEX_DEVICE_PATH node{};
  in.Fill(node.SasAddress);
  in.Fill(node.Lun);
  node.RelativeTargetPort = static_cast<UINT16>(in.Number(0xFFFF));
  node.DeviceTopology = SasTopology(in);
  return Record(MESSAGING_DEVICE_PATH, MSG_SASEX_DP, node);
}
std::vector<std::byte> Sas(Arguments& in, const NodeReader&) {
  SasNode node{};
  node.guid = kSasGuid;
  node.address = in.Number();
  node.lun = in.Number();
  node.relativeTargetPort = static_cast<UINT16>(in.Number(0xFFFF));
  node.topology = SasTopology(in);
  node.reserved = static_cast<UINT32>(in.Number(0xFFFFFFFF));
  return Record(MESSAGING_DEVICE_PATH, MSG_VENDOR_DP, node);
}
std::vector<std::byte> Nvme(Arguments& in, const NodeReader&) {
  NVME_NAMESPACE_DEVICE_PATH node{};
  node.NamespaceId = static_cast<UINT32>(in.Number(0xFFFFFFFF));
  UINT8 eui[8];
  in.Fill(eui);
  std::reverse(std::begin(eui), std::end(eui));
  std::memcpy(&node.NamespaceUuid, eui, sizeof(eui));
  return Record(MESSAGING_DEVICE_PATH, MSG_NVME_NAMESPACE_DP, node);
}
std::vector<std::byte> Mac(Arguments& in, const NodeReader&) {
  MAC_ADDR_DEVICE_PATH node{};
  in.Fill(node.MacAddress);
  in.Number(node.IfType);
  return Record(MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP, node);
}

UINT16 IpProtocol(Arguments& in) {
  const std::string text = in.Text();
  const auto value = text.empty()    ? std::optional<std::uint64_t>(0)
                     : text == "TCP" ? std::optional<std::uint64_t>(6)
                     : text == "UDP" ? std::optional<std::uint64_t>(17)
                                     : NumberFromText(text, 0xFFFF);
  in.Check(value.has_value());
  return static_cast<UINT16>(value.value_or(0));
}
std::vector<std::byte> IPv4(Arguments& in, const NodeReader&) {
  static constexpr const char* kOrigins[] = {"DHCP", "Static"};
  IPv4_DEVICE_PATH node{};
  in.Address(node.RemoteIpAddress);
  node.Protocol = IpProtocol(in);
  node.StaticIpAddress = static_cast<BOOLEAN>(in.Word(kOrigins, 1));
  in.Address(node.LocalIpAddress);
  in.Address(node.GatewayIpAddress);
  in.Address(node.SubnetMask);
  return Record(MESSAGING_DEVICE_PATH, MSG_IPV4_DP, node);
}
std::vector<std::byte> IPv6(Arguments& in, const NodeReader&) {
  IPv6_DEVICE_PATH node{};
  in.Address(node.RemoteIpAddress);
  node.Protocol = IpProtocol(in);
  node.IpAddressOrigin = static_cast<UINT8>(in.Word(kIp6Origins));
  in.Address(node.LocalIpAddress);
  in.Number(node.PrefixLength);
  in.Address(node.GatewayIpAddress);
  return Record(MESSAGING_DEVICE_PATH, MSG_IPV6_DP, node);
}

std::vector<std::byte> Uart(Arguments& in, const NodeReader&) {
  static constexpr const char* kDefault[] = {"DEFAULT"};
  static constexpr const char* kParities[] = {"D", "N", "E", "O", "M", "S"};
  UART_DEVICE_PATH node{};
  node.BaudRate = in.Word(kDefault, ~std::uint64_t{0});
  node.DataBits = static_cast<UINT8>(in.Word(kDefault));
  node.Parity = static_cast<UINT8>(in.Word(kParities));
  // "1" and "2" are words here: one stop bit has the number 1, two have the number 3.
  node.StopBits = static_cast<UINT8>(in.Word(kStopBits));
  return Record(MESSAGING_DEVICE_PATH, MSG_UART_DP, node);
}
std::vector<std::byte> UsbWwid(Arguments& in, const NodeReader&) {
  const auto word = [&in](std::string& body, std::uint64_t value) {
    body.push_back(static_cast<char>(value));
    body.push_back(static_cast<char>(value >> 8));
  };
  const std::uint64_t vendor = in.Number(0xFFFF);
  const std::uint64_t product = in.Number(0xFFFF);
  std::string body;
  word(body, in.Number(0xFFFF));
  word(body, vendor);
  word(body, product);
  for (const char c : in.Text()) {
    word(body, static_cast<unsigned char>(c));
  }
  return RawNode(MESSAGING_DEVICE_PATH, MSG_USB_WWID_DP, body);
}

std::vector<std::byte> HardDrive(Arguments& in, const NodeReader&) {
  static constexpr const char* kTypes[] = {"", "MBR", "GPT"};
  HARDDRIVE_DEVICE_PATH node{};
  node.PartitionNumber = static_cast<UINT32>(in.Number(0xFFFFFFFF));
  node.SignatureType = static_cast<UINT8>(in.Word(kTypes));
  node.MBRType = node.SignatureType;
  if (node.SignatureType == 2) {
    const EFI_GUID guid = in.Guid();
    std::memcpy(node.Signature, &guid, sizeof(guid));
  } else {
    const auto signature = static_cast<UINT32>(in.Number(0xFFFFFFFF));
    std::memcpy(node.Signature, &signature, sizeof(signature));
  }
  node.PartitionStart = in.Number();
  node.PartitionSize = in.Number();
  return Record(MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, node);
}
std::vector<std::byte> CdRom(Arguments& in, const NodeReader&) {
  CDROM_DEVICE_PATH node{};
  node.BootEntry = static_cast<UINT32>(in.Number(0xFFFFFFFF));
  node.PartitionStart = in.Number();
  node.PartitionSize = in.Number();
  return Record(MEDIA_DEVICE_PATH, MEDIA_CDROM_DP, node);
}
std::vector<std::byte> Bbs(Arguments& in, const NodeReader&) {
  const std::string type = in.Text();
  const auto known =
      std::find_if(std::begin(kBbsTypes), std::end(kBbsTypes), [&](const BbsType& each) { return type == each.name; });
  const auto number =
      known != std::end(kBbsTypes) ? std::optional<std::uint64_t>(known->type) : NumberFromText(type, 0xFFFF);
  in.Check(number.has_value());
  const std::string name = in.Text();
  const std::uint64_t flags = in.Number(0xFFFF);
  const auto value = number.value_or(0);
  std::string body{static_cast<char>(value), static_cast<char>(value >> 8), static_cast<char>(flags),
                   static_cast<char>(flags >> 8)};
  return RawNode(BBS_DEVICE_PATH, BBS_BBS_DP, body + name + '\0');
}

constexpr NodeReader kReaders[] = {
    {"Path", Generic},
    {"HardwarePath", Generic, HARDWARE_DEVICE_PATH},
    {"AcpiPath", Generic, ACPI_DEVICE_PATH},
    {"Msg", Generic, MESSAGING_DEVICE_PATH},
    {"MediaPath", Generic, MEDIA_DEVICE_PATH},
    {"BbsPath", Generic, BBS_DEVICE_PATH},
    {"Pci", Pci},
    {"PcCard", OneByte, HARDWARE_DEVICE_PATH, HW_PCCARD_DP},
    {"MemoryMapped", MemoryMapped},
    {"VenHw", Vendor, HARDWARE_DEVICE_PATH, HW_VENDOR_DP},
    {"Ctrl", Controller},
    {"Acpi", Acpi},
    {"Ata", Atapi},
    {"Scsi", Scsi},
    {"Fibre", Fibre},
    {"FibreEx", FibreEx},
    {"iSCSI", Iscsi},
    {"USB", Usb},
    {"VenMsg", Vendor, MESSAGING_DEVICE_PATH, MSG_VENDOR_DP},
    {"UartFlowCtrl", UartFlowControl},
    {"SAS", Sas},
    {"MAC", Mac},
    {"IPv4", IPv4},
    {"IPv6", IPv6},
    {"Uart", Uart},
    {"UsbClass", UsbClass},
    {"UsbWwid", UsbWwid},
    {"Unit", OneByte, MESSAGING_DEVICE_PATH, MSG_LOGICAL_UNIT_DP},
    {"Sata", Sata},
    {"SasEx", SasEx},
    {"NVMe", Nvme},
    {"HD", HardDrive},
    {"CDROM", CdRom},
    {"VenMedia", Vendor, MEDIA_DEVICE_PATH, MEDIA_VENDOR_DP},
    {"Media", Named, MEDIA_DEVICE_PATH, MEDIA_PROTOCOL_DP},
    {"FvFile", Named, MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_FILE_DP},
    {"Fv", Named, MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_VOL_DP},
    {"BBS", Bbs},
};
}  // namespace

std::optional<NodeReader> FindReader(std::string_view name) {
  for (const NodeReader& each : kReaders) {
    if (name == each.name) {
      return each;
    }
  }
  for (const AcpiName& each : kAcpiNames) {
    if (name == each.name) {
      return NodeReader{each.name, Acpi, 0, 0, each.hid};
    }
  }
  for (std::uint32_t i = 0; i < std::size(kUsbClassNames); ++i) {
    if (name == kUsbClassNames[i].name) {
      return NodeReader{kUsbClassNames[i].name, UsbClass, 0, 0, i + 1};
    }
  }
  for (std::uint32_t i = 0; i < std::size(kTerminals); ++i) {
    if (name == kTerminals[i].name) {
      return NodeReader{kTerminals[i].name, Terminal, 0, 0, i};
    }
  }
  return std::nullopt;
}

}  // namespace sim

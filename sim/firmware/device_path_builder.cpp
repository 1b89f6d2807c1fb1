#include "sim/firmware/device_path_builder.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::size_t kHeader = sizeof(EFI_DEVICE_PATH_PROTOCOL);
constexpr std::byte kEndEntire[] = {std::byte{0x7F}, std::byte{0xFF}, std::byte{4}, std::byte{0}};

std::size_t NodeLength(const std::byte* node) {
  return std::to_integer<std::size_t>(node[2]) | std::to_integer<std::size_t>(node[3]) << 8;
}
bool IsEnd(const std::byte* node) { return node[0] == std::byte{END_DEVICE_PATH_TYPE}; }
bool IsEndEntire(const std::byte* node) { return IsEnd(node) && node[1] == std::byte{END_ENTIRE_DEVICE_PATH_SUBTYPE}; }

// Offset of the first node that `stop` accepts; 0 and valid false when the path is malformed.
template <typename Stop>
std::size_t Walk(const EFI_DEVICE_PATH_PROTOCOL* path, std::size_t limit, bool& valid, Stop stop) {
  const auto* bytes = reinterpret_cast<const std::byte*>(path);
  valid = path != nullptr;
  for (std::size_t offset = 0; valid;) {
    if (limit - offset < kHeader || NodeLength(bytes + offset) < kHeader ||
        NodeLength(bytes + offset) > limit - offset) {
      valid = false;
      return 0;
    }
    if (stop(bytes + offset)) {
      return offset;
    }
    offset += NodeLength(bytes + offset);
  }
  return 0;
}

}  // namespace

std::size_t DevicePathSize(const EFI_DEVICE_PATH_PROTOCOL* path, std::size_t limit) {
  bool valid = false;
  const std::size_t end = Walk(path, limit, valid, IsEndEntire);
  return valid ? end + NodeLength(reinterpret_cast<const std::byte*>(path) + end) : 0;
}

std::size_t FirstInstanceSize(const EFI_DEVICE_PATH_PROTOCOL* path, bool& valid) {
  return Walk(path, DevicePath::kMaxSize, valid, IsEnd);
}

DevicePath::DevicePath() : bytes_(std::begin(kEndEntire), std::end(kEndEntire)) {}

DevicePath DevicePath::Copy(const EFI_DEVICE_PATH_PROTOCOL* path, std::size_t limit) {
  DevicePath copy;
  const std::size_t size = DevicePathSize(path, limit);
  if (size != 0) {
    const auto* bytes = reinterpret_cast<const std::byte*>(path);
    copy.bytes_.assign(bytes, bytes + size);
  }
  return copy;
}

DevicePath DevicePath::FromBytes(std::span<const std::byte> bytes) {
  return Copy(reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(bytes.data()), bytes.size());
}

DevicePath& DevicePath::AppendRaw(std::uint8_t type, std::uint8_t subType, std::span<const std::byte> body,
                                  std::span<const std::byte> tail) {
  const std::size_t length = kHeader + body.size() + tail.size();
  std::vector<std::byte> node{std::byte{type}, std::byte{subType}, static_cast<std::byte>(length & 0xFF),
                              static_cast<std::byte>(length >> 8)};
  node.insert(node.end(), body.begin(), body.end());
  node.insert(node.end(), tail.begin(), tail.end());
  bytes_.insert(bytes_.end() - kHeader, node.begin(), node.end());
  return *this;
}

DevicePath& DevicePath::Append(const DevicePath& other) {
  const std::vector<std::byte> nodes(other.bytes_.begin(), other.bytes_.end() - kHeader);
  bytes_.insert(bytes_.end() - kHeader, nodes.begin(), nodes.end());
  return *this;
}

DevicePath& DevicePath::NextInstance(const DevicePath& other) {
  bytes_[bytes_.size() - kHeader + 1] = std::byte{END_INSTANCE_DEVICE_PATH_SUBTYPE};
  bytes_.insert(bytes_.end(), other.bytes_.begin(), other.bytes_.end());
  return *this;
}

DevicePath& DevicePath::Acpi(std::uint32_t hid, std::uint32_t uid) {
  return Append(ACPI_DEVICE_PATH, ACPI_DP, ACPI_HID_DEVICE_PATH{{}, hid, uid});
}
DevicePath& DevicePath::Pci(std::uint8_t device, std::uint8_t function) {
  return Append(HARDWARE_DEVICE_PATH, HW_PCI_DP, PCI_DEVICE_PATH{{}, function, device});
}
DevicePath& DevicePath::Sata(std::uint16_t port, std::uint16_t multiplier, std::uint16_t lun) {
  return Append(MESSAGING_DEVICE_PATH, MSG_SATA_DP, SATA_DEVICE_PATH{{}, port, multiplier, lun});
}
DevicePath& DevicePath::Scsi(std::uint16_t target, std::uint16_t lun) {
  return Append(MESSAGING_DEVICE_PATH, MSG_SCSI_DP, SCSI_DEVICE_PATH{{}, target, lun});
}
DevicePath& DevicePath::Usb(std::uint8_t port, std::uint8_t interface) {
  return Append(MESSAGING_DEVICE_PATH, MSG_USB_DP, USB_DEVICE_PATH{{}, port, interface});
}
DevicePath& DevicePath::Nvme(std::uint32_t nameSpace, std::uint64_t eui64) {
  return Append(MESSAGING_DEVICE_PATH, MSG_NVME_NAMESPACE_DP, NVME_NAMESPACE_DEVICE_PATH{{}, nameSpace, eui64});
}
DevicePath& DevicePath::Mac(std::span<const std::uint8_t> address, std::uint8_t ifType) {
  MAC_ADDR_DEVICE_PATH node{};
  std::copy_n(address.begin(), std::min(address.size(), sizeof(node.MacAddress)), node.MacAddress);
  node.IfType = ifType;
  return Append(MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP, node);
}
DevicePath& DevicePath::IPv4() { return Append(MESSAGING_DEVICE_PATH, MSG_IPV4_DP, IPv4_DEVICE_PATH{}); }
DevicePath& DevicePath::IPv6() { return Append(MESSAGING_DEVICE_PATH, MSG_IPV6_DP, IPv6_DEVICE_PATH{}); }
DevicePath& DevicePath::HardDriveGpt(std::uint32_t number, std::uint64_t start, std::uint64_t size,
                                     const EFI_GUID& id) {
  HARDDRIVE_DEVICE_PATH node{{}, number, start, size, {}, 2, 2};
  std::memcpy(node.Signature, &id, sizeof(id));
  return Append(MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, node);
}
DevicePath& DevicePath::HardDriveMbr(std::uint32_t number, std::uint64_t start, std::uint64_t size,
                                     std::uint32_t signature) {
  HARDDRIVE_DEVICE_PATH node{{}, number, start, size, {}, 1, 1};
  std::memcpy(node.Signature, &signature, sizeof(signature));
  return Append(MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, node);
}
DevicePath& DevicePath::CdRom(std::uint32_t entry, std::uint64_t start, std::uint64_t size) {
  return Append(MEDIA_DEVICE_PATH, MEDIA_CDROM_DP, CDROM_DEVICE_PATH{{}, entry, start, size});
}
DevicePath& DevicePath::File(std::u16string_view name) {
  std::u16string text(name);
  text.push_back(0);
  return AppendRaw(MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP, std::as_bytes(std::span(text)));
}
DevicePath& DevicePath::FirmwareVolume(const EFI_GUID& name) {
  return AppendRaw(MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_VOL_DP, std::as_bytes(std::span(&name, 1)));
}
DevicePath& DevicePath::FirmwareFile(const EFI_GUID& name) {
  return AppendRaw(MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_FILE_DP, std::as_bytes(std::span(&name, 1)));
}
DevicePath& DevicePath::Vendor(std::uint8_t type, const EFI_GUID& guid, std::span<const std::byte> data) {
  const std::uint8_t subType = type == HARDWARE_DEVICE_PATH    ? HW_VENDOR_DP
                               : type == MESSAGING_DEVICE_PATH ? MSG_VENDOR_DP
                                                               : MEDIA_VENDOR_DP;
  return AppendRaw(type, subType, std::as_bytes(std::span(&guid, 1)), data);
}
DevicePath& DevicePath::Uart(std::uint64_t baud, std::uint8_t bits, std::uint8_t parity, std::uint8_t stop) {
  return Append(MESSAGING_DEVICE_PATH, MSG_UART_DP, UART_DEVICE_PATH{{}, 0, baud, bits, parity, stop});
}
DevicePath& DevicePath::Bbs(std::uint16_t deviceType, std::uint16_t status, std::string_view text) {
  std::vector<std::byte> body{static_cast<std::byte>(deviceType & 0xFF), static_cast<std::byte>(deviceType >> 8),
                              static_cast<std::byte>(status & 0xFF), static_cast<std::byte>(status >> 8)};
  const std::string string(text);
  const auto characters = std::as_bytes(std::span(string.c_str(), string.size() + 1));
  return AppendRaw(BBS_DEVICE_PATH, BBS_BBS_DP, body, characters);
}

}  // namespace sim

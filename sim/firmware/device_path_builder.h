// Device paths as values: built node by node from the packed structs of platform/device_path.h.
//   DevicePath().Acpi(0x0A0341D0).Pci(0x1F, 2).Sata(0) - the end node is always there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/device_path.h"

namespace sim {

class DevicePath {
 public:
  DevicePath();  // just an end node
  // Copies a path in memory up to and with its end node; bytes behind `limit` are never read. A malformed path (node
  // shorter than its header, no end within the limit) becomes an empty one.
  static DevicePath Copy(const EFI_DEVICE_PATH_PROTOCOL* path, std::size_t limit = kMaxSize);
  static DevicePath FromBytes(std::span<const std::byte> bytes);

  // Appends one node before the end node. The header's Length is set here: the struct's size plus `tail`.
  template <typename Node>
  DevicePath& Append(std::uint8_t type, std::uint8_t subType, Node node, std::span<const std::byte> tail = {}) {
    static_assert(std::is_trivially_copyable_v<Node>);
    return AppendRaw(type, subType, std::as_bytes(std::span(&node, 1)).subspan(sizeof(EFI_DEVICE_PATH_PROTOCOL)), tail);
  }
  // Appends a node from its bytes behind the header.
  DevicePath& AppendRaw(std::uint8_t type, std::uint8_t subType, std::span<const std::byte> body,
                        std::span<const std::byte> tail = {});
  // Appends all nodes of another path.
  DevicePath& Append(const DevicePath& other);
  // Ends this instance and begins another one (UEFI 2.10, 10.3.1).
  DevicePath& NextInstance(const DevicePath& other);

  DevicePath& Acpi(std::uint32_t hid, std::uint32_t uid = 0);
  DevicePath& Pci(std::uint8_t device, std::uint8_t function);
  DevicePath& Sata(std::uint16_t port, std::uint16_t multiplier = 0xFFFF, std::uint16_t lun = 0);
  DevicePath& Scsi(std::uint16_t target, std::uint16_t lun);
  DevicePath& Usb(std::uint8_t port, std::uint8_t interface);
  DevicePath& Nvme(std::uint32_t nameSpace, std::uint64_t eui64);
  DevicePath& Mac(std::span<const std::uint8_t> address, std::uint8_t ifType = 1);
  DevicePath& IPv4();
  DevicePath& IPv6();
  DevicePath& HardDriveGpt(std::uint32_t number, std::uint64_t start, std::uint64_t size, const EFI_GUID& id);
  DevicePath& HardDriveMbr(std::uint32_t number, std::uint64_t start, std::uint64_t size, std::uint32_t signature);
  DevicePath& CdRom(std::uint32_t entry, std::uint64_t start, std::uint64_t size);
  DevicePath& File(std::u16string_view name);
  DevicePath& FirmwareVolume(const EFI_GUID& name);
  DevicePath& FirmwareFile(const EFI_GUID& name);
  DevicePath& Vendor(std::uint8_t type, const EFI_GUID& guid, std::span<const std::byte> data = {});
  DevicePath& Uart(std::uint64_t baud, std::uint8_t bits, std::uint8_t parity, std::uint8_t stop);
  DevicePath& Bbs(std::uint16_t deviceType, std::uint16_t status, std::string_view text);

  // The bytes with the end node. The pointer form is writable, as interfaces of the standard want it; it stays valid
  // as long as this value is neither changed nor destroyed.
  std::span<const std::byte> Bytes() const { return bytes_; }
  std::size_t Size() const { return bytes_.size(); }
  bool Empty() const { return bytes_.size() == sizeof(EFI_DEVICE_PATH_PROTOCOL); }
  EFI_DEVICE_PATH_PROTOCOL* Get() { return reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL*>(bytes_.data()); }
  const EFI_DEVICE_PATH_PROTOCOL* Get() const {
    return reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(bytes_.data());
  }

  friend bool operator==(const DevicePath&, const DevicePath&) = default;

  static constexpr std::size_t kMaxSize = 64 * 1024;

 private:
  std::vector<std::byte> bytes_;
};

// Size of a path in memory with its end node, multi-instance ones whole; 0 when malformed or longer than `limit`.
std::size_t DevicePathSize(const EFI_DEVICE_PATH_PROTOCOL* path, std::size_t limit = DevicePath::kMaxSize);
// Size of the first instance without the end node behind it; 0 with `valid` false when malformed.
std::size_t FirstInstanceSize(const EFI_DEVICE_PATH_PROTOCOL* path, bool& valid);

}  // namespace sim

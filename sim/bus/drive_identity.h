// What a drive tells about itself: ATA Identify data, SCSI INQUIRY answers, and the disk info protocol over both.
#pragma once

#include <array>

#include "platform/disk_info.h"
#include "sim/bus/device_object.h"
#include "sim/bus/device_tree.h"

namespace sim {

using IdentifyData = std::array<std::byte, 512>;
using InquiryData = std::array<std::byte, 36>;

// ACS-3, IDENTIFY (PACKET) DEVICE: texts padded with blanks and with the bytes of each word swapped; word 76 tells
// Serial ATA speeds, or 0 for a drive on parallel ATA.
[[nodiscard]] IdentifyData MakeIdentifyData(const Drive& drive, bool serialAta);
// SPC-4, 6.6.2: standard INQUIRY data.
[[nodiscard]] InquiryData MakeInquiryData(const Drive& drive);

// The disk info protocol (PI 1.7, volume 5, 18.5) of one drive.
class DiskInfo final : public DeviceObject {
 public:
  // On an ATA bus: Identify data, and the channel and drive (AHCI: port and port multiplier port) of WhichIde.
  static std::shared_ptr<DiskInfo> Ata(const Drive& drive, const EFI_GUID& bus, bool serialAta, UINT32 channel,
                                       UINT32 device);
  // On any other bus: INQUIRY data only; WhichIde is EFI_UNSUPPORTED, Identify EFI_NOT_FOUND.
  static std::shared_ptr<DiskInfo> Scsi(const Drive& drive, const EFI_GUID& bus);

  // On NVMe: Identify answers the 4096 bytes of the controller's identify structure (NVMe 1.4, 5.15.2.2).
  static std::shared_ptr<DiskInfo> Nvme(const Drive& drive);

  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(info_.protocol)}; }

 private:
  explicit DiskInfo(const EFI_GUID& bus);

  static EFI_STATUS EFIAPI Inquiry(EFI_DISK_INFO_PROTOCOL* self, VOID* data, UINT32* size);
  static EFI_STATUS EFIAPI Identify(EFI_DISK_INFO_PROTOCOL* self, VOID* data, UINT32* size);
  static EFI_STATUS EFIAPI SenseData(EFI_DISK_INFO_PROTOCOL* self, VOID* data, UINT32* size, UINT8* number);
  static EFI_STATUS EFIAPI WhichIde(EFI_DISK_INFO_PROTOCOL* self, UINT32* channel, UINT32* device);

  std::vector<std::byte> inquiry_;   // empty: the drive has none
  std::vector<std::byte> identify_;  // empty: the drive has none
  std::optional<std::pair<UINT32, UINT32>> place_;
  Backed<EFI_DISK_INFO_PROTOCOL, DiskInfo> info_;
};

}  // namespace sim

// The identification records, filled from a drive's texts.
#include "sim/bus/drive_identity.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

void PutWord(IdentifyData& data, std::size_t word, std::uint16_t value) {
  data[2 * word] = static_cast<std::byte>(value & 0xFF);
  data[2 * word + 1] = static_cast<std::byte>(value >> 8);
}

// ATA texts hold the first character of each pair in the word's high byte.
void PutAtaText(IdentifyData& data, std::size_t firstWord, std::size_t size, std::string text) {
  text.resize(size, ' ');
  for (std::size_t i = 0; i < size; i += 2) {
    data[2 * firstWord + i] = static_cast<std::byte>(text[i + 1]);
    data[2 * firstWord + i + 1] = static_cast<std::byte>(text[i]);
  }
}

void PutText(InquiryData& data, std::size_t offset, std::size_t size, std::string text) {
  text.resize(size, ' ');
  std::memcpy(data.data() + offset, text.data(), size);
}

EFI_STATUS CopyOut(std::span<const std::byte> from, VOID* data, UINT32* size) {
  if (data == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  if (from.empty()) return EFI_NOT_FOUND;
  if (*size < from.size()) {
    *size = static_cast<UINT32>(from.size());
    return EFI_BUFFER_TOO_SMALL;
  }
  std::memcpy(data, from.data(), from.size());
  *size = static_cast<UINT32>(from.size());
  return EFI_SUCCESS;
}

}  // namespace

IdentifyData MakeIdentifyData(const Drive& drive, bool serialAta) {
  IdentifyData data{};
  const bool packet = drive.kind == DriveKind::CdRom;
  PutWord(data, 0, packet ? 0x8580 : 0x0040);
  PutAtaText(data, 10, 20, drive.serial);
  PutAtaText(data, 23, 8, drive.revision);
  PutAtaText(data, 27, 40, drive.model);
  PutWord(data, 49, 0x0300);                       // LBA and DMA
  PutWord(data, 76, serialAta ? 0x000E : 0x0000);  // generations 1 to 3
  PutWord(data, 80, 0x01F0);                       // ATA/ATAPI-4 to -8
  if (packet || drive.medium.blocks == nullptr) return data;
  const std::uint64_t sectors = drive.medium.blocks->Size() / 512;
  const auto sectors28 = static_cast<std::uint32_t>(std::min<std::uint64_t>(sectors, 0x0FFFFFFF));
  PutWord(data, 60, static_cast<std::uint16_t>(sectors28));
  PutWord(data, 61, static_cast<std::uint16_t>(sectors28 >> 16));
  PutWord(data, 83, 0x4400);  // 48-bit addresses
  for (std::size_t i = 0; i < 4; ++i) PutWord(data, 100 + i, static_cast<std::uint16_t>(sectors >> (16 * i)));
  return data;
}

InquiryData MakeInquiryData(const Drive& drive) {
  InquiryData data{};
  data[0] = drive.kind == DriveKind::CdRom ? std::byte{0x05} : std::byte{0x00};
  data[1] = drive.removable || drive.kind != DriveKind::Disk ? std::byte{0x80} : std::byte{0};
  data[2] = std::byte{0x05};
  data[3] = std::byte{0x02};
  data[4] = std::byte{31};  // bytes that follow this one
  PutText(data, 8, 8, drive.vendor);
  PutText(data, 16, 16, drive.model);
  PutText(data, 32, 4, drive.revision);
  return data;
}

DiskInfo::DiskInfo(const EFI_GUID& bus) {
  info_.object = this;
  info_.protocol = {
      .Interface = bus, .Inquiry = Inquiry, .Identify = Identify, .SenseData = SenseData, .WhichIde = WhichIde};
}

std::shared_ptr<DiskInfo> DiskInfo::Ata(const Drive& drive, const EFI_GUID& bus, bool serialAta, UINT32 channel,
                                        UINT32 device) {
  std::shared_ptr<DiskInfo> info(new DiskInfo(bus));
  const IdentifyData identify = MakeIdentifyData(drive, serialAta);
  info->identify_.assign(identify.begin(), identify.end());
  if (drive.kind == DriveKind::CdRom) {
    const InquiryData inquiry = MakeInquiryData(drive);
    info->inquiry_.assign(inquiry.begin(), inquiry.end());
  }
  info->place_ = {channel, device};
  return info;
}

std::shared_ptr<DiskInfo> DiskInfo::Scsi(const Drive& drive, const EFI_GUID& bus) {
  std::shared_ptr<DiskInfo> info(new DiskInfo(bus));
  const InquiryData inquiry = MakeInquiryData(drive);
  info->inquiry_.assign(inquiry.begin(), inquiry.end());
  return info;
}

std::shared_ptr<DiskInfo> DiskInfo::Nvme(const Drive& drive) {
  std::shared_ptr<DiskInfo> info(new DiskInfo(gEfiDiskInfoNvmeInterfaceGuid));
  info->identify_.resize(4096);
  const auto put = [&](std::size_t offset, std::size_t size, std::string text) {
    text.resize(size, ' ');
    std::memcpy(info->identify_.data() + offset, text.data(), size);
  };
  put(4, 20, drive.serial);
  put(24, 40, drive.model);
  put(64, 8, drive.revision);
  return info;
}

EFI_STATUS EFIAPI DiskInfo::Inquiry(EFI_DISK_INFO_PROTOCOL* self, VOID* data, UINT32* size) {
  return CopyOut(Backed<EFI_DISK_INFO_PROTOCOL, DiskInfo>::From(self).inquiry_, data, size);
}

EFI_STATUS EFIAPI DiskInfo::Identify(EFI_DISK_INFO_PROTOCOL* self, VOID* data, UINT32* size) {
  return CopyOut(Backed<EFI_DISK_INFO_PROTOCOL, DiskInfo>::From(self).identify_, data, size);
}

EFI_STATUS EFIAPI DiskInfo::SenseData(EFI_DISK_INFO_PROTOCOL*, VOID*, UINT32*, UINT8*) { return EFI_NOT_FOUND; }

EFI_STATUS EFIAPI DiskInfo::WhichIde(EFI_DISK_INFO_PROTOCOL* self, UINT32* channel, UINT32* device) {
  const DiskInfo& info = Backed<EFI_DISK_INFO_PROTOCOL, DiskInfo>::From(self);
  if (channel == nullptr || device == nullptr) return EFI_INVALID_PARAMETER;
  if (!info.place_) return EFI_UNSUPPORTED;
  *channel = info.place_->first;
  *device = info.place_->second;
  return EFI_SUCCESS;
}

}  // namespace sim

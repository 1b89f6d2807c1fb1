// Both directions between block sources and the block I/O protocol.
#include "sim/bus/block_device.h"

#include <algorithm>
#include <cstring>

#include "sim/storage/disk_image.h"

namespace sim {
namespace {

constexpr UINT32 kMediaId = 1;
constexpr std::size_t kFolderDiskSize = 1 << 20;

class BlockIoSource final : public BlockSource {
 public:
  explicit BlockIoSource(EFI_BLOCK_IO_PROTOCOL* blockIo)
      : blockIo_(blockIo), mediaId_(blockIo->Media->MediaId), block_(blockIo->Media->BlockSize) {
    size_ = (blockIo->Media->LastBlock + 1) * block_;
  }

  [[nodiscard]] std::uint64_t Size() const override { return size_; }
  [[nodiscard]] std::uint32_t BlockSize() const override { return block_; }

  [[nodiscard]] EFI_STATUS Read(std::uint64_t offset, std::span<std::byte> out) const override {
    if (offset > size_ || out.size() > size_ - offset) return EFI_DEVICE_ERROR;
    if (out.empty()) return EFI_SUCCESS;
    if (offset % block_ == 0 && out.size() % block_ == 0) return ReadBlocks(offset / block_, out);
    const std::uint64_t first = offset / block_;
    const std::uint64_t last = (offset + out.size() - 1) / block_;
    std::vector<std::byte> whole((last - first + 1) * block_);
    if (const EFI_STATUS status = ReadBlocks(first, whole); EFI_ERROR(status)) return status;
    std::memcpy(out.data(), whole.data() + offset % block_, out.size());
    return EFI_SUCCESS;
  }

 private:
  [[nodiscard]] EFI_STATUS ReadBlocks(std::uint64_t block, std::span<std::byte> out) const {
    return blockIo_->ReadBlocks(blockIo_, mediaId_, block, out.size(), out.data());
  }

  EFI_BLOCK_IO_PROTOCOL* blockIo_;
  UINT32 mediaId_;
  std::uint32_t block_;
  std::uint64_t size_;
};

}  // namespace

BlockDevice::BlockDevice(BlockSourcePtr blocks, const BlockDeviceTraits& traits) : blocks_(std::move(blocks)) {
  media_.MediaId = kMediaId;
  media_.RemovableMedia = traits.removable;
  media_.MediaPresent = blocks_ != nullptr;
  media_.LogicalPartition = traits.logicalPartition;
  media_.ReadOnly = TRUE;
  media_.BlockSize = blocks_ != nullptr ? blocks_->BlockSize() : traits.emptyBlockSize;
  media_.LastBlock = blocks_ != nullptr ? blocks_->Size() / blocks_->BlockSize() - 1 : 0;
  media_.LogicalBlocksPerPhysicalBlock = 1;
  blockIo_.object = this;
  blockIo_.protocol = {.Revision = EFI_BLOCK_IO_PROTOCOL_REVISION3,
                       .Media = &media_,
                       .Reset = Reset,
                       .ReadBlocks = ReadBlocks,
                       .WriteBlocks = WriteBlocks,
                       .FlushBlocks = FlushBlocks};
  diskIo_.object = this;
  diskIo_.protocol = {.Revision = EFI_DISK_IO_PROTOCOL_REVISION, .ReadDisk = ReadDisk, .WriteDisk = WriteDisk};
}

BlockDevice::BlockDevice(const Drive& drive)
    : BlockDevice(DriveBlocks(drive), {.removable = drive.removable || drive.kind != DriveKind::Disk,
                                       .emptyBlockSize = drive.kind == DriveKind::CdRom ? 2048U : 512U}) {}

EFI_STATUS BlockDevice::CheckTransfer(UINT32 mediaId, EFI_LBA lba, UINTN size, const VOID* buffer) const {
  if (!media_.MediaPresent) return EFI_NO_MEDIA;
  if (mediaId != media_.MediaId) return EFI_MEDIA_CHANGED;
  if (size == 0) return EFI_SUCCESS;
  if (buffer == nullptr) return EFI_INVALID_PARAMETER;
  if (size % media_.BlockSize != 0) return EFI_BAD_BUFFER_SIZE;
  const std::uint64_t count = size / media_.BlockSize;
  if (lba > media_.LastBlock || count - 1 > media_.LastBlock - lba) return EFI_INVALID_PARAMETER;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI BlockDevice::Reset(EFI_BLOCK_IO_PROTOCOL*, BOOLEAN) { return EFI_SUCCESS; }

EFI_STATUS EFIAPI BlockDevice::ReadBlocks(EFI_BLOCK_IO_PROTOCOL* self, UINT32 mediaId, EFI_LBA lba, UINTN size,
                                          VOID* buffer) {
  const BlockDevice& device = Backed<EFI_BLOCK_IO_PROTOCOL, BlockDevice>::From(self);
  if (const EFI_STATUS status = device.CheckTransfer(mediaId, lba, size, buffer); EFI_ERROR(status)) return status;
  return device.blocks_->Read(lba * device.media_.BlockSize, {static_cast<std::byte*>(buffer), size});
}

EFI_STATUS EFIAPI BlockDevice::WriteBlocks(EFI_BLOCK_IO_PROTOCOL* self, UINT32 mediaId, EFI_LBA lba, UINTN size,
                                           const VOID* buffer) {
  const BlockDevice& device = Backed<EFI_BLOCK_IO_PROTOCOL, BlockDevice>::From(self);
  if (const EFI_STATUS status = device.CheckTransfer(mediaId, lba, size, buffer); EFI_ERROR(status)) return status;
  return EFI_WRITE_PROTECTED;
}

EFI_STATUS EFIAPI BlockDevice::FlushBlocks(EFI_BLOCK_IO_PROTOCOL* self) {
  return Backed<EFI_BLOCK_IO_PROTOCOL, BlockDevice>::From(self).media_.MediaPresent ? EFI_SUCCESS : EFI_NO_MEDIA;
}

EFI_STATUS BlockDevice::CheckBytes(UINT32 mediaId, UINT64 offset, UINTN size, const VOID* buffer) const {
  if (!media_.MediaPresent) return EFI_NO_MEDIA;
  if (mediaId != media_.MediaId) return EFI_MEDIA_CHANGED;
  if (buffer == nullptr && size != 0) return EFI_INVALID_PARAMETER;
  const std::uint64_t end = blocks_->Size();
  return offset > end || size > end - offset ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
}

EFI_STATUS EFIAPI BlockDevice::ReadDisk(EFI_DISK_IO_PROTOCOL* self, UINT32 mediaId, UINT64 offset, UINTN size,
                                        VOID* buffer) {
  const BlockDevice& device = Backed<EFI_DISK_IO_PROTOCOL, BlockDevice>::From(self);
  const EFI_STATUS status = device.CheckBytes(mediaId, offset, size, buffer);
  if (EFI_ERROR(status) || size == 0) return status;
  return device.blocks_->Read(offset, {static_cast<std::byte*>(buffer), size});
}

EFI_STATUS EFIAPI BlockDevice::WriteDisk(EFI_DISK_IO_PROTOCOL* self, UINT32 mediaId, UINT64 offset, UINTN size,
                                         const VOID* buffer) {
  const BlockDevice& device = Backed<EFI_DISK_IO_PROTOCOL, BlockDevice>::From(self);
  const EFI_STATUS status = device.CheckBytes(mediaId, offset, size, buffer);
  return EFI_ERROR(status) || size == 0 ? status : EFI_WRITE_PROTECTED;
}

BlockSourcePtr MakeBlockIoSource(EFI_BLOCK_IO_PROTOCOL* blockIo) {
  const EFI_BLOCK_IO_MEDIA& media = *blockIo->Media;
  if (!media.MediaPresent || media.BlockSize == 0 || media.LastBlock >= UINT64_MAX / media.BlockSize) return nullptr;
  return std::make_shared<BlockIoSource>(blockIo);
}

BlockSourcePtr DriveBlocks(const Drive& drive) {
  if (drive.medium.blocks != nullptr || drive.medium.folder.empty()) return drive.medium.blocks;
  return MakeMemoryDisk(std::vector<std::byte>(kFolderDiskSize));
}

}  // namespace sim

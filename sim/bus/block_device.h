// Block I/O and disk I/O (UEFI 2.10, 13.9 and 13.7) over a block source, and the other way round: a block source over
// block I/O, by which partitions and file systems are read through the protocol like any driver's.
#pragma once

#include "platform/block_io.h"
#include "platform/disk_io.h"
#include "sim/bus/device_object.h"
#include "sim/bus/device_tree.h"

namespace sim {

struct BlockDeviceTraits {
  bool removable = false;
  bool logicalPartition = false;
  std::uint32_t emptyBlockSize = 512;  // of a drive without medium
};

class BlockDevice final : public DeviceObject {
 public:
  // A drive; `blocks` null: without medium. Nothing can be written: the media say read-only.
  BlockDevice(BlockSourcePtr blocks, const BlockDeviceTraits& traits);
  explicit BlockDevice(const Drive& drive);

  [[nodiscard]] std::vector<Interface> Interfaces() override {
    return {InterfaceOf(blockIo_.protocol), InterfaceOf(diskIo_.protocol)};
  }

 private:
  static EFI_STATUS EFIAPI Reset(EFI_BLOCK_IO_PROTOCOL* self, BOOLEAN extended);
  static EFI_STATUS EFIAPI ReadBlocks(EFI_BLOCK_IO_PROTOCOL* self, UINT32 mediaId, EFI_LBA lba, UINTN size,
                                      VOID* buffer);
  static EFI_STATUS EFIAPI WriteBlocks(EFI_BLOCK_IO_PROTOCOL* self, UINT32 mediaId, EFI_LBA lba, UINTN size,
                                       const VOID* buffer);
  static EFI_STATUS EFIAPI FlushBlocks(EFI_BLOCK_IO_PROTOCOL* self);
  static EFI_STATUS EFIAPI ReadDisk(EFI_DISK_IO_PROTOCOL* self, UINT32 mediaId, UINT64 offset, UINTN size,
                                    VOID* buffer);
  static EFI_STATUS EFIAPI WriteDisk(EFI_DISK_IO_PROTOCOL* self, UINT32 mediaId, UINT64 offset, UINTN size,
                                     const VOID* buffer);

  [[nodiscard]] EFI_STATUS CheckTransfer(UINT32 mediaId, EFI_LBA lba, UINTN size, const VOID* buffer) const;
  [[nodiscard]] EFI_STATUS CheckBytes(UINT32 mediaId, UINT64 offset, UINTN size, const VOID* buffer) const;

  BlockSourcePtr blocks_;
  EFI_BLOCK_IO_MEDIA media_{};
  Backed<EFI_BLOCK_IO_PROTOCOL, BlockDevice> blockIo_;
  Backed<EFI_DISK_IO_PROTOCOL, BlockDevice> diskIo_;
};

// Reads through a block I/O interface, which has to stay installed as long as the source lives. Null without medium.
[[nodiscard]] BlockSourcePtr MakeBlockIoSource(EFI_BLOCK_IO_PROTOCOL* blockIo);

// What a drive's block I/O shows: its image, or for a folder of the host a blank disk of 1 MiB.
[[nodiscard]] BlockSourcePtr DriveBlocks(const Drive& drive);

}  // namespace sim

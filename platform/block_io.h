// The block I/O protocol (UEFI 2.10, 13.9): a disk, a removable medium or one of their partitions.
#pragma once

#include "platform/uefi_base.h"

inline constexpr UINT64 EFI_BLOCK_IO_PROTOCOL_REVISION = 0x00010000;
inline constexpr UINT64 EFI_BLOCK_IO_PROTOCOL_REVISION2 = 0x00020001;
inline constexpr UINT64 EFI_BLOCK_IO_PROTOCOL_REVISION3 = 0x0002001F;

struct EFI_BLOCK_IO_MEDIA {
  UINT32 MediaId;  // changes with the medium
  BOOLEAN RemovableMedia;
  BOOLEAN MediaPresent;
  BOOLEAN LogicalPartition;  // the blocks are a part of another device
  BOOLEAN ReadOnly;
  BOOLEAN WriteCaching;
  UINT32 BlockSize;  // in bytes
  UINT32 IoAlign;    // a power of two; 0 and 1: no requirement
  EFI_LBA LastBlock;
  EFI_LBA LowestAlignedLba;                 // from revision 2 on
  UINT32 LogicalBlocksPerPhysicalBlock;     // from revision 2 on
  UINT32 OptimalTransferLengthGranularity;  // from revision 3 on
};
static_assert(offsetof(EFI_BLOCK_IO_MEDIA, BlockSize) == 12);
static_assert(offsetof(EFI_BLOCK_IO_MEDIA, LastBlock) == 24);
static_assert(offsetof(EFI_BLOCK_IO_MEDIA, OptimalTransferLengthGranularity) == 44);
static_assert(sizeof(EFI_BLOCK_IO_MEDIA) == 48);

// Buffer sizes are in bytes, a multiple of the block size.
struct EFI_BLOCK_IO_PROTOCOL {
  UINT64 Revision;
  EFI_BLOCK_IO_MEDIA* Media;
  EFI_STATUS(EFIAPI* Reset)(EFI_BLOCK_IO_PROTOCOL* This, BOOLEAN ExtendedVerification);
  EFI_STATUS(EFIAPI* ReadBlocks)
  (EFI_BLOCK_IO_PROTOCOL* This, UINT32 MediaId, EFI_LBA Lba, UINTN BufferSize, VOID* Buffer);
  EFI_STATUS(EFIAPI* WriteBlocks)
  (EFI_BLOCK_IO_PROTOCOL* This, UINT32 MediaId, EFI_LBA Lba, UINTN BufferSize, const VOID* Buffer);
  EFI_STATUS(EFIAPI* FlushBlocks)(EFI_BLOCK_IO_PROTOCOL* This);
};
static_assert(offsetof(EFI_BLOCK_IO_PROTOCOL, Media) == 8);
static_assert(offsetof(EFI_BLOCK_IO_PROTOCOL, ReadBlocks) == 24);
static_assert(sizeof(EFI_BLOCK_IO_PROTOCOL) == 48);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>{
    0x964E5B21, 0x6459, 0x11D2, {0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

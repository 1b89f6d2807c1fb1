// The firmware vendor's extension of the Legacy BIOS protocol: entries added to and removed from the BBS table.
#pragma once

#include "platform/legacy_bios.h"

struct LEGACY_BIOS_EXT_PROTOCOL {
  VOID* Reserved1;  // two members of the CSM's own
  VOID* Reserved2;
  // Index is in/out: 0xFF on entry asks for the first free entry, on success it names the one taken.
  EFI_STATUS(EFIAPI* InsertBbsEntry)(LEGACY_BIOS_EXT_PROTOCOL* This, BBS_TABLE* Entry, UINT8* Index);
  EFI_STATUS(EFIAPI* DeleteBbsEntry)(LEGACY_BIOS_EXT_PROTOCOL* This, UINT8 Index);
};
static_assert(offsetof(LEGACY_BIOS_EXT_PROTOCOL, InsertBbsEntry) == 16);
static_assert(offsetof(LEGACY_BIOS_EXT_PROTOCOL, DeleteBbsEntry) == 24);

template <>
inline constexpr EFI_GUID ProtocolGuid<LEGACY_BIOS_EXT_PROTOCOL>{
    0x8E008510, 0x9BB1, 0x457D, {0x9F, 0x70, 0x89, 0x7A, 0xBA, 0x86, 0x5D, 0xB9}};

// Two hand-off blocks of the platform: its processors, and where its riser is. The records begin with the block's own
// header, so that their offsets are those of the block.
#pragma once

#include "platform/hob.h"

#pragma pack(push, 1)

// Fields called Reserved are the platform's own.
struct VEYRA_MEMORY_HOB {
  EFI_HOB_GUID_TYPE Header;
  UINT8 Reserved24[30];
  UINT8 SocketCount;  // processor sockets
};
static_assert(offsetof(VEYRA_MEMORY_HOB, SocketCount) == 54);

// A riser spreads its slot over three root ports.
struct VEYRA_BRIGHTMERE_TYPE_HOB {
  EFI_HOB_GUID_TYPE Header;
  UINT8 Reserved24[2];
  UINT8 Slot1;  // kBrightmereInSlot1: the riser is in slot 1
  UINT8 Reserved27;
  UINT8 Slot2;  // else kBrightmereInSlot2: it is in slot 2
};
static_assert(offsetof(VEYRA_BRIGHTMERE_TYPE_HOB, Slot1) == 26);
static_assert(offsetof(VEYRA_BRIGHTMERE_TYPE_HOB, Slot2) == 28);

#pragma pack(pop)

inline constexpr UINT8 kBrightmereInSlot1 = 1;
inline constexpr UINT8 kBrightmereInSlot2 = 2;

inline constexpr EFI_GUID gVeyraMemoryHobGuid{
    0x230381F9, 0xCF93, 0x4D4F, {0xAD, 0x80, 0x1B, 0x53, 0x22, 0x8E, 0xBD, 0xE8}};
inline constexpr EFI_GUID gVeyraBrightmereTypeHobGuid{
    0xB7B3BD0D, 0x28AA, 0x4E2E, {0xBA, 0x5D, 0xA5, 0xAF, 0x76, 0xA9, 0xC8, 0x88}};

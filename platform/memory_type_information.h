// Memory type information: how many pages of each type a boot needs, kept so that the memory map stays stable.
#pragma once

#include "platform/boot_services.h"

struct EFI_MEMORY_TYPE_INFORMATION {
  UINT32 Type;           // EFI_MEMORY_TYPE; EfiMaxMemoryType ends the list
  UINT32 NumberOfPages;  // of 4 KiB
};
static_assert(sizeof(EFI_MEMORY_TYPE_INFORMATION) == 8);

inline constexpr EFI_GUID gEfiMemoryTypeInformationGuid{
    0x4C19049F, 0x4137, 0x4DD3, {0x9C, 0x10, 0x8B, 0x97, 0xA8, 0x3F, 0xFD, 0xFA}};
inline constexpr CHAR16 kMemoryTypeInformationName[] = u"MemoryTypeInformation";
inline constexpr CHAR16 kPreviousMemoryTypeInformationName[] = u"PreviousMemoryTypeInformation";

// Hand-off blocks (PI 1.7, volume 3, chapter 5): what the memory initialisation phase tells the later ones.
#pragma once

#include "platform/boot_services.h"

inline constexpr UINT16 EFI_HOB_TYPE_HANDOFF = 0x0001;
inline constexpr UINT16 EFI_HOB_TYPE_MEMORY_ALLOCATION = 0x0002;
inline constexpr UINT16 EFI_HOB_TYPE_RESOURCE_DESCRIPTOR = 0x0003;
inline constexpr UINT16 EFI_HOB_TYPE_GUID_EXTENSION = 0x0004;
inline constexpr UINT16 EFI_HOB_TYPE_FV = 0x0005;
inline constexpr UINT16 EFI_HOB_TYPE_CPU = 0x0006;
inline constexpr UINT16 EFI_HOB_TYPE_UNUSED = 0xFFFE;
inline constexpr UINT16 EFI_HOB_TYPE_END_OF_HOB_LIST = 0xFFFF;

using EFI_BOOT_MODE = UINT32;
inline constexpr EFI_BOOT_MODE BOOT_WITH_FULL_CONFIGURATION = 0x00;
inline constexpr EFI_BOOT_MODE BOOT_ON_S4_RESUME = 0x05;
inline constexpr EFI_BOOT_MODE BOOT_ON_S3_RESUME = 0x11;
inline constexpr EFI_BOOT_MODE BOOT_ON_FLASH_UPDATE = 0x12;
inline constexpr EFI_BOOT_MODE BOOT_IN_RECOVERY_MODE = 0x20;

struct EFI_HOB_GENERIC_HEADER {
  UINT16 HobType;
  UINT16 HobLength;  // of the block with this header, a multiple of 8
  UINT32 Reserved;
};
static_assert(sizeof(EFI_HOB_GENERIC_HEADER) == 8);

struct EFI_HOB_HANDOFF_INFO_TABLE {
  EFI_HOB_GENERIC_HEADER Header;
  UINT32 Version;
  EFI_BOOT_MODE BootMode;
  EFI_PHYSICAL_ADDRESS EfiMemoryTop;
  EFI_PHYSICAL_ADDRESS EfiMemoryBottom;
  EFI_PHYSICAL_ADDRESS EfiFreeMemoryTop;
  EFI_PHYSICAL_ADDRESS EfiFreeMemoryBottom;
  EFI_PHYSICAL_ADDRESS EfiEndOfHobList;
};
static_assert(sizeof(EFI_HOB_HANDOFF_INFO_TABLE) == 56);

struct EFI_HOB_RESOURCE_DESCRIPTOR {
  EFI_HOB_GENERIC_HEADER Header;
  EFI_GUID Owner;
  UINT32 ResourceType;
  UINT32 ResourceAttribute;
  EFI_PHYSICAL_ADDRESS PhysicalStart;
  UINT64 ResourceLength;
};
static_assert(sizeof(EFI_HOB_RESOURCE_DESCRIPTOR) == 48);

// The data follows; its size is HobLength - 24.
struct EFI_HOB_GUID_TYPE {
  EFI_HOB_GENERIC_HEADER Header;
  EFI_GUID Name;
};
static_assert(sizeof(EFI_HOB_GUID_TYPE) == 24);

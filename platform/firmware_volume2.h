// The firmware volume 2 protocol (PI 1.7, volume 3, 3.4).
#pragma once

#include "platform/uefi_base.h"

using EFI_FV_ATTRIBUTES = UINT64;
using EFI_FV_FILETYPE = UINT8;
using EFI_FV_FILE_ATTRIBUTES = UINT32;
using EFI_SECTION_TYPE = UINT8;

inline constexpr EFI_SECTION_TYPE EFI_SECTION_ALL = 0x00;
inline constexpr EFI_SECTION_TYPE EFI_SECTION_PE32 = 0x10;
inline constexpr EFI_SECTION_TYPE EFI_SECTION_USER_INTERFACE = 0x15;
inline constexpr EFI_FV_FILETYPE EFI_FV_FILETYPE_ALL = 0x00;
inline constexpr EFI_FV_FILETYPE EFI_FV_FILETYPE_DRIVER = 0x07;
inline constexpr EFI_FV_FILETYPE EFI_FV_FILETYPE_APPLICATION = 0x09;

struct EFI_FV_WRITE_FILE_DATA;

struct EFI_FIRMWARE_VOLUME2_PROTOCOL {
  EFI_STATUS(EFIAPI* GetVolumeAttributes)(const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, EFI_FV_ATTRIBUTES* FvAttributes);
  EFI_STATUS(EFIAPI* SetVolumeAttributes)(const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, EFI_FV_ATTRIBUTES* FvAttributes);
  EFI_STATUS(EFIAPI* ReadFile)
  (const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, const EFI_GUID* NameGuid, VOID** Buffer, UINTN* BufferSize,
   EFI_FV_FILETYPE* FoundType, EFI_FV_FILE_ATTRIBUTES* FileAttributes, UINT32* AuthenticationStatus);
  EFI_STATUS(EFIAPI* ReadSection)
  (const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, const EFI_GUID* NameGuid, EFI_SECTION_TYPE SectionType,
   UINTN SectionInstance, VOID** Buffer, UINTN* BufferSize, UINT32* AuthenticationStatus);
  EFI_STATUS(EFIAPI* WriteFile)
  (const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, UINT32 NumberOfFiles, UINT32 WritePolicy,
   EFI_FV_WRITE_FILE_DATA* FileData);
  EFI_STATUS(EFIAPI* GetNextFile)
  (const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, VOID* Key, EFI_FV_FILETYPE* FileType, EFI_GUID* NameGuid,
   EFI_FV_FILE_ATTRIBUTES* Attributes, UINTN* Size);
  UINT32 KeySize;
  EFI_HANDLE ParentHandle;
  EFI_STATUS(EFIAPI* GetInfo)
  (const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, const EFI_GUID* InformationType, UINTN* BufferSize, VOID* Buffer);
  EFI_STATUS(EFIAPI* SetInfo)
  (const EFI_FIRMWARE_VOLUME2_PROTOCOL* This, const EFI_GUID* InformationType, UINTN BufferSize, const VOID* Buffer);
};
static_assert(offsetof(EFI_FIRMWARE_VOLUME2_PROTOCOL, ReadSection) == 24);
static_assert(offsetof(EFI_FIRMWARE_VOLUME2_PROTOCOL, ParentHandle) == 56);
static_assert(sizeof(EFI_FIRMWARE_VOLUME2_PROTOCOL) == 80);

template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_FIRMWARE_VOLUME2_PROTOCOL>{
    0x220E73B6, 0x6BDB, 0x4413, {0x84, 0x05, 0xB9, 0x74, 0xB1, 0x08, 0x61, 0x9A}};

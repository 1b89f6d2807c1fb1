// The component name protocols (UEFI 2.10, 11.5): readable names of drivers and of the controllers they manage.
// Names belong to the driver that returns them.
#pragma once

#include "platform/uefi_base.h"

struct EFI_COMPONENT_NAME2_PROTOCOL {
  EFI_STATUS(EFIAPI* GetDriverName)
  (EFI_COMPONENT_NAME2_PROTOCOL* This, const CHAR8* Language, CHAR16** DriverName);
  EFI_STATUS(EFIAPI* GetControllerName)
  (EFI_COMPONENT_NAME2_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE ChildHandle, const CHAR8* Language,
   CHAR16** ControllerName);
  CHAR8* SupportedLanguages;  // RFC 4646 codes, separated by semicolons
};
static_assert(offsetof(EFI_COMPONENT_NAME2_PROTOCOL, SupportedLanguages) == 16);
static_assert(sizeof(EFI_COMPONENT_NAME2_PROTOCOL) == 24);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_COMPONENT_NAME2_PROTOCOL>{
    0x6A7A5CFF, 0xE8D9, 0x4F70, {0xBA, 0xDA, 0x75, 0xAB, 0x30, 0x25, 0xCE, 0x14}};

// The older form (EFI 1.10); it differs only in its language codes.
struct EFI_COMPONENT_NAME_PROTOCOL {
  EFI_STATUS(EFIAPI* GetDriverName)
  (EFI_COMPONENT_NAME_PROTOCOL* This, const CHAR8* Language, CHAR16** DriverName);
  EFI_STATUS(EFIAPI* GetControllerName)
  (EFI_COMPONENT_NAME_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE ChildHandle, const CHAR8* Language,
   CHAR16** ControllerName);
  CHAR8* SupportedLanguages;  // three-letter ISO 639-2 codes, not separated
};
static_assert(offsetof(EFI_COMPONENT_NAME_PROTOCOL, SupportedLanguages) == 16);
static_assert(sizeof(EFI_COMPONENT_NAME_PROTOCOL) == 24);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_COMPONENT_NAME_PROTOCOL>{
    0x107A772C, 0xD5E1, 0x11D4, {0x9A, 0x46, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};

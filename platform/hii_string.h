// The HII string protocol (UEFI 2.10, 34.3).
#pragma once

#include "platform/hii_package_list.h"

struct EFI_FONT_INFO;

struct EFI_HII_STRING_PROTOCOL {
  EFI_STATUS(EFIAPI* NewString)
  (const EFI_HII_STRING_PROTOCOL* This, EFI_HII_HANDLE PackageList, EFI_STRING_ID* StringId, const CHAR8* Language,
   const CHAR16* LanguageName, const CHAR16* String, const EFI_FONT_INFO* StringFontInfo);
  EFI_STATUS(EFIAPI* GetString)
  (const EFI_HII_STRING_PROTOCOL* This, const CHAR8* Language, EFI_HII_HANDLE PackageList, EFI_STRING_ID StringId,
   CHAR16* String, UINTN* StringSize, EFI_FONT_INFO** StringFontInfo);
  EFI_STATUS(EFIAPI* SetString)
  (const EFI_HII_STRING_PROTOCOL* This, EFI_HII_HANDLE PackageList, EFI_STRING_ID StringId, const CHAR8* Language,
   const CHAR16* String, const EFI_FONT_INFO* StringFontInfo);
  EFI_STATUS(EFIAPI* GetLanguages)
  (const EFI_HII_STRING_PROTOCOL* This, EFI_HII_HANDLE PackageList, CHAR8* Languages, UINTN* LanguagesSize);
  EFI_STATUS(EFIAPI* GetSecondaryLanguages)
  (const EFI_HII_STRING_PROTOCOL* This, EFI_HII_HANDLE PackageList, const CHAR8* PrimaryLanguage,
   CHAR8* SecondaryLanguages, UINTN* SecondaryLanguagesSize);
};
static_assert(sizeof(EFI_HII_STRING_PROTOCOL) == 40);

template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_HII_STRING_PROTOCOL>{
    0x0FD96974, 0x23AA, 0x4CDC, {0xB9, 0xCB, 0x98, 0xD1, 0x77, 0x50, 0x32, 0x2A}};

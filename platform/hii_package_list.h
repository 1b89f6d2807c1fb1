// HII package lists (UEFI 2.10, 33.3): binary layouts of the string packages that the driver carries.
#pragma once

#include "platform/uefi_base.h"

using EFI_HII_HANDLE = VOID*;
using EFI_STRING_ID = UINT16;
using EFI_STRING = CHAR16*;

#pragma pack(push, 1)
struct EFI_HII_PACKAGE_LIST_HEADER {
  EFI_GUID PackageListGuid;
  UINT32 PackageLength;  // of the whole list, this header included
};
static_assert(sizeof(EFI_HII_PACKAGE_LIST_HEADER) == 20);

struct EFI_HII_PACKAGE_HEADER {
  UINT32 LengthAndType;  // bits 23:0 length with this header, bits 31:24 package type
};
static_assert(sizeof(EFI_HII_PACKAGE_HEADER) == 4);

struct EFI_HII_STRING_PACKAGE_HDR {
  EFI_HII_PACKAGE_HEADER Header;
  UINT32 HdrSize;           // bytes of this header, the language text included
  UINT32 StringInfoOffset;  // offset of the first string block
  CHAR16 LanguageWindow[16];
  EFI_STRING_ID LanguageName;  // string id of the language's printable name
  CHAR8 Language[1];           // RFC 4646 language, NUL-terminated, of any length
};
static_assert(offsetof(EFI_HII_STRING_PACKAGE_HDR, LanguageName) == 44);
static_assert(offsetof(EFI_HII_STRING_PACKAGE_HDR, Language) == 46);
#pragma pack(pop)

inline constexpr UINT8 EFI_HII_PACKAGE_TYPE_ALL = 0x00;
inline constexpr UINT8 EFI_HII_PACKAGE_TYPE_GUID = 0x01;
inline constexpr UINT8 EFI_HII_PACKAGE_FORMS = 0x02;
inline constexpr UINT8 EFI_HII_PACKAGE_STRINGS = 0x04;
inline constexpr UINT8 EFI_HII_PACKAGE_FONTS = 0x05;
inline constexpr UINT8 EFI_HII_PACKAGE_IMAGES = 0x06;
inline constexpr UINT8 EFI_HII_PACKAGE_SIMPLE_FONTS = 0x07;
inline constexpr UINT8 EFI_HII_PACKAGE_DEVICE_PATH = 0x08;
inline constexpr UINT8 EFI_HII_PACKAGE_KEYBOARD_LAYOUT = 0x09;
inline constexpr UINT8 EFI_HII_PACKAGE_ANIMATIONS = 0x0A;
inline constexpr UINT8 EFI_HII_PACKAGE_END = 0xDF;

inline constexpr UINT8 EFI_HII_SIBT_END = 0x00;
inline constexpr UINT8 EFI_HII_SIBT_STRING_SCSU = 0x10;
inline constexpr UINT8 EFI_HII_SIBT_STRING_SCSU_FONT = 0x11;
inline constexpr UINT8 EFI_HII_SIBT_STRINGS_SCSU = 0x12;
inline constexpr UINT8 EFI_HII_SIBT_STRINGS_SCSU_FONT = 0x13;
inline constexpr UINT8 EFI_HII_SIBT_STRING_UCS2 = 0x14;
inline constexpr UINT8 EFI_HII_SIBT_STRING_UCS2_FONT = 0x15;
inline constexpr UINT8 EFI_HII_SIBT_STRINGS_UCS2 = 0x16;
inline constexpr UINT8 EFI_HII_SIBT_STRINGS_UCS2_FONT = 0x17;
inline constexpr UINT8 EFI_HII_SIBT_DUPLICATE = 0x20;
inline constexpr UINT8 EFI_HII_SIBT_SKIP2 = 0x21;
inline constexpr UINT8 EFI_HII_SIBT_SKIP1 = 0x22;
inline constexpr UINT8 EFI_HII_SIBT_EXT1 = 0x30;
inline constexpr UINT8 EFI_HII_SIBT_EXT2 = 0x31;
inline constexpr UINT8 EFI_HII_SIBT_EXT4 = 0x32;
inline constexpr UINT8 EFI_HII_SIBT_FONT = 0x40;

// Installed on an image handle when the image's resource section holds a package list (UEFI 2.10, 7.4.1).
inline constexpr EFI_GUID gEfiHiiPackageListProtocolGuid{
    0x6A1EE763, 0xD47A, 0x43B4, {0xAA, 0xBE, 0xEF, 0x1D, 0xE2, 0xAB, 0x56, 0xFC}};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_HII_PACKAGE_LIST_HEADER> = gEfiHiiPackageListProtocolGuid;

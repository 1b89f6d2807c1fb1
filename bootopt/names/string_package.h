// The driver's strings as an HII package list (UEFI 2.10, 33.3), laid out by the compiler.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "bootopt/names/driver_strings.h"
#include "platform/hii_package_list.h"

namespace bds {

inline constexpr EFI_GUID kStringPackageListGuid{
    0x8F4B8F82, 0x9B91, 0x4028, {0x86, 0xE6, 0xF4, 0xDB, 0x7D, 0x4C, 0x1D, 0xFF}};
inline constexpr char kStringPackageLanguage[] = "en-US";

constexpr UINTN StringBlockSize(const char* text) {
  UINTN length = 0;
  while (text[length] != 0) {
    ++length;
  }
  return 1 + (length + 1) * sizeof(CHAR16);  // block type, text, NUL
}

inline constexpr UINTN kStringPackageHeaderSize =
    offsetof(EFI_HII_STRING_PACKAGE_HDR, Language) + sizeof(kStringPackageLanguage);
inline constexpr UINTN kStringPackageSize = [] {
  UINTN size = kStringPackageHeaderSize + 1;  // the end block
  for (const char* text : kDriverStrings) {
    size += StringBlockSize(text);
  }
  return size;
}();
inline constexpr UINTN kStringPackageListSize =
    sizeof(EFI_HII_PACKAGE_LIST_HEADER) + kStringPackageSize + sizeof(EFI_HII_PACKAGE_HEADER);

// The bytes themselves. The symbol has a plain name because the image's resource directory, assembler text, points at
// them.
alignas(8) extern const std::array<std::byte, kStringPackageListSize> kStringPackageList asm("kStringPackageList");

inline std::span<const std::byte> StringPackageList() { return kStringPackageList; }

}  // namespace bds

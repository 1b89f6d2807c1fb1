// The Unicode collation protocol (UEFI 2.10, 12.10); two GUIDs name the same interface, the older one is used here.
#pragma once

#include "platform/uefi_base.h"

struct EFI_UNICODE_COLLATION_PROTOCOL {
  INTN(EFIAPI* StriColl)(EFI_UNICODE_COLLATION_PROTOCOL* This, const CHAR16* s1, const CHAR16* s2);
  BOOLEAN(EFIAPI* MetaiMatch)(EFI_UNICODE_COLLATION_PROTOCOL* This, const CHAR16* String, const CHAR16* Pattern);
  VOID(EFIAPI* StrLwr)(EFI_UNICODE_COLLATION_PROTOCOL* This, CHAR16* String);
  VOID(EFIAPI* StrUpr)(EFI_UNICODE_COLLATION_PROTOCOL* This, CHAR16* String);
  VOID(EFIAPI* FatToStr)(EFI_UNICODE_COLLATION_PROTOCOL* This, UINTN FatSize, const CHAR8* Fat, CHAR16* String);
  BOOLEAN(EFIAPI* StrToFat)(EFI_UNICODE_COLLATION_PROTOCOL* This, const CHAR16* String, UINTN FatSize, CHAR8* Fat);
  CHAR8* SupportedLanguages;
};
static_assert(offsetof(EFI_UNICODE_COLLATION_PROTOCOL, SupportedLanguages) == 48);

template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_UNICODE_COLLATION_PROTOCOL>{
    0x1D85CD7F, 0xF43D, 0x11D2, {0x9A, 0x0C, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};
inline constexpr EFI_GUID gEfiUnicodeCollation2ProtocolGuid{
    0xA4C751FC, 0x23AE, 0x4C3E, {0x92, 0xE9, 0x49, 0x64, 0xCF, 0x63, 0xF3, 0x49}};

// The form browser 2 protocol (UEFI 2.10, 35.6): shows a driver's configuration form.
#pragma once

#include "platform/hii_package_list.h"

struct EFI_SCREEN_DESCRIPTOR;
using EFI_BROWSER_ACTION_REQUEST = UINTN;

struct EFI_FORM_BROWSER2_PROTOCOL {
  EFI_STATUS(EFIAPI* SendForm)
  (const EFI_FORM_BROWSER2_PROTOCOL* This, EFI_HII_HANDLE* Handles, UINTN HandleCount, const EFI_GUID* FormSetGuid,
   UINT16 FormId, const EFI_SCREEN_DESCRIPTOR* ScreenDimensions, EFI_BROWSER_ACTION_REQUEST* ActionRequest);
  EFI_STATUS(EFIAPI* BrowserCallback)
  (const EFI_FORM_BROWSER2_PROTOCOL* This, UINTN* ResultsDataSize, CHAR16* ResultsData, BOOLEAN RetrieveData,
   const EFI_GUID* VariableGuid, const CHAR16* VariableName);
};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_FORM_BROWSER2_PROTOCOL>{
    0xB9D4C360, 0xBCFB, 0x4F9B, {0x92, 0x98, 0x53, 0xC1, 0x36, 0x98, 0x22, 0x58}};

// The form set that a driver's health form belongs to (UEFI 2.10, 11.10).
inline constexpr EFI_GUID gEfiDriverHealthFormsetGuid{
    0xF22FC20C, 0x8CF4, 0x45EB, {0x8E, 0x06, 0xAD, 0x4E, 0x50, 0xB9, 0x5D, 0xD3}};

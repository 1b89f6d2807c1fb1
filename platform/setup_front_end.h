// The firmware's setup front end: boot menu, setup and, normally, the boot itself.
#pragma once

#include "platform/uefi_base.h"

struct SETUP_FRONT_END_PROTOCOL {
  EFI_STATUS(EFIAPI* Run)();                             // runs the menu, setup and the boot; returns when it is left
  EFI_STATUS(EFIAPI* ShowMessage)(const CHAR16* Text);   // one line of text for whoever is at the console
  VOID* Reserved3;
  VOID* Reserved4;
  VOID* Reserved5;
  EFI_STATUS(EFIAPI* LeaveQuietBoot)();                  // makes messages visible during a quiet boot
};
static_assert(offsetof(SETUP_FRONT_END_PROTOCOL, ShowMessage) == 8);
static_assert(offsetof(SETUP_FRONT_END_PROTOCOL, LeaveQuietBoot) == 40);

template <>
inline constexpr EFI_GUID ProtocolGuid<SETUP_FRONT_END_PROTOCOL>{
    0x8A91B1E1, 0x56C7, 0x4ADC, {0xAB, 0xEB, 0x1C, 0x2C, 0xA1, 0x72, 0x9E, 0xFF}};

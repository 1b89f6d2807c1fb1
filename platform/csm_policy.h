// How the CSM asks the platform about option ROMs, and the mark of its thunk drivers.
#pragma once

#include "platform/uefi_base.h"

struct EFI_PCI_IO_PROTOCOL;

// What the CSM hands to the option ROM hook.
struct CSM_OPTION_ROM_CONTEXT {
  EFI_PCI_IO_PROTOCOL* PciIo;
  UINT8 Flag;  // nonzero: the ROM is about to be dispatched
};
static_assert(offsetof(CSM_OPTION_ROM_CONTEXT, Flag) == 8);

struct CSM_POLICY_HOOK_A {
  EFI_STATUS(EFIAPI* Nothing)();
  EFI_STATUS(EFIAPI* OptionRomHook)(CSM_OPTION_ROM_CONTEXT* Context);
};
static_assert(offsetof(CSM_POLICY_HOOK_A, OptionRomHook) == 8);
template <>
inline constexpr EFI_GUID ProtocolGuid<CSM_POLICY_HOOK_A>{
    0x542D6248, 0x4198, 0x4960, {0x9F, 0x59, 0x23, 0x84, 0x64, 0x6D, 0x63, 0xB4}};

struct CSM_POLICY_HOOK_B {
  EFI_STATUS(EFIAPI* CheckPci)(CSM_POLICY_HOOK_B* This, EFI_HANDLE Controller);
  EFI_STATUS(EFIAPI* OptionRomHook)(CSM_OPTION_ROM_CONTEXT* Context);
};
static_assert(offsetof(CSM_POLICY_HOOK_B, OptionRomHook) == 8);
template <>
inline constexpr EFI_GUID ProtocolGuid<CSM_POLICY_HOOK_B>{
    0xDC14E697, 0x775A, 0x4C3B, {0xA1, 0x1A, 0xED, 0xC3, 0x8E, 0x1B, 0xE3, 0xE6}};

// Carried by the image handle of a driver that runs a legacy option ROM.
inline constexpr EFI_GUID kThunkDriverMarkGuid{
    0x2362EA9C, 0x84E5, 0x4DFF, {0x83, 0xBC, 0xB5, 0xAC, 0xEC, 0xB5, 0x7C, 0xBB}};

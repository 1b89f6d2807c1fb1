// Keyboard input (UEFI 2.10, 12.2 and 12.3).
#pragma once

#include "platform/uefi_base.h"

struct EFI_INPUT_KEY {
  UINT16 ScanCode;
  CHAR16 UnicodeChar;
};
static_assert(sizeof(EFI_INPUT_KEY) == 4);

struct EFI_SIMPLE_TEXT_INPUT_PROTOCOL {
  EFI_STATUS(EFIAPI* Reset)(EFI_SIMPLE_TEXT_INPUT_PROTOCOL* This, BOOLEAN ExtendedVerification);
  EFI_STATUS(EFIAPI* ReadKeyStroke)(EFI_SIMPLE_TEXT_INPUT_PROTOCOL* This, EFI_INPUT_KEY* Key);
  EFI_EVENT WaitForKey;
};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_SIMPLE_TEXT_INPUT_PROTOCOL>{
    0x387477C1, 0x69C7, 0x11D2, {0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

struct EFI_KEY_STATE {
  UINT32 KeyShiftState;
  UINT8 KeyToggleState;
};
static_assert(sizeof(EFI_KEY_STATE) == 8);

struct EFI_KEY_DATA {
  EFI_INPUT_KEY Key;
  EFI_KEY_STATE KeyState;
};
static_assert(sizeof(EFI_KEY_DATA) == 12);

using EFI_KEY_NOTIFY_FUNCTION = EFI_STATUS(EFIAPI*)(EFI_KEY_DATA* KeyData);

struct EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL {
  EFI_STATUS(EFIAPI* Reset)(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL* This, BOOLEAN ExtendedVerification);
  EFI_STATUS(EFIAPI* ReadKeyStrokeEx)(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL* This, EFI_KEY_DATA* KeyData);
  EFI_EVENT WaitForKeyEx;
  EFI_STATUS(EFIAPI* SetState)(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL* This, UINT8* KeyToggleState);
  EFI_STATUS(EFIAPI* RegisterKeyNotify)
  (EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL* This, EFI_KEY_DATA* KeyData, EFI_KEY_NOTIFY_FUNCTION KeyNotificationFunction,
   VOID** NotifyHandle);
  EFI_STATUS(EFIAPI* UnregisterKeyNotify)(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL* This, VOID* NotificationHandle);
};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL>{
    0xDD9E7534, 0x7762, 0x4698, {0x8C, 0x14, 0xF5, 0x85, 0x17, 0xA6, 0x25, 0xAA}};

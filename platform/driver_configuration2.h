// The driver configuration 2 protocol (UEFI 2.10 keeps it for older drivers): options of a controller, set by its
// driver.
#pragma once

#include "platform/uefi_base.h"

enum EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED : UINT32 {
  EfiDriverConfigurationActionNone,
  EfiDriverConfigurationActionStopController,
  EfiDriverConfigurationActionRestartController,
  EfiDriverConfigurationActionRestartPlatform,
  EfiDriverConfigurationActionMaximum,
};

inline constexpr UINT32 EFI_DRIVER_CONFIGURATION_SAFE_DEFAULTS = 0x00000000;
inline constexpr UINT32 EFI_DRIVER_CONFIGURATION_MANUFACTURING_DEFAULTS = 0x00000001;
inline constexpr UINT32 EFI_DRIVER_CONFIGURATION_CUSTOM_DEFAULTS = 0x00000002;
inline constexpr UINT32 EFI_DRIVER_CONFIGURATION_PERFORMANCE_DEFAULTS = 0x00000003;

struct EFI_DRIVER_CONFIGURATION2_PROTOCOL {
  // Talks to the user; Language is one of SupportedLanguages.
  EFI_STATUS(EFIAPI* SetOptions)
  (EFI_DRIVER_CONFIGURATION2_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE ChildHandle, const CHAR8* Language,
   EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED* ActionRequired);
  EFI_STATUS(EFIAPI* OptionsValid)
  (EFI_DRIVER_CONFIGURATION2_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE ChildHandle);
  EFI_STATUS(EFIAPI* ForceDefaults)
  (EFI_DRIVER_CONFIGURATION2_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE ChildHandle, UINT32 DefaultType,
   EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED* ActionRequired);
  CHAR8* SupportedLanguages;  // RFC 4646 codes, separated by semicolons
};
static_assert(offsetof(EFI_DRIVER_CONFIGURATION2_PROTOCOL, ForceDefaults) == 16);
static_assert(offsetof(EFI_DRIVER_CONFIGURATION2_PROTOCOL, SupportedLanguages) == 24);
static_assert(sizeof(EFI_DRIVER_CONFIGURATION2_PROTOCOL) == 32);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DRIVER_CONFIGURATION2_PROTOCOL>{
    0xBFD7DC1D, 0x24F1, 0x40D9, {0x82, 0xE7, 0x2E, 0x09, 0xBB, 0x6B, 0x4E, 0xBE}};

// The protocols by which the boot policy and what came of it are handed on. The interface is a record in both cases.
#pragma once

#include "platform/uefi_base.h"

// FlexBootOrder: the policy that is in force on this boot.
struct FLEXBOOT_ORDER_HEADER;
template <>
inline constexpr EFI_GUID ProtocolGuid<FLEXBOOT_ORDER_HEADER>{
    0xF3B23900, 0xE57B, 0xE56E, {0xFE, 0xE8, 0xE3, 0xE7, 0xC7, 0xDC, 0xDF, 0xBD}};

// Installed when the report of the actual boot order is complete.
struct ACTUAL_BOOT_ORDER;
template <>
inline constexpr EFI_GUID ProtocolGuid<ACTUAL_BOOT_ORDER>{
    0xF3B23900, 0xE57B, 0xF67F, {0xFE, 0xF9, 0xE3, 0xE7, 0xC7, 0xDC, 0xDF, 0xCE}};

// Installed by the platform on a standalone server when the policy on the BMC is no longer current.
inline constexpr EFI_GUID kPolicyStaleSignalGuid{
    0x8873BA17, 0xF982, 0x43A6, {0xA1, 0x26, 0x8B, 0x79, 0xF3, 0xD7, 0x56, 0x4E}};

// Vendor of the policy's variables and of those of the boot order table.
inline constexpr EFI_GUID kPolicyVariablesGuid{
    0x9DAE27E6, 0x9CC9, 0x4972, {0xBC, 0xDB, 0x82, 0x45, 0x73, 0xA2, 0xC2, 0xF6}};
inline constexpr CHAR16 kFlexBootOrderName[] = u"FlexBootOrder";  // the record of the last policy, on managed servers
inline constexpr CHAR16 kOneTimeBootName[] = u"OneTimeBoot";      // UINT8: 1 when the policy is for one boot only
inline constexpr CHAR16 kHavePboName[] = u"HavePBO";              // UINT8: 1 when a policy was obtained on this boot

// The platform's own NVRAM records that the driver reads: sizes and the bytes used.
#pragma once

#include "platform/uefi_base.h"

inline constexpr CHAR16 kSetupName[] = u"Setup";
inline constexpr EFI_GUID kSetupGuid{0xEC87D643, 0xEBA4, 0x4BB5, {0xA1, 0xE5, 0x3F, 0x3E, 0x36, 0xB2, 0x0D, 0xA9}};
inline constexpr UINTN kSetupSize = 167;
inline constexpr UINTN kSetupDriverHealthCheck = 1;     // 0: controllers' health is not asked for
inline constexpr UINTN kSetupHealthInQuietBoot = 2;     // nonzero: health messages show in a quiet boot
inline constexpr UINTN kSetupOptionRomPolicy = 130;     // six bytes: switch, network, serial bus, storage, display, other
inline constexpr UINTN kSetupOptionRomPolicySize = 6;
inline constexpr UINTN kSetupStrictGroupOrder = 157;    // 0: strict
inline constexpr UINTN kSetupEfiBootOptionsEnable = 160;  // 0 off, 1 on, 2 switched on because a policy file exists
inline constexpr UINTN kSetupUefiMode = 161;            // nonzero: UEFI boot mode
inline constexpr UINTN kSetupStbuMode = 163;            // nonzero: STBU mode

inline constexpr CHAR16 kVeyraNvramDataName[] = u"VeyraNVRAMData";
inline constexpr EFI_GUID kVeyraNvramDataGuid{
    0x77DE3127, 0x9564, 0x4500, {0xB4, 0xB5, 0x65, 0x68, 0x21, 0xB3, 0x72, 0x32}};
inline constexpr UINTN kVeyraNvramDataSize = 280;
inline constexpr UINTN kVeyraBootMode = 0;  // 2: UEFI devices only; 3: legacy devices only

inline constexpr CHAR16 kFrontEndSetupName[] = u"NUVKUISetup";
inline constexpr EFI_GUID kFrontEndSetupGuid{
    0xC811FA38, 0x42C8, 0x4579, {0xA9, 0xBB, 0x60, 0xE9, 0x4E, 0xDD, 0xFB, 0x34}};
inline constexpr UINTN kFrontEndSetupSize = 81;
inline constexpr UINTN kFrontEndQuietBoot = 80;

// The boot menu's hot-key request and the BMC's request for setup.
inline constexpr CHAR16 kBootFlowName[] = u"BootFlow";
inline constexpr EFI_GUID kBootFlowGuid{0xEF152FB4, 0x7B2F, 0x427D, {0xBD, 0xB4, 0x7E, 0x0A, 0x05, 0x82, 0x6E, 0x64}};

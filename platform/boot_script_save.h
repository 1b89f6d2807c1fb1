// The protocol that records the script replayed on resume from S3 (PI 1.7, volume 5). The driver only needs to
// know whether it is there, so the interface stays opaque.
#pragma once

#include "platform/uefi_base.h"

inline constexpr EFI_GUID gEfiBootScriptSaveProtocolGuid{
    0xE857CAF6, 0xC046, 0x45DC, {0xBE, 0x3F, 0xEE, 0x07, 0x65, 0xFB, 0xA8, 0x87}};

// The boot-script save protocol of the S3 resume path; only located here, never called.
#pragma once

#include "platform/uefi_base.h"

inline constexpr EFI_GUID gEfiBootScriptSaveProtocolGuid{
    0xE857CAF6, 0xC046, 0x45DC, {0xBE, 0x3F, 0xEE, 0x07, 0x65, 0xFB, 0xA8, 0x87}};

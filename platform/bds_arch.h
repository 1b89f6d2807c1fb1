// The BDS architectural protocol (PI 1.7, volume 2, 12.2): what the DXE core calls when it has dispatched all it can.
#pragma once

#include "platform/uefi_base.h"

struct EFI_BDS_ARCH_PROTOCOL {
  VOID(EFIAPI* Entry)(EFI_BDS_ARCH_PROTOCOL* This);
};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_BDS_ARCH_PROTOCOL>{
    0x665E3FF6, 0x46CC, 0x11D4, {0x9A, 0x38, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};

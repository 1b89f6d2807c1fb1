// The ACPI S3 save protocol: asked once, at the end of DXE, to record what a resume needs.
#pragma once

#include "platform/uefi_base.h"

struct EFI_ACPI_S3_SAVE_PROTOCOL {
  EFI_STATUS(EFIAPI* GetLegacyMemorySize)(EFI_ACPI_S3_SAVE_PROTOCOL* This, UINTN* Size);
  EFI_STATUS(EFIAPI* S3Save)(EFI_ACPI_S3_SAVE_PROTOCOL* This, VOID* LegacyMemoryAddress);
};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_ACPI_S3_SAVE_PROTOCOL>{
    0x125F2DE1, 0xFB85, 0x440C, {0xA5, 0x4C, 0x4D, 0x99, 0x35, 0x8A, 0x8D, 0x38}};

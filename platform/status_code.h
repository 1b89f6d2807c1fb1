// The status code protocol (PI 1.7, volume 2, 14.2): progress codes for the platform's listeners.
#pragma once

#include "platform/uefi_base.h"

using EFI_STATUS_CODE_TYPE = UINT32;
using EFI_STATUS_CODE_VALUE = UINT32;
inline constexpr EFI_STATUS_CODE_TYPE EFI_PROGRESS_CODE = 1;

struct EFI_STATUS_CODE_DATA {
  UINT16 HeaderSize;
  UINT16 Size;
  EFI_GUID Type;
};

struct EFI_STATUS_CODE_PROTOCOL {
  EFI_STATUS(EFIAPI* ReportStatusCode)
  (EFI_STATUS_CODE_TYPE Type, EFI_STATUS_CODE_VALUE Value, UINT32 Instance, const EFI_GUID* CallerId,
   const EFI_STATUS_CODE_DATA* Data);
};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_STATUS_CODE_PROTOCOL>{
    0xD2B2B828, 0x0826, 0x48A7, {0xB3, 0xDF, 0x98, 0x3C, 0x00, 0x60, 0x24, 0xF0}};

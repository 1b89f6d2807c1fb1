// The platform's publication of how the server is managed.
#pragma once

#include "platform/uefi_base.h"

struct ZEPHAN_MODE_INFO {
  UINT8 Mode;        // 1: managed by the central manager; 0: standalone
  UINT8 ConfigFlag;  // 1 with Mode 1: the manager is configuring the server
};
static_assert(sizeof(ZEPHAN_MODE_INFO) == 2);

inline constexpr EFI_GUID VEYRA_ZEPHAN_MODE_GUID{
    0x4EE1EF78, 0x02D7, 0x412C, {0xAF, 0x4A, 0xBF, 0x37, 0xCF, 0xD7, 0x4D, 0xEF}};
template <>
inline constexpr EFI_GUID ProtocolGuid<ZEPHAN_MODE_INFO> = VEYRA_ZEPHAN_MODE_GUID;

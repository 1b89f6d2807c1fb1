// The platform's DXE IPMI transport: one request, one answer.
#pragma once

#include "platform/uefi_base.h"

struct DXE_IPMI_TRANSPORT_PROTOCOL {
  UINT64 Revision;
  UINT64 BmcSlaveAddress;  // 0x20; only the low byte is used, the member is padded to a pointer
  // ResponseDataSize is in/out: the buffer's size, then the bytes of the answer. ResponseData starts behind the
  // completion code; a completion code other than 0 is an error status.
  EFI_STATUS(EFIAPI* SendCommand)
  (DXE_IPMI_TRANSPORT_PROTOCOL* This, UINT8 NetFn, UINT8 Lun, UINT8 Command, UINT8* RequestData,
   UINT8 RequestDataSize, UINT8* ResponseData, UINT8* ResponseDataSize);
};
static_assert(offsetof(DXE_IPMI_TRANSPORT_PROTOCOL, SendCommand) == 16);

inline constexpr EFI_GUID gEfiDxeIpmiTransportProtocolGuid{
    0x4A1D0E66, 0x5271, 0x4E22, {0x83, 0xFE, 0x90, 0x92, 0x1B, 0x74, 0x82, 0x13}};
template <>
inline constexpr EFI_GUID ProtocolGuid<DXE_IPMI_TRANSPORT_PROTOCOL> = gEfiDxeIpmiTransportProtocolGuid;

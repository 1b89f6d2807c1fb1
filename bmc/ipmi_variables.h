// The variables in which the boot request keeps what a later boot needs: non-volatile, boot service access.
#pragma once

#include "platform/uefi_base.h"
#include "support/byte_reader.h"

namespace bds {

inline constexpr EFI_GUID kIpmiVariablesGuid{
    0x842680F2, 0x1A9C, 0x48E6, {0xA4, 0x33, 0xBE, 0x9A, 0xCB, 0x0D, 0xD4, 0x38}};
inline constexpr CHAR16 kIpmiBootFlagsName[] = u"IpmiBootFlags";             // the answer bytes of a persistent request
inline constexpr CHAR16 kSavedBootOrderName[] = u"BootOrderBeforeIpmiBoot";  // UINT16 option numbers
inline constexpr CHAR16 kSavedBootOptionName[] = u"IpmiMatchBootOptionData";  // UINT16 number, then Boot#### bytes

// Writes one of these variables; false when it is refused, which is logged: the boot goes on without the record.
bool KeepIpmiVariable(const CHAR16* name, Bytes data);

}  // namespace bds

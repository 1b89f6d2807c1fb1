// The boot order that was in force before a boot request changed it, kept in NVRAM for the next boot.
#pragma once

#include "bootopt/boot_option.h"
#include "support/byte_reader.h"

namespace bds {

// The BMC subsystem's own variables: non-volatile, boot service access.
inline constexpr EFI_GUID kIpmiVariablesGuid{
    0x842680F2, 0x1A9C, 0x48E6, {0xA4, 0x33, 0xBE, 0x9A, 0xCB, 0x0D, 0xD4, 0x38}};
inline constexpr CHAR16 kIpmiBootFlagsName[] = u"IpmiBootFlags";             // the answer bytes of a persistent request
inline constexpr CHAR16 kSavedBootOrderName[] = u"BootOrderBeforeIpmiBoot";  // UINT16 option numbers
inline constexpr CHAR16 kSavedBootOptionName[] = u"IpmiMatchBootOptionData";  // UINT16 number, then Boot#### bytes

// Writes one of these variables. A refused write is logged: the boot goes on without the record.
void KeepIpmiVariable(const CHAR16* name, Bytes data);

// Stores the numbers of BootOptionList in priority order, which it also sorts; nothing on a managed server.
void SaveCurrentBootorder();

// Stores the option's number and its Boot#### variable as it is now; nothing when it has no such variable yet.
void SaveMatchedBootOption(const BOOT_OPTION& option);

}  // namespace bds

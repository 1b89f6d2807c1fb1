// The IPMI block-transfer (BT) interface's registers (IPMI 2.0, chapter 11) and the file transfer's limits.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

inline constexpr UINT16 kBtControlPort = 0x620;
inline constexpr UINT16 kBtBufferPort = 0x621;
inline constexpr UINT16 kBtInterruptMaskPort = 0x622;

inline constexpr UINT8 BT_CLR_WR_PTR = 0x01;  // written: the next request byte is the first
inline constexpr UINT8 BT_CLR_RD_PTR = 0x02;  // written: the next response byte read is the first
inline constexpr UINT8 BT_H2B_ATN = 0x04;     // a request waits for the BMC; written to hand it over
inline constexpr UINT8 BT_B2H_ATN = 0x08;     // a response waits for the host; written to take it
inline constexpr UINT8 BT_H_BUSY = 0x40;      // written: toggles whether the host is reading a response

// Bit of the interrupt mask register with which the firmware's agents keep each other off the file transfer.
inline constexpr UINT8 BT_FILE_LOCK = 0x10;

}  // namespace bds

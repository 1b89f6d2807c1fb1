// What the user asked for by a hot key of the boot menu, kept in the variable BootFlow.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

inline constexpr UINT32 kBootFlowNone = 0;
inline constexpr UINT32 kBootFlowF6 = 6;
inline constexpr UINT32 kBootFlowSdCard = 11;  // boot from the SD card on the board
inline constexpr UINT32 kBootFlowF12 = 0x1001;
inline constexpr UINT32 kBootFlowF8 = 0x1002;
inline constexpr UINT32 kBootFlowF7 = 0x1003;
inline constexpr UINT32 kBootFlowPopup = 0x6006;  // UEFI options stay active as for F6, legacy options do not

// The request; kBootFlowNone when the variable cannot be read or is too short to hold one.
[[nodiscard]] UINT32 ReadBootFlow();

}  // namespace bds

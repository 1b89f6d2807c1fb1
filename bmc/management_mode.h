// How the server is managed: standalone or by the central manager, Zephan.
#pragma once

#include "platform/zephan_mode.h"

namespace bds {

// The platform's record; null when it publishes none.
[[nodiscard]] const ZEPHAN_MODE_INFO* FindZephanMode();
// The same; its absence is logged.
[[nodiscard]] const ZEPHAN_MODE_INFO* LocateZephanMode();

// Mode: 1 managed, 0 standalone or not published (which is logged).
[[nodiscard]] UINT8 IsRackZephan();
// The same, logged under its own name; the policy intake and its report ask by it.
[[nodiscard]] UINT8 IsRackZephanFunc();

}  // namespace bds

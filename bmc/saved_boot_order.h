// The boot order that was in force before a boot request changed it, kept in NVRAM for the next boot.
#pragma once

namespace bds {

// Stores the order as this boot would save it without the request, and sorts BootOptionList into it. Nothing, neither
// of both, on a managed server. An order that an earlier request left there is kept. False when nothing could be
// stored: NVRAM refuses it, or the order in NVRAM cannot be read.
[[nodiscard]] bool SaveCurrentBootorder();

// Writes the stored order back, with what came into BootOrder since, and forgets it. One that cannot be written is kept
// for the next boot.
void RestoreSavedBootOrder();

}  // namespace bds

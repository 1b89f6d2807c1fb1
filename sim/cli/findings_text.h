// What a summary says of a boot beside its options, attempts and time: each function gives whole lines, or nothing when
// there is nothing to say.
#pragma once

#include <cstdint>
#include <string>

#include "sim/cli/boot_result.h"

namespace sim {

// What was done with the BMC's request, and why not.
std::string RequestResult(const BootReport& report);
// What the BMC asked for and the above.
std::string RequestText(const BootReport& report);
// BootNext that is still set at the end, and who would follow it.
std::string BootNextText(const BootReport& report);
std::string DevicesWithoutOptionText(const BootReport& report);
std::string DamagedOptionsText(const BootReport& report);
// The options that the boot deleted, and why.
std::string DeletedOptionsText(const BootReport& report);
// Options of operating systems' loaders that the boot moved back in the order.
std::string MovedLoadersText(const BootReport& report);
// Exchanges and IPMI requests that got no answer.
std::uint64_t BmcSilences(const BootReport& report);
std::string SilenceText(const BootReport& report);
// The screen at the end of the last start that left something on it, in a frame.
std::string ScreenText(const BootResult& result);
// Each scripted fault: where it was met first, or that nothing met it.
std::string FaultsText(const BootResult& result);

}  // namespace sim

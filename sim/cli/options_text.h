// The summary of a boot for people: the options in order, what was booted and why not the ones before it, where the
// time went, what was written and what is left over.
#pragma once

#include <string>

#include "sim/cli/boot_result.h"
#include "sim/cli/style.h"

namespace sim {

// The options of one start, those in the order first; every line ends with a line feed.
std::string OptionsText(const BootReport& report, const Style& style);

// A whole boot. title heads it ("rack server, boot 2 of 3").
std::string SummaryText(const std::string& title, const BootResult& result, const Style& style);

// "12.345 s" of a virtual time.
std::string SecondsText(Ticks ticks);

}  // namespace sim

// One boot as the command line counts it: a power-on and the resets that the firmware asked for until something was
// started or nothing was.
#pragma once

#include <string>
#include <vector>

#include "sim/policy/policy_story.h"
#include "sim/server/server.h"

namespace sim {

struct BootResult {
  std::vector<BootReport> starts;    // the power-on first, then one per reset carried out; never empty
  std::vector<PolicyStory> stories;  // one for each start; none when an image ran, which tells nothing
  unsigned warmResets = 0;
  unsigned coldResets = 0;  // shutdowns and platform-specific resets count as cold
  bool resetLimitReached = false;

  const BootReport& Last() const { return starts.back(); }
  bool Started() const { return Last().Started(); }
  // Virtual time of all starts.
  Ticks Time() const {
    Ticks time = 0;
    for (const BootReport& start : starts) {
      time += start.outcome.time;
    }
    return time;
  }
};

// The driver crashed, or nothing could end its waiting.
inline bool BrokeDown(BootEnd end) {
  return end == BootEnd::Crashed || end == BootEnd::WaitsForever || end == BootEnd::TimeLimit;
}

// The option that was started, or tried last; null when there is none.
const OptionReport* BootedOption(const BootReport& report);

// "active", "inactive" or "hidden"; "missing" for a number in BootOrder without a readable variable.
std::string OptionState(const OptionReport& option);

// Why each option in front of the booted one (or each one, when none was booted) did not start, in their order.
struct PassedOver {
  std::uint16_t number = 0;
  std::string reason;
};
std::vector<PassedOver> OptionsPassedOver(const BootReport& report);

// "LoadImage: EFI_NOT_FOUND (no such file)", "started: EFI_SUCCESS", "ended the boot".
std::string AttemptText(const AttemptReport& attempt);

// What the boot came to, in one line: "Boot0003 debian: handed over to HD(...)/...".
std::string OutcomeText(const BootReport& report);

}  // namespace sim

// What is lost knowingly: each row with the reason, which docs/decisions.md gives at length.
#pragma once

#include <string_view>

#include "tests/pairs/pair.h"

namespace sim::test {

// Whether the finding of a pair is accepted.
bool IsAccepted(const Pair& pair, const Finding& finding);
// The rows with how often each accepted something so far.
std::vector<std::pair<std::string, std::uint64_t>> AcceptedSoFar();

}  // namespace sim::test

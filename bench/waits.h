// What boots of described servers wait for, step by step: a listing beside the benchmarks, in virtual time.
#pragma once

#include <span>

// For each description: a first boot with the resets that it asks for, a second one, and one whose BMC does not answer.
// Nothing is kept. Prints to standard output; gives the program's exit status, 2 with a message when a description
// cannot be booted.
int ListWaits(std::span<char* const> descriptions);

// The control flow: what runs when the DXE core hands the machine to the driver.
#pragma once

#include "core/step_table.h"

namespace bds {

// Prepares Timeout, the boot-start time stamp and the array of all handles, then runs the step table. Returns only
// when nothing could be booted.
void BdsEntry();

// Calls the steps up to the null pointer, each behind its debug line, then prints the closing line.
// names holds a name for each step.
void RunSteps(const StepFunction* steps, const char* const* names);

}  // namespace bds

// The table of the control flow's steps: what runs, in which order, and under which name it is logged.
#pragma once

#include <array>

#include "platform/uefi_base.h"

namespace bds {

using StepFunction = void (*)();
inline constexpr UINTN kStepCount = 70;

// The steps, ended by a null pointer.
extern const std::array<StepFunction, kStepCount + 1> kSteps;
// Their names in the same order; behind the last one a string of four blanks, then null.
extern const std::array<const char*, kStepCount + 2> kStepNames;

}  // namespace bds

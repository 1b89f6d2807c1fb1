// Port routines of an image, called straight instead of trapped. A trap costs microseconds, and an image that polls a
// register has tens of thousands of them a boot.
#pragma once

#include <ucontext.h>

#include <cstdint>

namespace sim {

// The port instruction of an image at this address was just carried out, and RIP stands behind it. When it is the body
// of a routine that does nothing else, as compilers make it, the routine's memory is changed into a jump to the
// simulated registers: the same accesses, without their traps. Any other code stays as it is, and so does the image's
// file.
void ShortenPortRoutine(greg_t* registers, std::uint64_t instruction);

}  // namespace sim

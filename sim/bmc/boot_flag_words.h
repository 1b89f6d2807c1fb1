// Boot requests in the words of ipmitool's "chassis bootdev".
#pragma once

#include <span>
#include <string>

#include "sim/bmc/bmc_state.h"

namespace sim {

// Sets the boot flags from words: a device (none, pxe, disk, safe, diag, cdrom, bios, floppy), then any of
// "persistent", "efi" and "instance=N" (N from 0 to 15), each also with leading dashes. "none" clears the request.
// The acknowledge byte's BIOS bit is set, so that the request counts as not handled. False with `error` set, and
// nothing changed, when the words are none of these.
bool SetBootFlags(BmcState& state, std::span<const std::string> words, std::string& error);

// The request as such words ("pxe persistent efi"); "none" when the flags are not valid.
std::string BootFlagsText(const BmcState& state);

}  // namespace sim

// Boot requests in the words of ipmitool's "chassis bootdev".
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>

#include "sim/bmc/bmc_state.h"

namespace sim {

// Sets the boot flags from words: a device (none, pxe, disk, safe, diag, cdrom, bios, floppy), then any of
// "persistent", "efi" and "instance=N" (N from 0 to 15), each also with leading dashes. "none" is valid flags without a
// device: a boot that reads them forgets a persistent request.
// The acknowledge byte's BIOS bit is set, so that the request counts as not handled. False with `error` set, and
// nothing changed, when the words are none of these.
bool SetBootFlags(BmcState& state, std::span<const std::string> words, std::string& error);

using BootFlagBytes = std::array<std::uint8_t, 5>;
// "pxe", "cdrom"; "device 7" for a selector without a word.
std::string BootDeviceWord(const BootFlagBytes& flags);
std::optional<unsigned> BootInstance(const BootFlagBytes& flags);

// The request as such words ("pxe persistent efi"); "none" when the flags are not valid.
std::string BootFlagsText(const BmcState& state);

}  // namespace sim

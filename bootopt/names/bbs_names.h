// Names of legacy devices: the description that the CSM shows, what this driver writes there, and what the BMC shows.
#pragma once

#include <span>

#include "bootopt/boot_option.h"

namespace bds {

// Rewrites the description of a SATA or PATA disk in legacy memory so that it names the port.
void RewriteLegacyPortName(const BBS_TABLE& entry);

// The description string of the option's BBS entry, with a NUL and cut to fit; returns its length, 0: it has none.
UINTN BuildBbsName(const BOOT_OPTION& option, std::span<CHAR16> buffer);

// The name of a legacy device as the BMC knows it, from its location code; NUL-terminated, at most 200 characters.
inline constexpr UINTN kLegacyLocationNameCapacity = 201;
UINTN BuildLegacyLocationName(const BBS_TABLE& entry, UINT8 locationCode, std::span<char> text);

}  // namespace bds

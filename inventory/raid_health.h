// RAID controllers whose driver waits for a configuration get its default one, so that they can be booted from.
#pragma once

namespace bds {

// The step: for every controller of the vendor, each driver that reports health is asked, and one that requires
// configuration applies its defaults. Everything is logged; nothing is retried.
void LsiUefiRequirementForHwraid();

}  // namespace bds

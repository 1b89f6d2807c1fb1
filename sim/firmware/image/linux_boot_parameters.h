// What a Linux kernel on x86 was given, read from the "zero page" of its boot protocol (Documentation/arch/x86/boot.rst
// of the kernel): the kernel's EFI stub keeps it in allocated pages when it leaves the boot services, whichever loader
// started it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/boot_services.h"
#include "sim/firmware/pool.h"

namespace sim {

struct LinuxBootParameters {
  std::string commandLine;
  std::uint64_t initrdSize = 0;  // bytes; 0: there is none
};

// Looks into the loader's pages of a memory map, whose memory must be readable; the command line may lie in the pool.
// Nothing when no kernel's parameters lie there. Everything found is checked: the map's programs wrote it.
std::optional<LinuxBootParameters> FindLinuxBootParameters(std::span<const EFI_MEMORY_DESCRIPTOR> map,
                                                           const PoolAllocator& pool);

}  // namespace sim

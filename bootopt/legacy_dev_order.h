// The legacy device order: one record per run of legacy options with the same number. The setup front end and the
// CSM's boot read it.
//
// Record: UINT32 BBS device type; UINT16 length = 2 + 2 * entries; UINT16 entries, each a BBS index.
#pragma once

#include "bootopt/boot_lists.h"

namespace bds {

enum class DisabledDevices {
  Marked,     // 0xFF in the high byte of the entry
  AsEnabled,  // 0 in the high byte of every entry
};

// Builds the records from the list as it is sorted. records.Size is 0 when there is no legacy option.
// EFI_OUT_OF_RESOURCES when the pool is exhausted.
[[nodiscard]] EFI_STATUS BuildLegacyDevOrder(const BOOT_OPTION_LIST& list, DisabledDevices disabled,
                                             PoolBuffer& records);

inline constexpr EFI_GUID kLegacyDevOrderGuid{
    0xA56074DB, 0x65FE, 0x45F7, {0xBD, 0x21, 0x2D, 0x2B, 0xDD, 0x8E, 0x96, 0x52}};

}  // namespace bds

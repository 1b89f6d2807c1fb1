// The legacy device order: one record per run of legacy options with the same number. The setup front end and the
// CSM's boot read it.
//
// Record: UINT32 BBS device type; UINT16 length = 2 + 2 * entries; UINT16 entries, each a BBS index.
#pragma once

#include "bootopt/boot_lists.h"
#include "support/byte_reader.h"

namespace bds {

enum class DisabledDevices {
  Marked,     // 0xFF in the high byte of the entry
  AsEnabled,  // 0 in the high byte of every entry
};

// Builds the records from the list as it is sorted. records.Size is 0 when there is no legacy option.
// EFI_OUT_OF_RESOURCES when the pool is exhausted.
[[nodiscard]] EFI_STATUS BuildLegacyDevOrder(const BOOT_OPTION_LIST& list, DisabledDevices disabled,
                                             PoolBuffer& records);

inline constexpr CHAR16 kLegacyDevOrderName[] = u"LegacyDevOrder";
inline constexpr EFI_GUID kLegacyDevOrderGuid{
    0xA56074DB, 0x65FE, 0x45F7, {0xBD, 0x21, 0x2D, 0x2B, 0xDD, 0x8E, 0x96, 0x52}};

// True for an entry whose device must not be booted.
inline constexpr UINT16 kDisabledLegacyEntry = 0xFF00;
[[nodiscard]] constexpr bool IsDisabledLegacyEntry(UINT16 entry) {
  return (entry & kDisabledLegacyEntry) == kDisabledLegacyEntry;
}

// Calls visit(type, entries) for each record: UINT32 type, the entries' bytes. A record that reaches past the end, or
// whose length is none, ends the walk.
template <typename Visit>
void ForEachLegacyDevRecord(Bytes records, Visit visit) {
  ByteReader reader(records);
  UINT32 type = 0;
  UINT16 length = 0;
  Bytes entries;
  while (reader.Read(type) && reader.Read(length) && length >= sizeof(length) &&
         reader.Take(length - sizeof(length), entries)) {
    visit(type, entries);
  }
}

}  // namespace bds

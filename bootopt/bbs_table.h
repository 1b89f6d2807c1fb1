// Access to the CSM's BBS table. The protocols come and go with the CSM, so they are located at each use.
#pragma once

#include <span>

#include "bootopt/boot_option.h"

namespace bds {

// The live table (not a copy) and the number of entries in use; valid for the whole run.
struct BbsInfo {
  UINT16 HddCount = 0;
  UINT16 BbsCount = 0;
  BBS_TABLE* Table = nullptr;
};
inline constexpr UINTN kBbsTableEntries = 256;

// The status of locating the Legacy BIOS protocol, or of its GetBbsInfo. BbsCount is at most kBbsTableEntries.
[[nodiscard]] EFI_STATUS GetBbsInfo(BbsInfo& info);

inline constexpr UINT16 kBbsEmpty = 0xFFFF;     // BootPriority of an empty entry
inline constexpr UINT16 kBbsSetAside = 0xFFFC;  // BootPriority of an entry that legacy boot skips

// The handle of the device behind an entry, kept in IBV1 (low half) and IBV2; may be null.
[[nodiscard]] EFI_HANDLE BbsHandle(const BBS_TABLE& entry);
// How many entries directly before this one have the same location and class: tells apart devices behind one
// controller function.
[[nodiscard]] UINT8 BbsInstanceNumber(const BBS_TABLE* table, UINT16 index);
// The entry's strings in legacy memory (not NUL-terminated, cut to kBbsStringCapacity); empty when absent or outside
// it.
inline constexpr UINTN kBbsStringCapacity = 255;
[[nodiscard]] std::span<const char> BbsDescription(const BBS_TABLE& entry);
[[nodiscard]] std::span<const char> BbsManufacturer(const BBS_TABLE& entry);

// A NUL-terminated copy of such a string, for messages.
struct BbsText {
  char Text[kBbsStringCapacity + 1];
};
[[nodiscard]] BbsText CopyBbsText(std::span<const char> text);

// Removes a legacy option's entry from the table; other options are left alone.
void DeleteBbsEntry(const BOOT_OPTION& option);

}  // namespace bds

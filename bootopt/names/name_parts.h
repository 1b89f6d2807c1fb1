// The builders of parts of names that several names share. Each writes its text with a NUL into the buffer, cut to fit,
// and returns its length; 0: it has no name for this option.
#pragma once

#include <span>

#include "bootopt/boot_option.h"
#include "bootopt/names/driver_strings.h"
#include "support/byte_reader.h"
#include "support/device_path.h"

namespace bds {

// The words of the nodes of one path ("USB Hard Drive"), as far as their strings can be read.
UINTN BuildNodeWords(DevicePathWalker walker, std::span<CHAR16> buffer);
// The name that drivers give the network interface or controller, IP version and PCI location in front of it.
UINTN BuildNetworkName(const BOOT_OPTION& option, std::span<CHAR16> buffer);
// The description string of the option's BBS entry.
UINTN BuildBbsName(const BOOT_OPTION& option, std::span<CHAR16> buffer);

// A driver string, or the text that stands for it when the HII database cannot give it.
class DriverText {
 public:
  explicit DriverText(DriverString id);
  // The string; the literal where a fall-back exists; else null.
  const CHAR16* Or(const CHAR16* literal) const { return text_ ? text_.get() : literal; }

 private:
  PoolPtr<CHAR16> text_;
};

inline constexpr UINTN kIdentifySize = 512;  // ATA IDENTIFY DEVICE data (ACS-3, 7.12)
inline constexpr UINTN kModelOffset = 27 * sizeof(UINT16);
inline constexpr UINTN kSerialOffset = 10 * sizeof(UINT16);
inline constexpr UINTN kSerialLength = 20;

// The ATA identify data of a disk, in pool memory; null when the handle has none of exactly this size.
[[nodiscard]] PoolPtr<UINT8> ReadIdentifyData(EFI_HANDLE handle);

}  // namespace bds

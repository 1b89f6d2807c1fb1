// A device's name as its SCSI INQUIRY answer (SPC-4, 6.6) gives it.
#pragma once

#include "platform/uefi_base.h"
#include "support/pool.h"

namespace bds {

inline constexpr UINT8 kInquiryCommand = 0x12;
inline constexpr UINT8 kInquiryMinimumSize = 36;  // bytes up to the end of the revision

// Vendor, product and revision, each without its trailing blanks and ending at a NUL if it holds one, with the
// separator between them. answer has at least kInquiryMinimumSize bytes. Null when all three are
// empty, so that the next source of a name is asked, and when the pool is exhausted.
[[nodiscard]] PoolPtr<char> InquiryName(const UINT8* answer, const char* separator);

// The name of a device on the USB or SCSI bus, which is asked for it; null when it has none.
[[nodiscard]] PoolPtr<char> UsbDeviceName(EFI_HANDLE handle);
[[nodiscard]] PoolPtr<char> ScsiDeviceName(EFI_HANDLE handle);

}  // namespace bds

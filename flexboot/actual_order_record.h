// The actual order record: what every target of the policy came to, or, without a policy, what the firmware boots from.
// It is the interface of the actual-boot-order protocol. Multi-byte numbers are little-endian and unaligned; texts are
// ASCII, cut to their field less the NUL.
#pragma once

#include <span>

#include "platform/flexboot_protocol.h"
#include "support/memory.h"
#include "support/text.h"

#pragma pack(push, 1)

struct ACTUAL_BOOT_TARGET {
  UINT8 Type;           // bds::TargetType; NonPolicyTarget for an option that no target took
  UINT8 HasOptionName;  // 1: the entry is complete; others are not reported
  CHAR8 DeviceName[128];
  CHAR8 RN[54];      // of the policy's target
  UINT64 ErrorCode;  // bds::ACTUAL_ORDER_ERROR
  CHAR8 DeviceType[128];
  UINT16 Slot;  // as in the slot and port table
  UINT16 Port;
  CHAR8 SubType[84];  // of USB devices and virtual media
};
static_assert(sizeof(ACTUAL_BOOT_TARGET) == 408);
static_assert(offsetof(ACTUAL_BOOT_TARGET, RN) == 130);
static_assert(offsetof(ACTUAL_BOOT_TARGET, ErrorCode) == 184);
static_assert(offsetof(ACTUAL_BOOT_TARGET, Slot) == 320);
static_assert(offsetof(ACTUAL_BOOT_TARGET, SubType) == 324);

inline constexpr UINTN kActualTargets = 64;
inline constexpr UINTN kListedTargets = 30;  // entries that the document shows, and that are counted

struct ACTUAL_BOOT_ORDER {
  CHAR8 Version[16];  // these two and UniqueId: of the policy's header
  CHAR8 ServiceProfile[80];
  UINT8 Reserved0[80];
  UINT64 OverallErrorCode;  // always 0
  CHAR8 UniqueId[128];
  UINT8 TotalActualTargets;  // entries without an error; without a policy all entries
  UINT8 Reserved1[15];
  CHAR8 LastUpdate[16];  // who decided: a policy, a policy for one boot, the firmware
  CHAR8 BootMode[16];    // "Uefi" or "Legacy"; written while the record is exported
  ACTUAL_BOOT_TARGET Targets[kActualTargets];
};
static_assert(sizeof(ACTUAL_BOOT_ORDER) == 26'472);
static_assert(offsetof(ACTUAL_BOOT_ORDER, OverallErrorCode) == 176);
static_assert(offsetof(ACTUAL_BOOT_ORDER, TotalActualTargets) == 312);
static_assert(offsetof(ACTUAL_BOOT_ORDER, LastUpdate) == 328);
static_assert(offsetof(ACTUAL_BOOT_ORDER, Targets) == 360);

#pragma pack(pop)

namespace bds {

enum ACTUAL_ORDER_ERROR : UINT8 {
  kTargetDone = 0,
  kTargetNoMatch = 1,
  kTargetMultipleMatches = 2,
  kTargetIgnoresPolicy = 3,
};

// Fills a text field, cut to it, with its NUL; null empties it.
template <UINTN N>
void SetField(CHAR8 (&field)[N], const char* text) {
  const UINTN length = TextLength(text);
  const UINTN taken = length < N ? length : N - 1;
  ZeroMemory(field, N);
  CopyMemory(field, text, taken);
}

// The text in a field, which has a NUL at its end.
template <UINTN N>
const char* FieldText(CHAR8 (&field)[N]) {
  field[N - 1] = 0;
  return field;
}

}  // namespace bds

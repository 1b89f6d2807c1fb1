// The policy as the engine reads it: a list of targets in boot-priority order, each an ordered list of tags, pairs of
// texts. The policy intake makes it of the policy record; the engine adds to each target what became of it.
#pragma once

#include "platform/uefi_base.h"
#include "support/linked_list.h"
#include "vboot/report_data.h"

namespace bds {

// One condition of a target. Name and Value are NUL-terminated ASCII and lie in Text.
struct POLICY_TAG {
  POLICY_TAG* Next = nullptr;
  POLICY_TAG* Previous = nullptr;
  const char* Name = nullptr;
  const char* Value = nullptr;  // a number is written as "0x%x"
  PoolPtr<char> Text;           // the block that holds both
};
using POLICY_TAG_LIST = LIST_HEADER<POLICY_TAG>;

inline constexpr UINTN kPolicyTargetNameSize = 32;  // with the NUL

struct POLICY_TARGET {
  POLICY_TARGET* Next = nullptr;
  POLICY_TARGET* Previous = nullptr;
  UINT8 AllowMultiple = 0;                // 1: it may select several options; 0: it must select exactly one
  char Name[kPolicyTargetNameSize] = {};  // its type's word
  POLICY_REPORT_LIST ReportList;          // what became of it; written by the engine
  POLICY_TAG_LIST TagList;                // in the order in which they are applied
};
using POLICY_TARGET_LIST = LIST_HEADER<POLICY_TARGET>;

// Appends an empty target; null when the pool is exhausted.
[[nodiscard]] POLICY_TARGET* NewPolicyTarget(POLICY_TARGET_LIST& targets);
// Appends a tag of two texts that are copied; false when the pool is exhausted.
[[nodiscard]] bool AppendPolicyTag(POLICY_TAG_LIST& tags, const char* name, const char* value);
// Appends a tag whose value is the number's low 32 bits as "0x%x"; false when the pool is exhausted.
[[nodiscard]] bool AddPolicyTag(const char* name, UINT64 number, POLICY_TARGET& target);
// Frees every target with its tags and report entries.
void FreeTargetList(POLICY_TARGET_LIST& targets);

// Appends the targets of the policy in force. EFI_UNSUPPORTED when there is none; EFI_OUT_OF_RESOURCES, and no target,
// when the pool is exhausted on the way.
[[nodiscard]] EFI_STATUS GenerateListFromPolicy(POLICY_TARGET_LIST& targets);

}  // namespace bds

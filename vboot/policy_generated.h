// The mark of an option that was created because the policy names its loader: four bytes at the end of its optional
// data, gone once a target took the option.
#pragma once

#include "bootopt/boot_option.h"

namespace bds {

inline constexpr UINT8 kPolicyGeneratedMark[] = {0x70, 0x67, 0x65, 0x6E};  // "pgen"

[[nodiscard]] bool IsPolicyGenerated(const BOOT_OPTION& option);
// Takes the mark off an option that has it; its other optional data stays.
void RemovePolicyGeneratedMark(BOOT_OPTION& option);

}  // namespace bds

#include "vboot/policy_generated.h"

#include "support/memory.h"

namespace bds {

bool IsPolicyGenerated(const BOOT_OPTION& option) {
  constexpr UINTN kSize = sizeof(kPolicyGeneratedMark);
  return option.OptionalData && option.OptionalDataSize >= kSize &&
         EqualMemory(option.OptionalData.get() + option.OptionalDataSize - kSize, kPolicyGeneratedMark, kSize);
}

void RemovePolicyGeneratedMark(BOOT_OPTION& option) {
  if (!IsPolicyGenerated(option)) {
    return;
  }
  option.OptionalDataSize -= sizeof(kPolicyGeneratedMark);
  if (option.OptionalDataSize == 0) {
    option.OptionalData.reset();
  }
}

}  // namespace bds

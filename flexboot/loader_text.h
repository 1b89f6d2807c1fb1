// The loaders that a policy names: their paths put into the form of the firmware, and the store of the two loaders of a
// SAN target.
#pragma once

#include <span>

#include "flexboot/policy_targets.h"

namespace bds {

// A new text with backslashes only, one between parts, one in front and one at the end. True when the path was wrong; a
// missing last backslash is not. normalized is null when the pool is exhausted.
bool NormalizeLoaderPath(const char* path, PoolPtr<char>& normalized);

// What SanLoaderData is asked to do, and the places of the store's six texts.
enum SAN_OPERATION : INT8 {
  SAN_CREATE_OPTIONS = -3,
  SAN_ADD_TAGS = -2,
  SAN_FORGET = -1,
  SAN_PRI_LDR_PATH = 0,
  SAN_PRI_LDR_NAME = 1,
  SAN_PRI_LDR_DESC = 2,
  SAN_SEC_LDR_PATH = 3,
  SAN_SEC_LDR_NAME = 4,
  SAN_SEC_LDR_DESC = 5,
};
inline constexpr UINTN kSanTextCount = 6;
// The tags under which the texts join a target, by place.
inline constexpr const char* kSanTags[kSanTextCount] = {"PriLdrPath", "PriLdrName", "PriLdrDesc",
                                                        "SecLdrPath", "SecLdrName", "SecLdrDesc"};

// Stores a copy of the text, a path in its normalized form (an empty path empties its place); SAN_FORGET empties all
// six. EFI_INVALID_PARAMETER for any other operation or a null text, EFI_OUT_OF_RESOURCES.
EFI_STATUS SanLoaderData(INT8 operation, const char* text = nullptr);
// SAN_ADD_TAGS: appends the six texts as tags to the target; an empty place gives, and from then on holds, an empty
// text. EFI_INVALID_PARAMETER for a null target, EFI_OUT_OF_RESOURCES.
[[nodiscard]] EFI_STATUS SanLoaderData(POLICY_TARGET* target);
// SAN_CREATE_OPTIONS: creates the options of both loaders on the volumes, null handles left out.
EFI_STATUS SanLoaderData(std::span<const EFI_HANDLE> volumes);

}  // namespace bds

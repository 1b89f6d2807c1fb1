// Comparing the loader that an option starts with the one that a policy names, without regard to letter case.
#pragma once

#include "vboot/tag_walk.h"

namespace bds {

// The test of one loader text against one option.
struct LOADER_TEST {
  const char* Value;     // the policy's text
  TagVerdict Otherwise;  // for an option whose loader is another
  const char* TagName;   // in the lines on an option that is refused
  UINT8 PairBit = 0;     // remembered in the wrapper of an option that matches; of a pair's part only
};

// EFI_NOT_FOUND when the platform cannot compare texts; options without a loader path are left as they are.
// The loader's directory: the option's path must begin with the value and go no directory deeper.
EFI_STATUS MatchLoaderPath(TAG_CALL& call, const LOADER_TEST& test);
// The loader's file name, for which the value may be a pattern.
EFI_STATUS MatchLoaderName(TAG_CALL& call, const LOADER_TEST& test);

}  // namespace bds

// Comparing the loader that an option starts with the one that a policy names, without regard to letter case.
#pragma once

#include "vboot/tag_walk.h"

namespace bds {

// How a comparison says what it does.
enum class LoaderLog : UINT8 { Tag, PairPart };

// The test of one loader text against one option.
struct LOADER_TEST {
  const char* Value;  // the policy's text
  LoaderLog Log;
  TagVerdict Otherwise;  // for an option whose loader is another
  const char* TagName;   // in the lines on such an option
};

// EFI_NOT_FOUND when the platform cannot compare texts; options without a loader path are left as they are.
// The loader's directory: the option's path must begin with the value and go no directory deeper.
EFI_STATUS MatchLoaderPath(TAG_CALL& call, const LOADER_TEST& test);
// The loader's file name, for which the value may be a pattern.
EFI_STATUS MatchLoaderName(TAG_CALL& call, const LOADER_TEST& test);

}  // namespace bds

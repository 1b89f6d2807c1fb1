// Tags on the two loaders of a boot LUN. They come in pairs, primary and secondary: an option that starts either stays,
// and when both were looked at the target's other options go.
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/loader_match.h"
#include "vboot/policy_engine.h"
#include "vboot/tag_processors.h"

namespace bds {
namespace {

using LoaderMatch = EFI_STATUS (*)(TAG_CALL& call, const LOADER_TEST& test);

EFI_STATUS CheckPath(TAG_CALL& call, const LOADER_TEST& test) {
  DebugPrint("Running CheckPath\n");
  return MatchLoaderPath(call, test);
}

EFI_STATUS CheckName(TAG_CALL& call, const LOADER_TEST& test) {
  DebugPrint("Running CheckName\n");
  return MatchLoaderName(call, test);
}

struct LOADER_PAIR {
  const char* Primary;
  LoaderMatch Match;
  UINT8 POLICY_ENGINE_STATE::*Seen;  // 1: the primary tag, 2: the secondary tag
  UINT8 Bit;                         // of the pair in the wrappers
};
constexpr LOADER_PAIR kPathPair{"PriLdrPath", CheckPath, &POLICY_ENGINE_STATE::PathPairSeen, 1};
constexpr LOADER_PAIR kNamePair{"PriLdrName", CheckName, &POLICY_ENGINE_STATE::NamePairSeen, 2};

void ForgetMatches(OPTION_WRAPPER_LIST& wrappers, UINT8 pairBit) {
  for (VBOOT_OPTION_WRAPPER* wrapper = wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    wrapper->LoaderOfPair = static_cast<UINT8>(wrapper->LoaderOfPair & ~pairBit);
  }
}

// True when the target still has an option that starts one of the pair's loaders.
bool AnyMatched(const TAG_CALL& call, UINT8 pairBit) {
  for (const VBOOT_OPTION_WRAPPER* wrapper = call.Wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    if ((wrapper->LoaderOfPair & pairBit) != 0 && wrapper->Option->Tag == (call.TargetBase | kSelectedMark)) {
      return true;
    }
  }
  return false;
}

// A LUN on which neither loader is found keeps its options: they are all that the target has.
void RefuseOtherLoaders(TAG_CALL& call, UINT8 pairBit) {
  DebugPrint("SAN path stuff: Marking non-matches\n");
  if (!AnyMatched(call, pairBit)) {
    return;
  }
  const UINT32 selected = call.TargetBase | kSelectedMark;
  WalkOptions(call, {.Eligible = false}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    const bool other = wrapper.Option->Tag == selected && (wrapper.LoaderOfPair & pairBit) == 0;
    return other ? RefuseBecause(call, "starts neither loader") : TagVerdict::Keep;
  });
}

EFI_STATUS MatchPair(TAG_CALL& call, const LOADER_PAIR& pair) {
  constexpr UINT8 kPrimarySeen = 1;
  constexpr UINT8 kSecondarySeen = 2;
  constexpr UINT8 kBothSeen = 3;
  UINT8& seen = gPolicyEngine.*pair.Seen;
  if (seen == 0) {
    ForgetMatches(call.Wrappers, pair.Bit);
  }
  EFI_STATUS status = EFI_SUCCESS;
  if (TextLength(call.TagValue) != 0) {
    status = pair.Match(call, {call.TagValue, TagVerdict::Keep, call.TagName, pair.Bit});
  }
  seen = static_cast<UINT8>(seen + (TextEqual(call.TagName, pair.Primary) ? kPrimarySeen : kSecondarySeen));
  if (seen == kBothSeen) {
    seen = 0;
    RefuseOtherLoaders(call, pair.Bit);
  }
  if (!EFI_ERROR(status)) {
    SayWhenNothingMatched(call, call.TagName);
  }
  return status;
}

}  // namespace

EFI_STATUS PathInSANity(TAG_CALL& call) { return MatchPair(call, kPathPair); }
EFI_STATUS NameInSANity(TAG_CALL& call) { return MatchPair(call, kNamePair); }

}  // namespace bds

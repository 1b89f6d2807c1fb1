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
};
constexpr LOADER_PAIR kPathPair{"PriLdrPath", CheckPath, &POLICY_ENGINE_STATE::PathPairSeen};
constexpr LOADER_PAIR kNamePair{"PriLdrName", CheckName, &POLICY_ENGINE_STATE::NamePairSeen};

void ForgetMatches(OPTION_WRAPPER_LIST& wrappers) {
  for (VBOOT_OPTION_WRAPPER* wrapper = wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    wrapper->LoaderOfPair = 0;
  }
}

bool AnyMatched(const OPTION_WRAPPER_LIST& wrappers) {
  for (const VBOOT_OPTION_WRAPPER* wrapper = wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    if (wrapper->LoaderOfPair != 0) {
      return true;
    }
  }
  return false;
}

// A LUN on which neither loader is found keeps its options: they are all that the target has.
void RefuseOtherLoaders(TAG_CALL& call) {
  DebugPrint("SAN path stuff: Marking non-matches\n");
  if (!AnyMatched(call.Wrappers)) {
    return;
  }
  const UINT32 selected = call.TargetBase | kSelectedMark;
  WalkOptions(call, {.Eligible = false}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    return wrapper.Option->Tag == selected && wrapper.LoaderOfPair == 0 ? TagVerdict::Refuse : TagVerdict::Keep;
  });
}

EFI_STATUS MatchPair(TAG_CALL& call, const LOADER_PAIR& pair) {
  constexpr UINT8 kPrimarySeen = 1;
  constexpr UINT8 kSecondarySeen = 2;
  constexpr UINT8 kBothSeen = 3;
  UINT8& seen = gPolicyEngine.*pair.Seen;
  if (seen == 0) {
    ForgetMatches(call.Wrappers);
  }
  EFI_STATUS status = EFI_SUCCESS;
  if (TextLength(call.TagValue) != 0) {
    status = pair.Match(call, {call.TagValue, LoaderLog::PairPart, TagVerdict::Keep, call.TagName});
  }
  seen = static_cast<UINT8>(seen + (TextEqual(call.TagName, pair.Primary) ? kPrimarySeen : kSecondarySeen));
  if (seen == kBothSeen) {
    seen = 0;
    RefuseOtherLoaders(call);
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

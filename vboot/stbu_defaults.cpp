// The order of a UEFI boot in the STBU mode, which has no policy.
#include "support/debug_print.h"
#include "vboot/policy_run.h"
#include "vboot/tag_processors.h"

namespace bds {
namespace {

struct STBU_GROUP {
  TagProcessor Process;
  const char* TagName;
};
constexpr STBU_GROUP kStbuGroups[] = {
    {ExternalUsbTag, "ExternalUSB"},
    {InternalUsbTag, "InternalUSB"},
    {LocalHDDAnyTag, "LocalHDDAny"},
    {ProcLANAnyTag, "LANAny"},
};

}  // namespace

// The marks that the groups' processors leave are the options' tags: each base carries the selecting mark from the
// second on, so that what an earlier group selected lies below it.
void TagStbuDefaults(OPTION_WRAPPER_LIST& wrappers, UINT32 base) {
  DebugPrint("Current option tag is %x \n", base);
  UINTN matches = 0;
  UINT32 groupBase = base;
  for (const STBU_GROUP& group : kStbuGroups) {
    TAG_CALL call{
        .TagName = group.TagName, .TagValue = "", .Wrappers = wrappers, .TargetBase = groupBase, .MatchCount = matches};
    if (&group != kStbuGroups) {
      ClearRefusalMarks(wrappers);
    }
    static_cast<void>(group.Process(call));
    groupBase = (groupBase + kTargetTagRange) | kSelectedMark;
  }
}

}  // namespace bds

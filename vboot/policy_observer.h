// What the engine tells those who explain a boot. In the image nobody listens; in host programs the simulator does.
#pragma once

#include "vboot/tag_processor.h"

namespace bds {

enum class PolicyMoment : UINT8 {
  TargetBegins,     // Target; Before is its base
  TagBegins,        // Tag
  Marked,           // Option: its Tag was Before and is now what it holds. Text: why, where no value was compared
  RefusalsCleared,  // every option that the target's tags refused is free again
  TagEnds,          // Tag; Status; Text: its message or null
  TargetEnds,       // Target: options of its range have their final tags
  NonPolicy,        // Option, which no target took; Text: what was done with it
};

struct POLICY_EVENT {
  PolicyMoment Moment;
  const POLICY_TARGET* Target = nullptr;
  const POLICY_TAG* Tag = nullptr;
  const BOOT_OPTION* Option = nullptr;
  UINT32 Before = 0;
  EFI_STATUS Status = EFI_SUCCESS;
  const char* Text = nullptr;
  FOUND_VALUE Found = {};
  const char* TagName = nullptr;   // Marked: the tag, or of a composite its part, that compared, and the value wanted
  const char* TagValue = nullptr;  // may be null
};

// Everything in the event is valid during the call only.
void ObservePolicy(const POLICY_EVENT& event);

}  // namespace bds

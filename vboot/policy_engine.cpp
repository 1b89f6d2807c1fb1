// The step that tags the boot options.
#include "vboot/policy_engine.h"

#include "bootopt/steps.h"
#include "support/debug_print.h"

namespace bds {

constinit POLICY_ENGINE_STATE gPolicyEngine;

namespace {

constexpr char kSetTags[] = "VBootSetBootOptionTags";

// The boot order table decides. The built-in application is always offered.
void SetTagsWithoutPolicy() {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (IsLegacyOption(*option)) {
      continue;
    }
    DebugPrint("I'm a Rack server!\n");
    if (IsBuiltInApplicationOption(*option)) {
      option->Attributes |= LOAD_OPTION_ACTIVE;
    }
  }
  SetDefaultBootOptionTags();
}

// The one place from which the policy's own tagging is entered. Until it exists, options keep their groups' order,
// so that a server with a policy still boots.
void SetTagsFromPolicy() {
  DebugPrint("%a:Tagging by policy is not available, using the default group order\n", kSetTags);
  SetTagsWithoutPolicy();
}

}  // namespace

void VBootSetBootOptionTags() {
  const bool policy = HaveVbootPolicy();
  if (policy || IsStbuEfiEnabled()) {
    SetTagsFromPolicy();
    return;
  }
  DebugPrint("%a:FlexBoot policy not present, BIOS will use boot order table instead\n", kSetTags);
  SetTagsWithoutPolicy();
}

}  // namespace bds

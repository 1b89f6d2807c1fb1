#include "sim/cli/policy_json.h"

#include <fmt/format.h>

#include "sim/cli/json_list.h"
#include "sim/cli/printable_text.h"
#include "sim/firmware/fault_script.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

Json FoundJson(const StoryMark& mark) {
  if (!mark.foundText.empty()) {
    return PrintableText(mark.foundText);
  }
  return mark.found ? Json(*mark.found) : Json(nullptr);
}

Json MarkJson(const StoryMark& mark) {
  return {{"option", mark.option},
          {"selected", mark.selected},
          {"why", mark.why},
          {"compared", PrintableText(mark.part)},
          {"wanted", PrintableText(mark.wanted)},
          {"found", FoundJson(mark)},
          {"lifted", mark.lifted}};
}

Json TagJson(const StoryTag& tag) {
  return {{"name", PrintableText(tag.name)},
          {"value", PrintableText(tag.value)},
          {"status", StatusName(tag.status)},
          {"message", PrintableText(tag.message)},
          {"in_before", tag.before},
          {"in_after", tag.after},
          {"verdicts", JsonList(tag.marks, MarkJson)}};
}

Json TargetJson(const StoryTarget& target) {
  return {{"name", PrintableText(target.name)}, {"base", target.base},   {"several", target.severalAllowed},
          {"too_many", target.TooMany()},       {"taken", target.taken}, {"tags", JsonList(target.tags, TagJson)}};
}

Json OptionJson(const StoryOption& option) {
  return {{"number", option.number ? Json(fmt::format("{:04X}", *option.number)) : Json(nullptr)},
          {"name", PrintableText(option.name)},
          {"legacy", option.legacy},
          {"active", option.active},
          {"present", option.matched},
          {"tag", option.tag},
          {"priority", option.priority},
          {"group", option.group},
          {"target", option.target ? Json(*option.target) : Json(nullptr)},
          {"non_policy", option.nonPolicy}};
}

}  // namespace

nlohmann::ordered_json PolicyJson(const PolicyStory& story) {
  return {{"in_force", story.policy},
          {"name", PrintableText(story.policyName)},
          {"boot_type", PrintableText(story.bootType)},
          {"managed", story.managed},
          {"nothing_can_boot", story.NothingCanBoot()},
          {"group_order", story.groupOrder},
          {"targets", JsonList(story.targets, TargetJson)},
          {"options", JsonList(story.options, OptionJson)}};
}

}  // namespace sim

#include "sim/policy/policy_story.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "bootopt/boot_lists.h"
#include "flexboot/policy_record.h"
#include "sim/firmware/machine.h"
#include "sim/firmware/policy_observer.h"
#include "sim/firmware/services/device_path_text.h"
#include "support/device_path.h"
#include "vboot/policy_engine.h"
#include "vboot/policy_run.h"

namespace sim {
namespace {

struct GroupName {
  UINT32 id;
  const char* name;
};
constexpr GroupName kGroupNames[] = {
    {bds::kGroupFloppy, "floppy drives"},
    {bds::kGroupHardDisk, "hard disks"},
    {bds::kGroupCdRom, "CD and DVD drives"},
    {bds::kGroupPcmcia, "PCMCIA"},
    {bds::kGroupUsb, "USB"},
    {bds::kGroupNetwork, "network"},
    {bds::kGroupBev, "boot entry vectors"},
    {bds::kGroupUefi, "UEFI"},
    {bds::kGroupBuiltInApplication, "built-in shell"},
};

std::string NameOfGroup(UINT32 id) {
  const auto row = std::ranges::find(kGroupNames, id, &GroupName::id);
  return row == std::end(kGroupNames) ? "none" : row->name;
}

UINT32 GroupOf(const bds::BOOT_OPTION& option) {
  if (bds::IsBuiltInApplicationOption(option)) {
    return bds::kGroupBuiltInApplication;
  }
  UINT16 type = 0;
  if (!bds::IsLegacyOption(option)) {
    return bds::kGroupUefi;
  }
  return bds::FirstNodeDeviceType(option, type) ? bds::GroupOfBbsType(type) : bds::kNoGroup;
}

std::string Text(const char* text) { return text == nullptr ? "" : text; }

std::u16string FoundText(const bds::FOUND_VALUE& found) {
  if (found.Text != nullptr) {
    return found.Text;
  }
  std::u16string text;
  for (const std::byte each : found.Address) {
    const std::string digits = fmt::format("{}{:02x}", text.empty() ? "" : ":", static_cast<unsigned>(each));
    text.append(digits.begin(), digits.end());
  }
  return text;
}

// Why the management mode, the policy's boot mode or the option's own state keep it out.
std::string WhyNotEligible(const bds::BOOT_OPTION& option) {
  const bool standalone = bds::gPolicyEngine.ManagementMode == 0;
  if (standalone && (option.Attributes & LOAD_OPTION_ACTIVE) == 0) {
    return "switched off";
  }
  switch (bds::gPolicyEngine.BootMode) {
    case bds::kBootModeLegacy:
      return "a UEFI option, and the policy boots legacy ones";
    case bds::kBootModeUefi:
      return "a legacy option, and the policy boots UEFI ones";
    default:
      return "the policy's boot type is none";
  }
}

// Read past the services: whoever listens leaves their counts alone.
std::u16string DeviceText(const bds::BOOT_OPTION& option) {
  const auto* path = Machine::Current().Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(option.DeviceHandle);
  const UINTN size = bds::DevicePathSize(path);
  return DevicePathText({reinterpret_cast<const std::byte*>(path), size}).value_or(u"");
}

bool IsRefused(UINT32 tag) { return tag >= bds::kRefusedTag && tag != bds::kUnassigned; }

}  // namespace

class PolicyListener::Ear {
 public:
  void Hear(const bds::POLICY_EVENT& event) {
    using enum bds::PolicyMoment;
    if (event.Moment == TargetBegins || event.Moment == NonPolicy) {
      NotePolicy();
    }
    switch (event.Moment) {
      case TargetBegins:
        base_ = event.Before;
        story_.targets.push_back({event.Target->Name, base_, event.Target->AllowMultiple != 0});
        break;
      case TagBegins:
        BeginTag(*event.Tag);
        break;
      case Marked:
        Mark(event);
        break;
      case RefusalsCleared:
        LiftRefusals();
        break;
      case TagEnds:
        EndTag(event);
        break;
      case TargetEnds:
        EndTarget();
        break;
      case NonPolicy:
        story_.options[PlaceOf(*event.Option)].nonPolicy = Text(event.Text);
        break;
    }
  }

  void Look(bool managed) {
    story_.managed = managed;
    story_.oldTable = bds::gPolicyEngine.BotUpdatedOldWay == 1;
    NoteGroupOrder();
    std::size_t place = 0;
    for (const auto* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
      FinishOption(*option, place++);
    }
  }

  PolicyStory Finish() {
    known_.clear();
    return std::exchange(story_, {});
  }

 private:
  // Once the targets are known, so are the policy's mode and record; later the record may be gone.
  void NotePolicy() {
    if (story_.policy) {
      return;
    }
    story_.policy = true;
    story_.bootMode = bds::gPolicyEngine.BootMode;
    if (const FLEXBOOT_ORDER_HEADER* order = bds::gPolicyEngine.FlexBootOrder; order != nullptr) {
      story_.policyName = {order->BootPolicyName, strnlen(order->BootPolicyName, sizeof(order->BootPolicyName))};
      story_.bootType = {order->BootType, strnlen(order->BootType, sizeof(order->BootType))};
    }
    for (const auto* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
      static_cast<void>(PlaceOf(*option));
    }
  }

  void NoteGroupOrder() {
    const UINT32* ids = bds::gBootOptions.GroupOrder.Ids;
    for (std::size_t i = 0; i < bds::kGroupOrderPlaces && ids[i] != bds::kNoGroup; ++i) {
      story_.groupOrder.push_back(NameOfGroup(ids[i]));
    }
    story_.defaultGroupOrder = std::memcmp(ids, bds::kDefaultGroupOrder.Ids, sizeof(bds::kDefaultGroupOrder)) == 0;
  }

  // The option's record in the story, made when there is none.
  std::size_t PlaceOf(const bds::BOOT_OPTION& option) {
    const auto [found, added] = known_.try_emplace(&option, story_.options.size());
    if (added) {
      StoryOption& made = story_.options.emplace_back();
      made.name = option.Description.get() != nullptr ? option.Description.get() : u"";
      made.legacy = bds::IsLegacyOption(option);
      made.matched = bds::IsMatched(option);
      made.device = DeviceText(option);
    }
    return found->second;
  }

  template <typename Test>
  std::size_t Count(Test test) const {
    std::size_t count = 0;
    for (const auto* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
      count += bds::IsMatched(*option) && !IsRefused(option->Tag) && option->Tag >= base_ && test(*option) ? 1 : 0;
    }
    return count;
  }
  std::size_t StillIn() const {
    return Count([](const bds::BOOT_OPTION&) { return true; });
  }

  void BeginTag(const bds::POLICY_TAG& tag) {
    story_.targets.back().tags.push_back({.name = tag.Name, .value = tag.Value, .before = StillIn()});
  }

  // Of several marks that the parts of a tag give an option, the last one counts.
  void Mark(const bds::POLICY_EVENT& event) {
    if (story_.targets.empty() || story_.targets.back().tags.empty()) {
      story_.stbu = true;
      return;
    }
    std::vector<StoryMark>& marks = story_.targets.back().tags.back().marks;
    const std::size_t option = PlaceOf(*event.Option);
    auto mark = std::ranges::find(marks, option, &StoryMark::option);
    if (mark == marks.end()) {
      mark = marks.insert(marks.end(), StoryMark{});
    }
    *mark = {.option = option,
             .selected = !IsRefused(event.Option->Tag),
             .why = event.Text != nullptr ? WhyNotEligible(*event.Option) : Text(event.Found.Why),
             .part = Text(event.TagName),
             .wanted = Text(event.TagValue),
             .found = event.Found.Known ? std::optional(event.Found.Number) : std::nullopt,
             .foundText = FoundText(event.Found)};
  }

  // What the tag at hand refused so far was only one of its parts' say; what earlier tags did stays on record.
  void LiftRefusals() {
    if (story_.targets.empty() || story_.targets.back().tags.empty()) {
      return;
    }
    std::vector<StoryTag>& tags = story_.targets.back().tags;
    std::erase_if(tags.back().marks, [](const StoryMark& mark) { return !mark.selected; });
    for (StoryTag& tag : tags) {
      for (StoryMark& mark : tag.marks) {
        mark.lifted = mark.lifted || !mark.selected;
      }
    }
  }

  void EndTag(const bds::POLICY_EVENT& event) {
    StoryTag& tag = story_.targets.back().tags.back();
    tag.status = event.Status;
    tag.message = Text(event.Text);
    tag.after = StillIn();
    tag.selected = Count([](const bds::BOOT_OPTION& option) { return option.Tag != bds::kUnassigned; });
  }

  void EndTarget() {
    for (const auto* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
      if (option->Tag >= base_ && option->Tag < base_ + bds::kTargetTagRange) {
        StoryTarget& target = story_.targets.back();
        const std::size_t place = PlaceOf(*option);
        target.taken.push_back(place);
        story_.options[place].target = story_.targets.size() - 1;
      }
    }
  }

  void FinishOption(const bds::BOOT_OPTION& option, std::size_t place) {
    StoryOption& record = story_.options[PlaceOf(option)];
    record.number = option.BootOptionNumber;
    record.place = place;
    record.active = (option.Attributes & LOAD_OPTION_ACTIVE) != 0;
    record.firmware = option.FwBootOption != FALSE;
    record.matched = bds::IsMatched(option);
    record.tag = option.Tag;
    record.priority = option.Priority;
    const UINT32 group = GroupOf(option);
    const UINT32 position = bds::GroupPosition(group);
    record.group = NameOfGroup(group);
    record.groupPosition = position == bds::kNoGroup ? std::nullopt : std::optional(position);
  }

  PolicyStory story_;
  std::map<const bds::BOOT_OPTION*, std::size_t> known_;
  UINT32 base_ = 0;
};

PolicyListener::PolicyListener() : ear_(new Ear) {
  ListenToPolicy([ear = ear_](const bds::POLICY_EVENT& event) { ear->Hear(event); });
}

PolicyListener::~PolicyListener() {
  ListenToPolicy(nullptr);
  delete ear_;
}

void PolicyListener::Look(bool managed) { ear_->Look(managed); }
PolicyStory PolicyListener::Finish() { return ear_->Finish(); }

}  // namespace sim

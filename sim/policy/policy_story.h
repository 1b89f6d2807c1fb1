// Why the boot options of one boot stand where they stand, as the linked driver decided it: under a policy, target by
// target and tag by tag; without one, by groups and priorities.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

// What a tag did with one option at last.
struct StoryMark {
  std::size_t option = 0;              // its place in the story's options
  bool selected = false;               // else refused
  std::string why;                     // in words, where no value tells; else empty
  std::string part;                    // the tag, or of a composite tag its part, that compared
  std::string wanted;                  // the value that it wanted, as the policy or the composite writes it
  std::optional<std::uint64_t> found;  // the option's own
  std::u16string foundText;            // the same where a text or an address was compared, or a port; else empty
  bool lifted = false;                 // a later part, or tag, let the refused option in again
};

struct StoryTag {
  std::string name;
  std::string value;
  EFI_STATUS status = EFI_SUCCESS;  // EFI_UNSUPPORTED: nothing compares it
  std::string message = {};         // the engine's; empty for none
  std::size_t before = 0;           // options that were still in
  std::size_t after = 0;
  std::size_t selected = 0;           // of those, options that a tag selected
  std::vector<StoryMark> marks = {};  // in the order of the first mark
};

struct StoryTarget {
  std::string name;
  std::uint32_t base = 0;  // of its range of tags
  bool severalAllowed = true;
  std::vector<StoryTag> tags = {};
  std::vector<std::size_t> taken = {};  // options, in order
  // More were selected than the target may have, so that it takes none.
  bool TooMany() const { return taken.empty() && !tags.empty() && tags.back().selected > 1 && !severalAllowed; }
};

struct StoryOption {
  std::u16string name;
  std::optional<std::uint16_t> number;  // as saved; none: the driver deleted it
  std::size_t place = 0;                // in the driver's list then
  bool legacy = false;
  bool active = false;
  bool firmware = false;
  bool matched = false;                        // its device is there
  std::u16string device;                       // the path of its device; empty where no handle stands for it
  std::uint32_t tag = 0;                       // at the end
  std::uint32_t priority = 0;                  // at the end
  std::optional<std::size_t> target;           // that took it
  std::string nonPolicy;                       // what was done with it as with one that no target took
  std::string group;                           // without a policy: its group's name
  std::optional<std::uint32_t> groupPosition;  // and the group's place in their order, from 0
};

struct PolicyStory {
  bool policy = false;  // one was in force
  std::string policyName;
  std::string bootType;
  std::uint8_t bootMode = 0;  // 0 legacy, 1 UEFI, 2 neither
  bool managed = false;
  bool stbu = false;                 // no policy, but the STBU mode ordered the options
  bool oldTable = false;             // the boot order table that the BMC wrote kept a policy out
  std::vector<StoryTarget> targets;  // in order
  std::vector<StoryOption> options;
  std::vector<std::string> groupOrder;  // names
  bool defaultGroupOrder = true;
  // A policy of no boot mode lets a managed server boot nothing.
  bool NothingCanBoot() const { return policy && managed && bootMode > 1; }
};

// Listens to the linked driver's policy engine while it exists. One at a time.
class PolicyListener {
 public:
  PolicyListener();
  ~PolicyListener();
  PolicyListener(const PolicyListener&) = delete;
  PolicyListener& operator=(const PolicyListener&) = delete;

  // Notes how the options stand. To be called as the driver begins to save them: behind that it knows them no more.
  // managed: the server has a central manager.
  void Look(bool managed);
  // At the end of a boot: its story, and the listener is as new.
  PolicyStory Finish();

 private:
  class Ear;
  Ear* ear_;
};

}  // namespace sim

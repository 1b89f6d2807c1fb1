#include "sim/cli/explain_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <set>

#include "sim/cli/findings_text.h"
#include "sim/cli/printable_text.h"

namespace sim {
namespace {

constexpr std::size_t kNamesShown = 4;

std::string NameOf(const StoryOption& option) {
  const std::string name = PrintableText(option.name);
  return option.number && *option.number != 0xFFFF ? fmt::format("Boot{:04X} {}", *option.number, name) : name;
}

std::string Several(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

struct NumberWord {
  std::uint64_t number;
  const char* word;
};
constexpr NumberWord kClassWords[] = {
    {0x01, "a storage controller"},
    {0x02, "a network controller"},
    {0x03, "a display controller"},
    {0x0C, "a serial bus controller, such as Fibre Channel or USB"},
};
constexpr NumberWord kStorageWords[] = {
    {0x00, "SCSI"}, {0x01, "IDE"}, {0x04, "RAID"}, {0x06, "SATA"}, {0x07, "SAS"}, {0x08, "NVMe"}, {0x80, "other"},
};

constexpr NumberWord kNetworkWords[] = {{0x00, "Ethernet"}, {0x07, "InfiniBand"}, {0x80, "other"}};

template <typename Words>
std::string WithWord(const Words& words, std::uint64_t number) {
  for (const auto& row : words) {
    if (row.number == number) {
      return fmt::format("{:#x} ({})", number, row.word);
    }
  }
  return fmt::format("{:#x}", number);
}

std::uint64_t NumberOf(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 0); }

// A number as the reader knows it. Subclasses have words where a tag of storage or of network ports compares them.
std::string NumberText(const StoryTag& tag, const StoryMark& mark, std::uint64_t number) {
  if (mark.part == "PciClassId") {
    return WithWord(kClassWords, number);
  }
  if (mark.part == "PciSubClassId" && tag.name.starts_with("LAN")) {
    return WithWord(kNetworkWords, number);
  }
  const bool storage = tag.name == "NVMEAny" && mark.part == "PciSubClassId";
  return storage ? WithWord(kStorageWords, number) : fmt::format("{:#x}", number);
}

// Why a tag marked an option as it did: "PciClassId is 0x1 (a storage controller), not 0x2 (a network controller)".
std::string Reason(const StoryTag& tag, const StoryMark& mark) {
  const std::string part = PrintableText(mark.part == tag.name ? "" : mark.part);
  const std::string what = part.empty() ? "" : part + " ";
  if (!mark.why.empty()) {
    return mark.why;
  }
  if (mark.found) {
    const std::string found = fmt::format("{}is {}", what, NumberText(tag, mark, *mark.found));
    return mark.selected
               ? found
               : fmt::format("{}, not {}", found,
                             part.empty() ? PrintableText(mark.wanted) : NumberText(tag, mark, NumberOf(mark.wanted)));
  }
  if (!mark.foundText.empty()) {
    const bool port = mark.foundText.starts_with(u"PciRoot(");
    return fmt::format("{}{} {}", what, port ? "at" : "is", PrintableText(mark.foundText));
  }
  return part;
}

// Tags that no processor compares, and what they are there for.
struct IdleTag {
  const char* name;
  const char* purpose;
};
constexpr IdleTag kIdleTags[] = {
    {"USB", "the target's type; the tags behind it select"},
    {"VirtualMedia", "the target's type; the tags behind it select"},
    {"OnboardHDD", "the target's type; the tags behind it select"},
    {"UniquePartitionGUID", "where the loader was looked for; the options stay as they are"},
    {"RetrySameCategoryDevices", "kept in the policy's record; the options stay as they are"},
    {"DeviceName", "the name of the option made for the loader; the options stay as they are"},
    {"PriLdrDesc", "the name of the option made for the loader; the options stay as they are"},
    {"SecLdrDesc", "the name of the option made for the loader; the options stay as they are"},
};

std::string IdleText(const StoryTag& tag) {
  const auto row = std::ranges::find_if(kIdleTags, [&](const IdleTag& each) { return tag.name == each.name; });
  return row != std::end(kIdleTags) ? row->purpose : "nothing compares it; the options stay as they are";
}

// "PciVid 0x8086", without the value that stands for none.
std::string TagText(const StoryTag& tag) {
  return PrintableText(tag.value == "0x0" ? tag.name : fmt::format("{} {}", tag.name, tag.value));
}

// The options marked alike in one line.
std::string MarksText(const StoryTag& tag, const PolicyStory& story) {
  std::map<std::pair<bool, std::string>, std::vector<std::string>> alike;
  for (const StoryMark& mark : tag.marks) {
    alike[{!mark.selected, Reason(tag, mark)}].push_back(NameOf(story.options[mark.option]));
  }
  std::string text;
  for (const auto& [kind, names] : alike) {
    const std::size_t shown = std::min(names.size(), kNamesShown);
    text += fmt::format("      {} {}{}: {}{}\n", kind.first ? "refused" : "selected", names.size(),
                        kind.second.empty() ? "" : ", " + kind.second,
                        fmt::join(names.begin(), names.begin() + shown, "; "),
                        shown < names.size() ? fmt::format("; and {} more", names.size() - shown) : "");
  }
  return text;
}

std::string ResultText(const StoryTag& tag) {
  if (tag.status == EFI_UNSUPPORTED) {
    return IdleText(tag);
  }
  std::string text = fmt::format("{} of {} options stay in", tag.after, tag.before);
  if (EFI_ERROR(tag.status)) {
    text += fmt::format(" ({})", StatusName(tag.status));
  }
  return tag.message.empty() ? text : fmt::format("{}: {}", text, PrintableText(tag.message));
}

// An option that no tag marked stays in and is not taken, so that the counts alone do not tell.
std::string WhyNothing(const StoryTarget& target) {
  std::set<std::size_t> selected;
  std::string last;
  for (const StoryTag& tag : target.tags) {
    for (const StoryMark& mark : tag.marks) {
      if (mark.selected) {
        selected.insert(mark.option);
      } else if (!mark.lifted && selected.erase(mark.option) != 0 && selected.empty()) {
        last = TagText(tag);
      }
    }
  }
  return last.empty() ? "no tag selects an option" : last + " refuses the last option that a tag selected";
}

std::string OutcomeOf(const StoryTarget& target) {
  if (target.TooMany()) {
    return fmt::format("takes nothing: {} options were selected, and it may have one", target.tags.back().selected);
  }
  return target.taken.empty() ? "takes nothing: " + WhyNothing(target)
                              : "takes " + Several(target.taken.size(), "option");
}

std::string TargetText(const PolicyStory& story, std::size_t index, const Style& style) {
  const StoryTarget& target = story.targets[index];
  const std::string outcome = OutcomeOf(target);
  std::string text = fmt::format("\nTarget {}, {}: {}\n", index + 1, PrintableText(target.name),
                                 target.taken.empty() ? style.Bad(outcome) : style.Good(outcome));
  for (const StoryTag& tag : target.tags) {
    text += fmt::format("    {:<34} {}\n", TagText(tag), ResultText(tag)) + MarksText(tag, story);
  }
  return text;
}

// Why one target did not take the option.
std::string MissText(const PolicyStory& story, std::size_t targetIndex, std::size_t option) {
  const StoryTarget& target = story.targets[targetIndex];
  const std::string head = fmt::format("target {} ({})", targetIndex + 1, PrintableText(target.name));
  bool selected = false;
  for (const StoryTag& tag : target.tags) {
    const auto mark = std::ranges::find(tag.marks, option, &StoryMark::option);
    if (mark == tag.marks.end()) {
      continue;
    }
    selected = mark->selected;
    if (!selected && !mark->lifted) {
      const std::string reason = Reason(tag, *mark);
      return fmt::format("{} refused it by {}{}", head, TagText(tag), reason.empty() ? "" : ": " + reason);
    }
  }
  return selected ? fmt::format("{} selected it beside others, and may have one", head)
                  : fmt::format("{}: its tags name other devices", head);
}

std::string PolicyPlaceText(const PolicyStory& story, std::size_t index) {
  const StoryOption& option = story.options[index];
  if (option.target) {
    const StoryTarget& target = story.targets[*option.target];
    const auto place = std::ranges::find(target.taken, index) - target.taken.begin() + 1;
    return fmt::format("target {} ({}) took it, {} of {}", *option.target + 1, PrintableText(target.name), place,
                       target.taken.size());
  }
  std::string text = option.nonPolicy.empty() ? "no target took it" : "no target took it; " + option.nonPolicy;
  if (!option.matched) {
    return option.nonPolicy.empty() ? "its device is not there" : text;
  }
  for (std::size_t target = 0; target < story.targets.size(); ++target) {
    text += fmt::format("\n          {}", MissText(story, target, index));
  }
  return text;
}

bool CreatedNow(const StoryOption& option, const BootReport& report) {
  if (!option.number) {
    return false;
  }
  const std::string number = fmt::format("Boot{:04X}", *option.number);
  return std::ranges::any_of(report.writes, [&](const VariableWrite& write) {
    return write.kind == VariableWrite::Kind::Create && write.name == std::u16string(number.begin(), number.end());
  });
}

std::string GroupPlaceText(const StoryOption& option, const BootReport& report) {
  const std::string group =
      option.groupPosition
          ? fmt::format("group {}, place {} of the group order", option.group, *option.groupPosition + 1)
          : fmt::format("group {}, which the group order does not name", option.group);
  const char* came =
      CreatedNow(option, report) ? "new in this boot, behind its group's last option" : "kept where BootOrder had it";
  return fmt::format("{}; {}; priority {}{}", came, group, option.priority,
                     option.matched ? "" : "; its device is not there");
}

std::string HeadText(const PolicyStory& story) {
  const char* server = story.managed ? "a server under the central manager" : "a standalone server";
  if (story.stbu) {
    return fmt::format(
        "The STBU mode orders the options of {}: external USB devices, the internal one, local disks, "
        "network ports; then the others.\n",
        server);
  }
  if (!story.policy) {
    const char* why = story.oldTable ? ": the BMC wrote the boot order table itself" : "";
    return fmt::format(
        "No boot policy in force on {}{}. Kept options keep their places; new ones go behind the last of "
        "their group.\nGroup order{}: {}\n",
        server, why, story.defaultGroupOrder ? " (the default)" : " (as the BMC wishes)",
        fmt::join(story.groupOrder, ", "));
  }
  constexpr const char* kModes[] = {"legacy", "UEFI", "no"};
  return fmt::format("Policy \"{}\" on {}: {} boots, {}\n", PrintableText(story.policyName), server,
                     kModes[std::min<std::size_t>(story.bootMode, 2)], Several(story.targets.size(), "target"));
}

// Options one below the other; those of which the same is to be said stand above it together.
class OptionLines {
 public:
  void Add(const std::string& line, const std::string& said) {
    if (said != said_) {
      text_ += Said();
      said_ = said;
      count_ = 0;
    }
    text_ += line + "\n";
    ++count_;
  }
  std::string Text() const { return text_ + Said(); }

 private:
  // "        all 6: no target took it".
  std::string Said() const {
    const std::size_t words = said_.find_first_not_of(' ');
    return count_ < 2 ? said_ : fmt::format("{}all {}: {}", said_.substr(0, words), count_, said_.substr(words));
  }

  std::string text_;
  std::string said_;
  std::size_t count_ = 0;  // of the lines that it is said of
};

// Where the device of an option is whose name others have too.
std::string WhereText(const PolicyStory& story, std::size_t index) {
  const StoryOption& option = story.options[index];
  const bool alone = std::ranges::count(story.options, option.name, &StoryOption::name) < 2;
  return alone || option.device.empty() ? "" : ", at " + PrintableText(option.device);
}

// A managed server's boot without a policy has its mode from elsewhere than the engine; nothing is said of it there.
std::string OrderText(const PolicyStory& story, const BootReport& report, const Style& style) {
  std::map<std::uint16_t, std::size_t> byNumber;
  for (std::size_t i = 0; i < story.options.size(); ++i) {
    if (story.options[i].number) {
      byNumber[*story.options[i].number] = i;
    }
  }
  OptionLines ordered;
  OptionLines others;
  std::size_t place = 0;
  std::vector<bool> told(story.options.size());
  const auto tell = [&](std::size_t index) {
    told[index] = true;
    const StoryOption& option = story.options[index];
    const std::string said = story.policy ? PolicyPlaceText(story, index)
                             : story.stbu ? fmt::format("priority {}", option.priority)
                                          : GroupPlaceText(option, report);
    return fmt::format("        {}\n", said);
  };
  for (const OptionReport& each : report.options) {
    const auto found = byNumber.find(each.number);
    if (found == byNumber.end()) {
      continue;
    }
    const StoryOption& option = story.options[found->second];
    const std::string state = option.active ? "" : " (inactive)";
    const std::string name = NameOf(option) + state + WhereText(story, found->second);
    const std::string line = each.inOrder ? fmt::format("  {:>3}. {}", ++place, name) : fmt::format("     . {}", name);
    (each.inOrder ? ordered : others).Add(option.active ? style.Strong(line) : style.Faint(line), tell(found->second));
  }
  for (std::size_t i = 0; i < story.options.size(); ++i) {
    if (!told[i]) {
      others.Add("     . " + NameOf(story.options[i]), tell(i));
    }
  }
  const std::string behind = others.Text();
  return "\nBoot order\n" + ordered.Text() + (behind.empty() ? "" : "\nNot in the order\n" + behind);
}

}  // namespace

void TellStory(BootRequest& request, PolicyListener& listener, const Server& server, PolicyStory& story) {
  request.onStep = [&](const std::string& step) {
    if (step == "SaveBootOptions") {
      listener.Look(server.Description().managementMode == 1);
    }
  };
  request.afterEnd = [&](Machine&, const BootOutcome&) { story = listener.Finish(); };
}

std::string NothingCanBootText(const std::string& bootType) {
  return fmt::format(
      "The policy's BootType \"{}\" is neither \"legacy\" nor \"uefi\" (in lower case): no target selects anything, "
      "and "
      "this server has nothing active to boot.\n",
      PrintableText(bootType));
}

std::string ExplainText(const PolicyStory& story, const BootReport& report, const Style& style) {
  std::string text = story.NothingCanBoot() ? style.Bad(NothingCanBootText(story.bootType)) : "";
  text += HeadText(story) + RequestText(report);
  for (std::size_t target = 0; target < story.targets.size(); ++target) {
    text += TargetText(story, target, style);
  }
  return text + OrderText(story, report, style);
}

}  // namespace sim

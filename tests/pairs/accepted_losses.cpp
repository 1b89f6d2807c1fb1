#include "tests/pairs/accepted_losses.h"

#include <fnmatch.h>

namespace sim::test {
namespace {

struct Row {
  const char* finding;
  const char* pair;  // Pair::Words, with the shell's wildcards, part by part
  const char* reason;
  std::uint64_t used = 0;
};

Row gRows[] = {
    // Behind the boot of a request the order of before comes back; whoever reorders the changed one changes that.
    {"order", "*/*-once/*/reorder", "the saved order comes back"},
    {"order", "*/*-persistent/*/reorder", "the saved order comes back"},
    // The request is acknowledged and cleared before the order changes: at most once, never twice.
    {"request lost", "*/*-once/power */*", "the power went between the acknowledgement and the boot"},
    // A service that fails costs what stood on it, in that boot.
    {"not started", "*/*/call */*", "without memory, handles or the order there is nothing to start"},
    {"request lost", "*/*-once/call */*", "the request was taken and could not be carried out"},
    {"request late", "*/*-persistent/call */*", "the same; the next boot carries it out"},
    {"order", "fresh/*/call */*", "an option that could not be made is made by the next boot, behind the others"},
    {"options", "fresh/*/call */*", "the same"},
    {"order", "@(stbu|renumbered)/*/call */*", "the same, where every boot numbers the options anew"},
    // The order of before must be kept before a request changes it, or the request would hold for ever.
    {"request @(lost|late)", "full:*/*/*/*", "no room for the order of before: the request is not followed"},
    {"@(options|order)", "full:*/*-persistent/*/@(replace|plug)", "no room beside the request for a new option"},
    // A managed server and the STBU mode keep no option of what is not there.
    {"gone", "managed/*/*/unplug", "an orphan goes"},
    {"order", "managed/*/*/unplug", "an orphan goes"},
    {"order", "managed/*/*/replace", "and puts no order back"},
    {"gone", "@(stbu|renumbered)/*/*/unplug", "an orphan goes"},
    {"order", "@(stbu|renumbered)/*/*/unplug", "an orphan goes"},
    {"gone", "@(stbu|renumbered)/*/*/replace", "every boot numbers the options anew, the user's too"},
    {"options", "stbu/*/call AllocatePool */replace", "the same, one boot later where the pool was exhausted"},
    {"order", "@(stbu|renumbered)/*/*/install", "the STBU mode decides the whole order"},
    {"order", "@(stbu|renumbered)/*/*/append", "the STBU mode decides the whole order"},
    // A mode that cannot be read deletes nothing, so that a legacy request finds the option that the mode would delete.
    {"@(options|order)", "managed/csm-*/call GetVariable */*",
     "Setup is unread, and a managed server puts no order back"},
    // Behind the boot of a request the next one puts the order back, if not at once then later.
    {"order", "overridden/*/*/reorder", "the saved order comes back"},
    // NVRAM is lost, and the BMC denies a copy, or does not say it soundly twice: what is skipped is skipped for good.
    {"@(gone|options|order)", "@(restored|long)/*/refuse-open:*/*", "a copy that the BMC does not give is given up"},
    {"@(gone|options|order)", "@(restored|long)/*/*always@*/*", "the same"},
    {"@(gone|options|order)", "@(restored|long)/*/@(bad-checksum:100|lying-length:[35]x1)@*/*", "the same"},
    {"@(gone|options|order)", "@(restored|long)/*/*/@(install|append|reorder|delete|replace)",
     "what is changed before the restore is done is undone by it"},
    {"order", "@(restored|long)/*-@(once|persistent)/call */*",
     "the order kept ahead of a request was not restored yet"},
    {"@(options|order)", "renumbered/*/power */*", "an option is there twice"},
    {"*", "damaged:6/*/*/*", "the same, and the copies are damaged"},
    {"*", "damaged:14/*/*/*", "the same, and the copies are damaged"},
    {"*", "unmarked/*/*/[ider]*", "what is changed before the first restore is undone by it"},
    {"*", "unmarked/*/*/append", "the same"},
    {"*", "uncopied/*/*/[ider]*", "the same"},
    {"*", "uncopied/*/*/append", "the same"},
    {"*", "fresh/*/*/[ider]*", "the same"},
    {"*", "fresh/*/*/append", "the same"},
};

}  // namespace

bool IsAccepted(const Pair& pair, const Finding& finding) {
  const std::string words = pair.Words();
  for (Row& row : gRows) {
    if (fnmatch(row.finding, finding.kind.c_str(), FNM_EXTMATCH) == 0 &&
        fnmatch(row.pair, words.c_str(), FNM_PATHNAME | FNM_EXTMATCH) == 0) {
      ++row.used;
      return true;
    }
  }
  return false;
}

std::vector<std::pair<std::string, std::uint64_t>> AcceptedSoFar() {
  std::vector<std::pair<std::string, std::uint64_t>> rows;
  for (const Row& row : gRows) {
    rows.emplace_back(fmt::format("{} {}: {}", row.finding, row.pair, row.reason), row.used);
  }
  return rows;
}

}  // namespace sim::test

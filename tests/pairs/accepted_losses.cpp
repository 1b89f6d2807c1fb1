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
    {"order", "stbu/*/call */*", "the same, where every boot numbers the options anew"},
    // A managed server and the STBU mode keep no option of what is not there.
    {"bytes", "managed/*/*/unplug", "an orphan goes"},
    {"order", "managed/*/*/unplug", "an orphan goes"},
    {"order", "managed/*/*/replace", "and puts no order back"},
    {"bytes", "stbu/*/*/unplug", "an orphan goes"},
    {"order", "stbu/*/*/unplug", "an orphan goes"},
    {"bytes", "stbu/*/*/replace", "every boot numbers the options anew, the user's too"},
    {"order", "stbu/*/*/install", "the STBU mode decides the whole order"},
    {"order", "stbu/*/*/append", "the STBU mode decides the whole order"},
    // NVRAM is lost, or was never restored, and the BMC denies its copies: what is skipped is skipped for good.
    {"*", "restored/*/*@*/*", "a copy that the BMC does not give is given up"},
    {"*", "restored/*/refuse-open:*/*", "the same"},
    {"*", "long/*/*@*/*", "the same"},
    {"*", "long/*/refuse-open:*/*", "the same"},
    {"*", "damaged:6/*/*/*", "the same, and the copies are damaged"},
    {"*", "damaged:14/*/*/*", "the same, and the copies are damaged"},
    {"*", "unmarked/*/*/[ider]*", "what is changed before the first restore is undone by it"},
    {"*", "unmarked/*/*/append", "the same"},
    {"*", "uncopied/*/*/[ider]*", "the same"},
    {"*", "uncopied/*/*/append", "the same"},
    {"*", "fresh/*/*/[ider]*", "the same"},
    {"*", "fresh/*/*/append", "the same"},
    // Known, until their mends are here: a write that is refused, by a full store or a fault, around a boot request
    // or a restore. The order before the request is not kept, or not put back; a restore that missed an option is
    // marked done.
    {"*", "full:*/*/*/*", "known"},
    {"order", "*/*-once/call SetVariable */*", "known"},
    {"request twice", "*/*-once/call */*", "known"},
    {"request lost", "*/*-persistent/call */*", "known"},
    {"*", "long/*/call SetVariable */*", "known"},
    {"*", "restored/*/call SetVariable */*", "known"},
    {"options", "managed/*/call AllocatePool */*", "known"},
    {"options", "managed/csm-*/call GetVariable */*", "known"},
    {"order", "managed/csm-*/call GetVariable */*", "known"},
};

}  // namespace

bool IsAccepted(const Pair& pair, const Finding& finding) {
  const std::string words = pair.Words();
  for (Row& row : gRows) {
    if (fnmatch(row.finding, finding.kind.c_str(), 0) == 0 && fnmatch(row.pair, words.c_str(), FNM_PATHNAME) == 0) {
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

#include "tests/pairs/checks.h"

namespace sim::test {
namespace {

// What a boot may take at most, by the words that its fault begins with (docs/boot-time.md).
constexpr struct {
  const char* fault;
  Ticks longest;
} kBounds[] = {{"late:4000xalways", 340 * kSecond},
               {"bad-checksum", 140 * kSecond},
               {"lying-length", 140 * kSecond},
               {"", 60 * kSecond}};

Ticks LongestBoot(const std::string& fault) {
  for (const auto& [words, longest] : kBounds) {
    if (fault.starts_with(words)) return longest;
  }
  return 0;
}

using Findings = std::vector<Finding>;

bool IsBootOption(const Variable& variable) { return BootOptionNumber(variable.name).has_value(); }

std::string Ascii(std::u16string_view text) { return {text.begin(), text.end()}; }

// An option by what it is, since numbers of the firmware's options follow from the order of their creation.
std::string Identity(const Kept& kept, std::uint16_t number, const World& world) {
  const Bytes bytes = OptionBytes(kept, number);
  const std::uint16_t user = world.UsersNumber(bytes);
  if (user != 0 || bytes.empty()) return fmt::format("{:04X}", user != 0 ? user : number);
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<std::string> OrderOf(const Kept& kept, const World& world, std::uint16_t without) {
  std::vector<std::string> order;
  for (const std::uint16_t number : kept.Order()) {
    if (number != without || without == 0) order.push_back(Identity(kept, number, world));
  }
  return order;
}

std::string Shown(const Kept& kept) {
  std::string text;
  for (const std::uint16_t number : kept.Order()) text += fmt::format("{}{:04X}", text.empty() ? "" : " ", number);
  return text;
}

void CheckBoots(const Story& story, Findings& findings) {
  unsigned resets = 0;
  bool later = false;
  const auto look = [&](const Seen& seen, const char* when) {
    for (const std::string& fault : seen.faults) findings.push_back({"unclean", fmt::format("{}: {}", when, fault)});
    resets = seen.end == BootEnd::Reset ? resets + 1 : 0;
    if (resets == 2) findings.push_back({"resets", fmt::format("{}: a second reset in a row", when)});
    if (seen.time > LongestBoot(story.fault))
      findings.push_back({"slow", fmt::format("{}: {} s", when, seen.time / kSecond)});
    if (!seen.started && seen.end != BootEnd::Reset && seen.end != BootEnd::PowerLost) {
      findings.push_back({later ? "stuck" : "not started", when});
    }
  };
  for (const Seen& seen : story.faulty) look(seen, "with the fault");
  resets = 0;
  later = true;
  for (const Seen& seen : story.later) look(seen, "behind it");
  const auto& boots = story.later;
  if (boots.size() < 2 || boots.back().after != boots[boots.size() - 2].after) {
    findings.push_back({"restless", fmt::format("{} boots, and the state still changes", boots.size())});
  }
}

void CheckUsers(const Story& story, Findings& findings) {
  const Kept& last = *story.later.back().after;
  const auto holds = [](const Bytes& bytes) {
    return [&bytes](const Variable& one) { return IsBootOption(one) && IsSameOption(one.data, bytes); };
  };
  for (const auto& [number, bytes] : story.behind.users) {
    if (std::ranges::none_of(last.variables, holds(bytes))) {
      findings.push_back({"gone", fmt::format("Boot{:04X} of the user's", number)});
    }
  }
  std::vector<std::uint16_t> order;
  for (const std::uint16_t number : last.Order()) {
    const std::uint16_t user = story.behind.UsersNumber(OptionBytes(last, number));
    if (user != 0 && std::ranges::find(order, user) == order.end()) order.push_back(user);
  }
  if (!story.behind.usersOrder.empty() && order != story.behind.usersOrder) {
    findings.push_back({"order", fmt::format("the user's options follow each other otherwise: {}", Shown(last))});
  }
}

// The server is where the event alone would have brought it; a request that goes on may move its option.
void CheckState(const Story& story, Findings& findings) {
  const Kept& last = *story.later.back().after;
  const bool moved = story.request.Asks() && (story.request.Persistent() || story.start.hardware.managed);
  const auto network = [&](const Kept& kept) {
    return moved ? PairServer::NetworkOption(kept, story.request.csm) : std::uint16_t{0};
  };
  if (OrderOf(last, story.behind, network(last)) != OrderOf(story.expected, story.behind, network(story.expected))) {
    findings.push_back({"order", fmt::format("{}, expected {}", Shown(last), Shown(story.expected))});
  }
  std::string differences;
  const auto without = [&differences](const Kept& have, const Kept& lack, const char* sign) {
    std::multiset<Bytes> others;
    for (const std::uint16_t number : lack.Order()) others.insert(OptionBytes(lack, number));
    for (const std::uint16_t number : have.Order()) {
      const auto other = others.find(OptionBytes(have, number));
      if (other == others.end()) differences += fmt::format(" {}{:04X}", sign, number);
      if (other != others.end()) others.erase(other);
    }
  };
  without(last, story.expected, "+");
  without(story.expected, last, "-");
  if (!differences.empty()) findings.push_back({"options", "there are others than expected:" + differences});
  if (moved) return;
  const auto compare = [&](const Kept& have, const Kept& lack, const char* what) {
    for (const Variable& one : have.variables) {
      const bool order = one.name.ends_with(u"BootOrder") || one.name.ends_with(u"LegacyDevOrder") ||
                         one.name == u"VeyraBootOrderTable";
      const Bytes* other = lack.Find(one.name);
      if (!IsBootOption(one) && (other == nullptr || (*other != one.data && !order))) {
        findings.push_back({"variables", fmt::format("{} {}", Ascii(one.name), what)});
      }
    }
  };
  compare(last, story.expected, "is there or is otherwise");
  compare(story.expected, last, "is missing or is otherwise");
}

void CheckRequest(const Story& story, Findings& findings) {
  const bool nothingMeant = PairServer::NetworkOption(story.expected, story.request.csm) == 0;
  if (!story.request.Asks() || story.expectedNetwork || nothingMeant) return;
  const bool managed = story.start.hardware.managed;
  unsigned honoured = 0;
  unsigned before = 0;
  bool missed = false;
  const auto look = [&](const Seen& seen, unsigned& count) {
    if (seen.end == BootEnd::Reset || seen.end == BootEnd::PowerLost) return;
    count += seen.network ? 1 : 0;
    missed = missed || !seen.network;
  };
  for (const Seen& seen : story.faulty) look(seen, before);
  honoured = before;
  const bool missedBefore = missed;
  if (story.request.Persistent()) {
    missed = false;
    for (const Seen& seen : story.later) look(seen, honoured);
    if (missedBefore) findings.push_back({"request late", "a persistent one, not in the boot with the fault"});
    if (missed && !story.withdrawn) findings.push_back({"request lost", "a persistent one"});
    if (story.withdrawn && honoured != before && !managed) findings.push_back({"request kept", "though withdrawn"});
    return;
  }
  for (const Seen& seen : story.later) look(seen, honoured);
  if (honoured == 0 && !story.withdrawn) findings.push_back({"request lost", "no boot followed it"});
  if (honoured > 1 && !managed) findings.push_back({"request twice", fmt::format("{} boots followed it", honoured)});
}

// A copy that was cut short, or misses pieces that the BMC refused.
bool IsOfPieces(std::span<const std::byte> file, std::span<const std::byte> value) {
  constexpr std::size_t kPiece = 59;
  while (!value.empty()) {
    const auto piece = value.first(std::min(kPiece, value.size()));
    value = value.subspan(piece.size());
    const bool taken = file.size() >= piece.size() && std::ranges::equal(file.first(piece.size()), piece);
    file = file.subspan(taken ? piece.size() : 0);
  }
  return file.empty();
}

// Where options keep their numbers, none of the user's comes back under another one's.
void CheckRestored(const Story& story, const Kept& kept, Findings& findings) {
  for (const Variable& one : kept.variables) {
    const std::uint16_t user = IsBootOption(one) ? story.start.UsersNumber(one.data) : std::uint16_t{0};
    if (user != 0 && Ascii(one.name) != fmt::format("Boot{:04X}", user) && !story.start.hardware.stbu) {
      findings.push_back({"foreign bytes", fmt::format("{} in NVRAM is Boot{:04X}", Ascii(one.name), user)});
    }
  }
}

// No file of the BMC ever holds what its variable never held, and in the end each holds what its variable holds.
void CheckCopies(const Story& story, Findings& findings) {
  std::map<std::string, std::set<Bytes>> known;
  const auto learn = [&](const Kept& kept) {
    for (const Variable& one : kept.variables) known[Ascii(one.name)].insert(one.data);
  };
  const auto look = [&](const Kept& kept) {
    learn(kept);
    for (const auto& [name, file] : kept.files) {
      const auto bytes = std::as_bytes(std::span(file));
      const bool own = std::ranges::any_of(known[name], [&](const Bytes& value) { return IsOfPieces(bytes, value); });
      if (!own && name.starts_with("Boot")) {
        findings.push_back({"foreign bytes", fmt::format("the BMC's file {} of {} bytes", name, file.size())});
      }
    }
  };
  learn(story.start.kept);
  for (const auto& [name, file] : story.start.kept.files) {
    const auto bytes = std::as_bytes(std::span(file));
    known[name].insert({bytes.begin(), bytes.end()});
  }
  for (const Seen& seen : story.faulty) {
    look(*seen.after);
    CheckRestored(story, *seen.after, findings);
  }
  learn(story.behind.kept);
  for (const Seen& seen : story.later) look(*seen.after);
  if (!story.later.back().after->CopiesAreComplete()) findings.push_back({"copies", "are not complete on the BMC"});
}

}  // namespace

std::vector<Finding> Check(const Story& story) {
  Findings findings;
  CheckBoots(story, findings);
  CheckUsers(story, findings);
  CheckState(story, findings);
  CheckRequest(story, findings);
  CheckCopies(story, findings);
  return findings;
}

}  // namespace sim::test

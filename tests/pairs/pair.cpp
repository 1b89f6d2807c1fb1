#include "tests/pairs/pair.h"

#include <sstream>

#include "tests/pairs/checks.h"

namespace sim::test {
namespace {

constexpr unsigned kMaxResets = 4;
constexpr unsigned kMaxBoots = 7;  // until nothing changes any more

const std::vector<Request>& AllRequests() {
  static const std::vector<Request> kRequests = {{"efi-none", false, {}},
                                                 {"efi-once", false, {"pxe", "efi"}},
                                                 {"efi-persistent", false, {"pxe", "efi", "persistent"}},
                                                 {"csm-none", true, {}},
                                                 {"csm-once", true, {"pxe"}},
                                                 {"csm-persistent", true, {"pxe", "persistent"}}};
  return kRequests;
}

std::string KeyOf(const Kept& kept) {
  std::map<std::string, const Bytes*> variables;
  for (const Variable& one : kept.variables) {
    variables[std::string(one.name.begin(), one.name.end()) + std::to_string(one.attributes)] = &one.data;
  }
  std::string key;
  for (const auto& [name, data] : variables) {
    key += fmt::format("{} {} ", name, data->size());
    key.append(reinterpret_cast<const char*>(data->data()), data->size());
  }
  for (const auto& [name, data] : kept.files) {
    key += fmt::format("{} {} ", name, data.size());
    key.append(data.begin(), data.end());
  }
  key += fmt::format("{} {} {} ", kept.bmc.acknowledge, kept.bmc.setInProgress, kept.bmc.oneTimeStaleRequests);
  key.append(kept.bmc.bootFlags.begin(), kept.bmc.bootFlags.end());
  key.append(kept.bmc.bootOrderTable.begin(), kept.bmc.bootOrderTable.end());
  return key;
}

}  // namespace

std::span<const Request> Requests() { return AllRequests(); }

std::string Pair::Words() const { return fmt::format("{}/{}/{}/{}", start, request->name, fault, event); }

std::optional<Pair> Pair::FromWords(const std::string& words) {
  std::vector<std::string> parts;
  std::istringstream stream(words + "/");
  for (std::string part; std::getline(stream, part, '/');) parts.push_back(part);
  if (parts.size() != 4) return std::nullopt;
  for (const Request& request : AllRequests()) {
    if (request.name == parts[1]) return Pair{parts[0], &request, parts[2], parts[3]};
  }
  return std::nullopt;
}

Bench::Bench(PairServer& server, const std::string& start, const Request& request)
    : server_(server), startName_(start), request_(request), start_(server.Start(start, request.csm)) {
  std::string error;
  if (request.Asks() && !SetBootFlags(start_.kept.bmc, request.words, error)) throw StateError(error);
  Faulty("");
  ListFaults();
}

std::shared_ptr<const Kept> Bench::Intern(Kept kept) {
  auto& place = states_[KeyOf(kept)];
  if (place == nullptr) place = std::make_shared<const Kept>(std::move(kept));
  return place;
}

Seen Bench::Note(const BootReport& report, const Server& server) {
  ++boots_;
  Seen seen{report.outcome.end, report.Started(), false, report.outcome.time, report.complaints, nullptr};
  const BootEnd end = report.outcome.end;
  if (end == BootEnd::Crashed || end == BootEnd::TimeLimit || end == BootEnd::WaitsForever) {
    seen.faults.push_back(report.outcome.text);
  }
  for (const auto& leak : report.outcome.leaks) {
    seen.faults.push_back(fmt::format("a leak of {} bytes, allocation {}", leak.block.size, leak.block.serial));
  }
  for (const OptionReport& option : report.options) {
    const bool tried = !report.attempts.empty() && report.attempts.front().option == option.number;
    const char* part = request_.csm ? "BBS(0x80" : "IPv4(";
    seen.network = seen.network || (tried && option.path.find(part) != std::string::npos);
  }
  seen.after = Intern(Take(server));
  return seen;
}

// The boots from power-on until something is started, the fault in each.
const Bench::Boots_& Bench::Faulty(const std::string& fault) {
  if (faulty_.first == fault && !faulty_.second.empty()) return faulty_.second;
  faulty_ = {fault, {}};
  const auto server = Place(server_.Description(start_.hardware), start_.kept);
  BootRequest request;
  request.debugMask = 0;  // what is checked is what is kept
  if (!fault.empty()) request.faults = {fault};
  if (fault.empty()) {
    request.afterEnd = [this](Machine& machine, const BootOutcome&) {
      for (const char* kind : {"nvram", "bmc-exchange"}) {
        counts_[kind] = std::max(counts_[kind], machine.Faults().WritesOf(kind));
      }
    };
  }
  do {
    const BootReport report = server->Boot(request);
    faulty_.second.push_back(Note(report, *server));
    for (const auto& [name, count] : report.counts) {
      if (fault.empty()) counts_[name] = std::max(counts_[name], count);
    }
  } while (faulty_.second.back().end == BootEnd::Reset && faulty_.second.size() <= kMaxResets);
  return faulty_.second;
}

// Boots without a fault until nothing changes any more.
const Bench::Boots_& Bench::Settle(const World& world) {
  const Hardware& hardware = world.hardware;
  const std::string key =
      fmt::format("{} {} {} ", hardware.secondDisk, hardware.stick, hardware.nvram) + KeyOf(world.kept);
  auto& boots = settled_[key];
  if (!boots.empty()) return boots;
  const auto server = Place(server_.Description(hardware), world.kept);
  BootRequest request;
  request.debugMask = 0;
  const Kept* before = nullptr;
  do {
    before = boots.empty() ? nullptr : boots.back().after.get();
    boots.push_back(Note(server->Boot(request), *server));
  } while ((boots.back().end == BootEnd::Reset || boots.back().after.get() != before) && boots.size() < kMaxBoots);
  return boots;
}

World Bench::Behind(const std::string& fault, const std::string& event) {
  World world = start_;
  world.kept = *Faulty(fault).back().after;
  PairServer::Happen(event, world);
  return world;
}

// What the same event leads to without request and fault.
const Bench::Expected& Bench::Without(const std::string& event) {
  const auto known = without_.find(event);
  if (known != without_.end()) return known->second;
  World world = server_.Start(startName_, request_.csm);
  const Boots_ first = Settle(world);
  // The event meets the server behind the boots that one power-on takes.
  const auto end = std::ranges::find_if(first, [](const Seen& seen) { return seen.end != BootEnd::Reset; });
  world.kept = *(end == first.end() ? first.back() : *end).after;
  PairServer::Happen(event, world);
  const Boots_& boots = Settle(world);
  return without_[event] = {*boots.back().after, boots.back().network};
}

void Bench::ListFaults() {
  static constexpr const char* kBmc[] = {
      "h2b-stuck:1",      "no-answer:1",      "no-answer:2",      "late:5200x1",       "late:6000x1",
      "late:9900x1",      "late:10100x1",     "wrong-length:1",   "wrong-echo:1",      "bad-checksum:1",
      "bad-checksum:100", "lock-held:1",      "refuse-open:1",    "refuse-write:1",    "refuse-rename:1",
      "lying-length:0x1", "lying-length:3x1", "lying-length:5x1", "lying-length:64x1", "lying-length:255x1"};
  static constexpr const char* kAlways[] = {"h2b-stuck:always",      "no-answer:always",      "late:100xalways",
                                            "late:4000xalways",      "late:6000xalways",      "wrong-length:always",
                                            "wrong-echo:always",     "bad-checksum:always",   "lock-held:always",
                                            "refuse-open:always",    "refuse-write:always",   "refuse-rename:always",
                                            "lying-length:3xalways", "lying-length:64xalways"};
  static constexpr const char* kCalls[][2] = {{"GetVariable", "EFI_DEVICE_ERROR"},
                                              {"SetVariable", "EFI_OUT_OF_RESOURCES"},
                                              {"SetVariable", "EFI_DEVICE_ERROR"},
                                              {"AllocatePool", "EFI_OUT_OF_RESOURCES"},
                                              {"LocateHandleBuffer", "EFI_OUT_OF_RESOURCES"}};
  faults_ = {""};
  const std::uint64_t exchanges = counts_["bmc.exchanges"];
  for (std::uint64_t nth = 1; nth <= exchanges; ++nth) {
    for (const char* once : kBmc) faults_.push_back(fmt::format("{}@{}", once, nth));
    for (const char* always : kAlways) faults_.push_back(fmt::format("{}@{}", always, nth));
  }
  for (const unsigned opens : {2, 3, 4, 5, 6, 7, 8}) faults_.push_back(fmt::format("refuse-open:{}", opens));
  for (const char* kind : {"nvram", "bmc-exchange"}) {
    for (std::uint64_t nth = 1; nth <= counts_[kind]; ++nth) faults_.push_back(fmt::format("power {} {}", kind, nth));
  }
  for (const auto& [service, status] : kCalls) {
    for (std::uint64_t nth = 1; nth <= counts_[service]; ++nth) {
      faults_.push_back(fmt::format("call {} {} {}", service, nth, status));
      if (nth % 25 == 1) {
        for (const unsigned count : {25, 100'000'000}) {
          faults_.push_back(fmt::format("call {} {} {} {}", service, nth, status, count));
        }
      }
    }
  }
}

std::vector<Finding> Bench::Try(const std::string& fault, const std::string& event) {
  const Boots_& faulty = Faulty(fault);
  const World behind = Behind(fault, event);
  const Expected expected = Without(event);
  return Check({.start = start_,
                .behind = behind,
                .request = request_,
                .fault = fault,
                .withdrawn = event == "withdraw",
                .faulty = faulty,
                .later = Settle(behind),
                .expected = expected.kept,
                .expectedNetwork = expected.network});
}

}  // namespace sim::test

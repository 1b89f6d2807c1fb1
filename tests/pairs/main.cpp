// Pairs: starts x requests x faults x events. Without options a sample of some thousand boots.
#include <CLI/CLI.hpp>
#include <chrono>

#include "tests/pairs/accepted_losses.h"

namespace sim::test {
namespace {

// Tried by the quick form too, whatever it samples: each found a fault once.
constexpr const char* kAlwaysTried[] = {
    "settled/efi-none/late:5200x1@24/nothing",
    "settled/efi-none/late:6000x1@19/nothing",
    "settled/efi-none/no-answer:2@20/nothing",
    "fresh/efi-none/refuse-open:6/nothing",
    "fresh/efi-once//nothing",
    "foreign/efi-once/call GetVariable 20 EFI_DEVICE_ERROR/nothing",
    "settled/efi-once//install",
    "settled/efi-once//append",
    "settled/csm-once//replace",
};
constexpr std::size_t kSampled = 14;  // faults of each start and request

class Run {
 public:
  Run(bool whole, std::string faults) : whole_(whole), kind_(std::move(faults)) {}

  void Start(const std::string& start, bool faults) {
    for (const Request& request : Requests()) {
      Bench bench(server_, start, request);
      const auto began = std::chrono::steady_clock::now();
      const std::uint64_t before = findings_;
      std::vector<std::string> all = bench.Faults();
      std::erase_if(all, [&](const std::string& fault) { return !fault.starts_with(kind_); });
      const std::size_t stride = whole_ ? 1 : std::max<std::size_t>(1, all.size() / kSampled);
      for (std::size_t i = 0; i < (faults ? all.size() : std::min<std::size_t>(1, all.size()));
           i += i == 0 ? 1 + offset_ % stride : stride) {
        Events(bench, {start, &request, all[i], ""}, i);
      }
      ++offset_;
      boots_ += bench.Boots();
      const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
      if (whole_) {
        fmt::print("{} {}: {} pairs so far, {} boots, {:.1f} s, {} findings\n", start, request.name, pairs_,
                   bench.Boots(), seconds, findings_ - before);
        std::fflush(stdout);
      }
    }
  }

  // One pair each; the whole form and a sample with all events.
  void Events(Bench& bench, Pair pair, std::size_t i) {
    const auto events = EventNames();
    const bool every = whole_ || pair.fault.empty();
    for (std::size_t e = 0; e < (every ? events.size() : 2); ++e) {
      pair.event = events[every ? e : e == 0 ? 0 : (i + offset_) % events.size()];
      One(bench, pair);
    }
  }

  void One(Bench& bench, const Pair& pair) {
    ++pairs_;
    for (const Finding& finding : bench.Try(pair.fault, pair.event)) {
      if (IsAccepted(pair, finding)) continue;
      ++findings_;
      if (findings_ <= limit_) fmt::print("{}: {}: {}\n", pair.Words(), finding.kind, finding.text);
    }
  }

  void Single(const Pair& pair) {
    Bench bench(server_, pair.start, *pair.request);
    One(bench, pair);
    boots_ += bench.Boots();
  }

  // The pair as files, and the commands that boot them.
  void Place(const Pair& pair, const std::filesystem::path& folder) {
    Bench bench(server_, pair.start, *pair.request);
    server_.Write(bench.Before(), folder / "before");
    server_.Write(bench.Behind(pair.fault, pair.event), folder / "behind");
    const std::string fault = pair.fault.empty() ? "" : fmt::format(" --fault '{}'", pair.fault);
    for (const auto& [place, words] : {std::pair("before", fault), std::pair("behind", std::string(" --boots 3"))}) {
      fmt::print("bds-sim boot {0}/{1}/server.toml --state {0}/{1}/state{2}\n", folder.string(), place, words);
    }
  }

  int End(bool complete) {
    fmt::print("{} pairs, {} boots, {} findings\n", pairs_, boots_, findings_);
    if (findings_ != 0) {
      fmt::print("pairs --only PAIR tries one again, pairs --only PAIR --place DIR makes files of it for bds-sim.\n");
    }
    bool stale = false;  // a row that accepts nothing
    for (const auto& [row, count] : complete ? AcceptedSoFar() : std::vector<std::pair<std::string, std::uint64_t>>()) {
      fmt::print("accepted {:6} times: {}\n", count, row);
      stale = stale || count == 0;
    }
    return findings_ == 0 && !stale ? 0 : 1;
  }

  std::uint64_t limit_ = 40;

 private:
  PairServer server_;
  const bool whole_;
  const std::string kind_;  // faults whose words begin so
  std::size_t offset_ = 0;
  std::uint64_t pairs_ = 0;
  std::uint64_t boots_ = 0;
  std::uint64_t findings_ = 0;
};

int Main(int argc, char** argv) {
  CLI::App app("Pairs of what may go wrong with a server, and the checks that hold all the same");
  bool whole = false;
  std::string start, faults, only, place;
  std::uint64_t limit = 40;
  app.add_flag("--whole", whole, "every pair, with progress");
  app.add_option("--start", start, "only this start");
  app.add_option("--faults", faults, "only faults whose words begin so: \"call SetVariable\"");
  app.add_option("--only", only, "only this pair: START/REQUEST/FAULT/EVENT");
  app.add_option("--place", place, "with --only: make a description and state folders of the pair");
  app.add_option("--limit", limit, "how many findings are shown");
  CLI11_PARSE(app, argc, argv);
  Run run(whole, faults);
  run.limit_ = limit;
  if (!only.empty()) {
    const auto pair = Pair::FromWords(only);
    if (!pair) {
      fmt::print(stderr, "\"{}\" is no pair\n", only);
      return 2;
    }
    if (!place.empty()) {
      run.Place(*pair, std::filesystem::absolute(place));
      return 0;
    }
    run.Single(*pair);
    return run.End(false);
  }
  for (const char* name : StartNames()) {
    if (start.empty() || start == name) run.Start(name, true);
  }
  const bool complete = start.empty() && faults.empty();
  for (const std::string& name : FurtherStarts()) {
    if (complete && (whole || name.starts_with("full"))) run.Start(name, false);
  }
  for (const char* words : kAlwaysTried) {
    if (complete) run.Single(*Pair::FromWords(words));
  }
  return run.End(whole && complete);
}

}  // namespace
}  // namespace sim::test

int main(int argc, char** argv) { return sim::test::Main(argc, argv); }

// Whole boots and their option work at 8, 64 and 512 options on as many devices, with exact counts per boot. Time is
// the host's; the counters are the simulated server's and repeat from run to run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <span>

#include "bench/disk_server.h"
#include "bench/waits.h"

namespace {

using sim::BootReport;
using sim::Server;

constexpr char kNoBmc[] = "[bmc]\nfiles = false\n[setup]\nuefi_mode = 0\n";

void Count(benchmark::State& state, const BootReport& report) {
  std::uint64_t calls = 0;
  for (const auto& [name, count] : report.counts) {
    calls += name.find('.') == std::string::npos ? count : 0;
  }
  state.counters["service_calls"] = static_cast<double>(calls);
  state.counters["options"] = static_cast<double>(report.options.size());
  const auto changes = std::count_if(report.writes.begin(), report.writes.end(), [](const sim::VariableWrite& write) {
    return write.kind != sim::VariableWrite::Kind::Unchanged && write.kind != sim::VariableWrite::Kind::Refused;
  });
  state.counters["variable_calls"] = static_cast<double>(report.writes.size());
  state.counters["variables_changed"] = static_cast<double>(changes);
  state.counters["pool_peak"] = static_cast<double>(report.poolPeak);
  state.counters["virtual_ms"] = static_cast<double>(report.outcome.time / sim::kMillisecond);
}

void WholeBoot(benchmark::State& state) {
  const auto size = static_cast<unsigned>(state.range(0));
  Server server(DiskServer(size, kNoBmc), {});
  AddOptions(server, size);
  static_cast<void>(server.Boot({}));
  BootReport report;
  for (auto _ : state) {
    report = server.Boot({});
  }
  Count(state, report);
}
BENCHMARK(WholeBoot)->Arg(8)->Arg(64)->Arg(512)->Unit(benchmark::kMillisecond);

void Step(benchmark::State& state, const std::string& step) {
  const auto size = static_cast<unsigned>(state.range(0));
  Server server(DiskServer(size, kNoBmc), {});
  AddOptions(server, size);
  Count(state, TimeStep(state, server, step));
}

void Loading(benchmark::State& state) { Step(state, "ReadBootOptions"); }
void Matching(benchmark::State& state) { Step(state, "MatchBootOptionsToDevices"); }
void Saving(benchmark::State& state) { Step(state, "SaveBootOptions"); }
BENCHMARK(Loading)->Arg(8)->Arg(64)->Arg(512)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(Matching)->Arg(8)->Arg(64)->Arg(512)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(Saving)->Arg(8)->Arg(64)->Arg(512)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

// "--waits SERVER.toml...": the listing instead of the benchmarks.
int main(int argc, char** argv) {
  if (argc > 2 && std::string_view(argv[1]) == "--waits") {
    return ListWaits(std::span(argv, static_cast<std::size_t>(argc)).subspan(2));
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

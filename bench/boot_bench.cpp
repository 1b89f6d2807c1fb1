// Whole boots and their option work at 8, 64 and 512 options on as many devices, with exact counts per boot. Time is
// the host's; the counters are the simulated server's and repeat from run to run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <span>

#include "bench/waits.h"
#include "tests/whole_boots/server_builder.h"

namespace {

using sim::BootReport;
using sim::Server;
using sim::ServerDescription;

// As many SATA disks as asked for, 32 on a controller, each with a system partition and a foreign option.
ServerDescription DiskServer(unsigned disks) {
  ServerDescription server = sim::test::PlainServer(
      "[bmc]\nfiles = false\n[setup]\nuefi_mode = 0\n"
      "[nvram]\nsize = 4194304\n");
  for (unsigned first = 0; first < disks; first += 32) {
    std::vector<sim::SataDevice> sata;
    for (unsigned i = first; i < disks && i < first + 32; ++i) {
      sata.push_back(sim::SataDisk(static_cast<std::uint16_t>(i - first), sim::test::SystemDisk(i + 1),
                                   fmt::format("S{:04}", i + 1)));
    }
    const unsigned controller = first / 32;
    server.devices.rootBridges[0].functions.push_back(
        sim::Ahci(static_cast<std::uint8_t>(1 + controller / 8), static_cast<std::uint8_t>(controller % 8), sata));
  }
  return server;
}

void AddOptions(Server& server, unsigned count) {
  std::vector<std::uint16_t> order;
  for (unsigned i = 0; i < count; ++i) {
    const auto path = sim::test::PartitionPath(i + 1, u"\\EFI\\BOOT\\BOOTX64.EFI");
    static_cast<void>(server.Variables().Set(sim::test::OptionVariable(static_cast<std::uint16_t>(i)),
                                             gEfiGlobalVariableGuid, sim::test::kKept,
                                             sim::test::LoadOptionBytes(u"system", path.Bytes())));
    order.push_back(static_cast<std::uint16_t>(i));
  }
  static_cast<void>(
      server.Variables().Set(u"BootOrder", gEfiGlobalVariableGuid, sim::test::kKept, std::as_bytes(std::span(order))));
}

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
  Server server(DiskServer(size), {});
  AddOptions(server, size);
  static_cast<void>(server.Boot({}));
  BootReport report;
  for (auto _ : state) {
    report = server.Boot({});
  }
  Count(state, report);
}
BENCHMARK(WholeBoot)->Arg(8)->Arg(64)->Arg(512)->Unit(benchmark::kMillisecond);

// The host's time between the lines that two steps print before they begin.
void Step(benchmark::State& state, const std::string& step) {
  const auto size = static_cast<unsigned>(state.range(0));
  Server server(DiskServer(size), {});
  AddOptions(server, size);
  static_cast<void>(server.Boot({}));
  BootReport report;
  for (auto _ : state) {
    std::chrono::steady_clock::time_point start;
    double seconds = 0;
    bool running = false;
    sim::BootRequest request;
    request.debugMask |= 0x20;
    request.onLogLine = [&](const std::string& line) {
      if (!line.starts_with("BDS.")) {
        return;
      }
      if (running) {
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      }
      running = line.starts_with("BDS." + step + "(");
      start = std::chrono::steady_clock::now();
    };
    report = server.Boot(request);
    state.SetIterationTime(seconds);
  }
  Count(state, report);
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

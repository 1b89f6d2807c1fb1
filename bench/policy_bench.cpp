// The step that tags the options under a policy: time and service calls of the step by options, targets and devices
// that no option names. UEFI: a managed server with disks. Legacy: the same disks as entries of the BBS table.
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <numeric>

#include "bench/disk_server.h"

namespace {

constexpr char kStep[] = "VBootSetBootOptionTags";

// Of four kinds in turn: identity numbers, a network port that is not there, USB devices, a loader's name.
std::string Target(unsigned index) {
  switch (index % 4) {
    case 0:
      return R"(<FlexBootTarget value="LocalHDD"><PciVid value="8086" /><PciDid value="7" /></FlexBootTarget>)";
    case 1:
      return R"(<FlexBootTarget value="LAN"><MACAddress value="02:00:00:00:00:01" /></FlexBootTarget>)";
    case 2:
      return R"(<FlexBootTarget value="USB"><USBSubType value="HDD" /></FlexBootTarget>)";
    default:
      return R"(<FlexBootTarget value="LocalHDD"><BootLoaderName value="other.efi" /></FlexBootTarget>)";
  }
}

std::string Policy(unsigned targets, const char* type) {
  std::string text = fmt::format(R"(<?xml version="1.0"?><FlexBootOrder><FlexBootOrderHeader><BootType value="{}" />)"
                                 R"(<NumBootTargets value="{:x}" /></FlexBootOrderHeader><FlexBootTargets>)",
                                 type, targets);
  for (unsigned i = 0; i < targets; ++i) {
    text += Target(i);
  }
  return text + "</FlexBootTargets></FlexBootOrder>\n";
}

// Network ports on buses of their own: more handles of PCI functions, and no option in the other mode.
void AddDevices(sim::DeviceTree& tree, unsigned count) {
  for (unsigned first = 0; first < count; first += 32) {
    std::vector<sim::PciFunction> behind;
    for (unsigned i = first; i < count && i < first + 32; ++i) {
      sim::PciFunction function;
      function.device = static_cast<std::uint8_t>(i % 32);
      behind.push_back(function);
    }
    tree.rootBridges[0].functions.push_back(
        sim::Bridge(static_cast<std::uint8_t>(0x18 + first / 32), 0, std::move(behind)));
  }
}

void Tagging(benchmark::State& state, bool legacy) {
  const auto options = static_cast<unsigned>(state.range(0));
  const auto targets = static_cast<unsigned>(state.range(1));
  const std::filesystem::path file = std::filesystem::temp_directory_path() / "bds-bench-policy.xml";
  std::ofstream(file) << Policy(targets, legacy ? "legacy" : "uefi");
  sim::ServerDescription description =
      DiskServer(options, legacy ? "[csm]\n[management]\nmanaged = true\n"
                                 : "[setup]\nuefi_mode = 1\n[management]\nmanaged = true\n");
  description.policy = file;
  AddDevices(description.devices, static_cast<unsigned>(state.range(2)));
  sim::Server server(std::move(description), {});
  if (!legacy) {
    AddOptions(server, options);
  }
  const sim::BootReport report = TimeStep(state, server, kStep);
  std::filesystem::remove(file);
  for (const sim::StepReport& step : report.steps) {
    if (step.name == kStep) {
      state.counters["service_calls"] = static_cast<double>(step.serviceCalls);
    }
  }
  state.counters["options"] = static_cast<double>(report.options.size());
  if (report.log.find("Running tag processors") == std::string::npos) {
    state.SkipWithError("no policy was in force");
  }
}

void TaggingUefi(benchmark::State& state) { Tagging(state, false); }
void TaggingLegacy(benchmark::State& state) { Tagging(state, true); }

void Sizes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"options", "targets", "devices"})->UseManualTime()->Unit(benchmark::kMicrosecond);
  for (const int targets : {8, 16, 32}) {
    for (const int options : {16, 32, 64, 128}) {
      bench->Args({options, targets, 0});
    }
  }
  bench->Args({64, 32, 64});
  bench->Args({64, 32, 128});
}
BENCHMARK(TaggingUefi)->Apply(Sizes);
BENCHMARK(TaggingLegacy)->Apply(Sizes);

}  // namespace

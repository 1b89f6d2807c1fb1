#include "bench/disk_server.h"

#include <chrono>
#include <span>

#include "tests/whole_boots/server_builder.h"

using sim::BootReport;
using sim::Server;
using sim::ServerDescription;

ServerDescription DiskServer(unsigned disks, const std::string& further) {
  ServerDescription server = sim::test::PlainServer("[nvram]\nsize = 4194304\n" + further);
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

BootReport TimeStep(benchmark::State& state, Server& server, const std::string& step) {
  // The line that a step prints before it begins ends the one before it.
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
  return report;
}

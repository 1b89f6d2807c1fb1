#include "bench/waits.h"

#include <fmt/format.h>

#include "sim/server/server.h"

namespace {

// A step that waits less than this is a few register accesses, not a wait.
constexpr sim::Ticks kShown = sim::kMillisecond / 10;
constexpr unsigned kMostStarts = 5;

double Milliseconds(sim::Ticks ticks) { return static_cast<double>(ticks) / sim::kMillisecond; }

void PrintStart(const std::string& title, const sim::BootReport& report) {
  fmt::print("{}: {:.1f} ms\n", title, Milliseconds(report.outcome.time));
  fmt::print("  {:>4}  {:<34}{:>10}{:>10}{:>10}{:>10}{:>10}\n", "step", "name", "waited ms", "events", "ports", "stall",
             "device");
  const auto by = [](const sim::StepReport& step, sim::Passing passing) {
    return Milliseconds(step.waited[static_cast<std::size_t>(passing)]);
  };
  for (std::size_t number = 0; number < report.steps.size(); ++number) {
    const sim::StepReport& step = report.steps[number];
    if (step.duration >= kShown) {
      fmt::print("  {:>4}  {:<34}{:>10.1f}{:>10.1f}{:>10.1f}{:>10.1f}{:>10.1f}\n", number, step.name,
                 Milliseconds(step.duration), by(step, sim::Passing::Event), by(step, sim::Passing::Port),
                 by(step, sim::Passing::Stall), by(step, sim::Passing::Device));
    }
  }
}

void Boot(sim::Server& server, const std::string& title, const sim::BootRequest& request) {
  for (unsigned start = 1; start <= kMostStarts; ++start) {
    const sim::BootReport report = server.Boot(request);
    PrintStart(start == 1 ? title : fmt::format("{}, behind reset {}", title, start - 1), report);
    if (report.outcome.end != sim::BootEnd::Reset) {
      return;
    }
  }
}

}  // namespace

int ListWaits(std::span<char* const> descriptions) {
  try {
    for (const char* file : descriptions) {
      const sim::ServerDescription description = sim::LoadServerDescription(file);
      sim::Server server(description, {});
      Boot(server, description.name + ", first boot", {});
      Boot(server, description.name + ", second boot", {});
      sim::BootRequest dead;
      dead.faults = {"no-answer:always"};
      Boot(server, description.name + ", BMC without an answer", dead);
    }
  } catch (const std::exception& error) {
    fmt::print(stderr, "{}\n", error.what());
    return 2;
  }
  return 0;
}

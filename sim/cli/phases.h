// The steps of the control flow gathered into phases, so that a summary can say where the time went in a few lines.
#pragma once

#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "sim/server/server.h"

namespace sim {

enum class Phase { Platform, Drivers, Bmc, Options, Order, Saving, HandOver, Other };
inline constexpr std::size_t kPhaseCount = 8;

struct PhaseStep {
  std::string_view step;
  Phase phase;
};
// Every step of the driver once, in the order in which they run.
std::span<const PhaseStep> PhaseSteps();

const char* PhaseName(Phase phase);
// Phase::Other for a name that is no step's.
Phase PhaseOf(std::string_view step);

// Its place in the control flow, from 1; 0 for a name that is no step's.
unsigned StepNumber(std::string_view step);

// Virtual time by phase, in the order of the enumeration. What passed outside all steps is Phase::Other, so that the
// phases add up to the whole boot.
std::array<Ticks, kPhaseCount> PhaseTimes(const BootReport& report);

}  // namespace sim

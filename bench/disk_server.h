// The server that the benchmarks boot, and the host's time that one step of its boots takes.
#pragma once

#include <benchmark/benchmark.h>

#include <string>

#include "sim/server/server.h"

// As many SATA disks as asked for, 32 on a controller, each with a system partition. further is more of the
// description's text, tables last.
sim::ServerDescription DiskServer(unsigned disks, const std::string& further);
// One option of an operating system's for each disk, in order.
void AddOptions(sim::Server& server, unsigned count);
// Boots once untimed, then times the step alone; the report of the last boot.
sim::BootReport TimeStep(benchmark::State& state, sim::Server& server, const std::string& step);

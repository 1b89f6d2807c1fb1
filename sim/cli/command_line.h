// The command line of bds-sim.
#pragma once

namespace sim {

// Parses, carries the command out and gives the exit status. Everything that is wrong is said on standard error.
int RunCommandLine(int argc, char** argv);

}  // namespace sim

// bds-sim: the simulated server at the command line.
#include "sim/cli/command_line.h"

int main(int argc, char** argv) { return sim::RunCommandLine(argc, argv); }

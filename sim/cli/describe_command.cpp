// bds-sim describe: the machine of a description with every driver connected, before the boot driver runs.
#include <fmt/format.h>

#include "sim/cli/commands.h"
#include "sim/cli/device_tree_text.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/terminal.h"
#include "sim/server/server.h"

namespace sim {
namespace {

// Leaves a boot before its driver starts.
struct Listed {
  std::string text;
};

// Connecting makes handles whose own drivers connect with them, so one round over the handles at hand is enough.
void ConnectAll(Machine& machine) {
  for (const EFI_HANDLE handle : machine.Handles().All()) {
    static_cast<void>(machine.ConnectController(handle, nullptr, nullptr, true));
  }
}

}  // namespace

int RunDescribe(const DescribeArguments& arguments) {
  Server server(LoadServerDescription(arguments.description), {});
  BootRequest request;
  request.beforeStart = [](Machine& machine) {
    ConnectAll(machine);
    throw Listed{DeviceTreeText(ListDevices(machine.Handles()), OutputStyle())};
  };
  try {
    static_cast<void>(server.Boot(request));
  } catch (const Listed& listed) {
    fmt::print("{}\n{}", OutputStyle().Strong(PrintableText(server.Description().name)), listed.text);
    return kExitStarted;
  }
  return Fail("the machine was started without being listed");
}

}  // namespace sim

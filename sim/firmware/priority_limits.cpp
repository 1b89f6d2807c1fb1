#include "sim/firmware/priority_limits.h"

#include <algorithm>
#include <iterator>

namespace sim {
namespace {

struct Limit {
  std::string_view service;
  EFI_TPL highest;
};

// Where the table says "below", the row holds the highest level that is: TPL_APPLICATION for "below TPL_CALLBACK",
// since the levels between belong to the firmware.
constexpr EFI_TPL kBelowHighLevel = TPL_HIGH_LEVEL - 1;
constexpr Limit kLimits[] = {
    {"AllocatePages", TPL_NOTIFY},
    {"FreePages", TPL_NOTIFY},
    {"GetMemoryMap", TPL_NOTIFY},
    {"AllocatePool", TPL_NOTIFY},
    {"FreePool", TPL_NOTIFY},
    {"CreateEvent", kBelowHighLevel},
    {"CreateEventEx", kBelowHighLevel},
    {"SetTimer", kBelowHighLevel},
    {"CloseEvent", kBelowHighLevel},
    {"CheckEvent", kBelowHighLevel},
    {"WaitForEvent", TPL_APPLICATION},
    {"InstallProtocolInterface", TPL_NOTIFY},
    {"ReinstallProtocolInterface", TPL_NOTIFY},
    {"UninstallProtocolInterface", TPL_NOTIFY},
    {"HandleProtocol", TPL_NOTIFY},
    {"RegisterProtocolNotify", TPL_NOTIFY},
    {"LocateHandle", TPL_NOTIFY},
    {"LocateHandleBuffer", TPL_NOTIFY},
    {"LocateDevicePath", TPL_NOTIFY},
    {"LocateProtocol", TPL_NOTIFY},
    {"OpenProtocol", TPL_NOTIFY},
    {"CloseProtocol", TPL_NOTIFY},
    {"OpenProtocolInformation", TPL_NOTIFY},
    {"ProtocolsPerHandle", TPL_NOTIFY},
    {"ConnectController", TPL_NOTIFY},
    {"DisconnectController", TPL_NOTIFY},
    {"InstallMultipleProtocolInterfaces", TPL_NOTIFY},
    {"UninstallMultipleProtocolInterfaces", TPL_NOTIFY},
    {"LoadImage", TPL_APPLICATION},
    {"StartImage", TPL_APPLICATION},
    {"UnloadImage", TPL_CALLBACK},
    {"Exit", TPL_CALLBACK},
    {"ExitBootServices", TPL_APPLICATION},
    {"GetTime", TPL_CALLBACK},
    {"SetTime", TPL_CALLBACK},
    {"GetWakeupTime", TPL_CALLBACK},
    {"SetWakeupTime", TPL_CALLBACK},
    {"GetVariable", TPL_CALLBACK},
    {"GetNextVariableName", TPL_CALLBACK},
    {"SetVariable", TPL_CALLBACK},
    {"QueryVariableInfo", TPL_CALLBACK},
};
// Those that may be called at any level.
constexpr std::string_view kUnlimited[] = {"CalculateCrc32",   "GetNextMonotonicCount", "InstallConfigurationTable",
                                           "SetWatchdogTimer", "SignalEvent",           "Stall"};

}  // namespace

EFI_TPL HighestPriority(std::string_view service) {
  for (const Limit& limit : kLimits) {
    if (limit.service == service) {
      return limit.highest;
    }
  }
  return TPL_HIGH_LEVEL;
}

bool IsServiceName(std::string_view service) {
  return std::ranges::find(kLimits, service, &Limit::service) != std::end(kLimits) ||
         std::ranges::find(kUnlimited, service) != std::end(kUnlimited);
}

}  // namespace sim

// The frame around every service entry point: count, budget, task priority, fault script, then the work.
//   EFI_STATUS EFIAPI GetVariable(const CHAR16* name, ...) {
//     return ServiceCall("GetVariable", TPL_CALLBACK, [&](Machine& m) { return m.Get<Variables>().Get(name, ...); });
//   }
#pragma once

#include <string_view>

#include "sim/firmware/machine.h"

namespace sim {

template <typename Body>
EFI_STATUS ServiceCall(std::string_view service, EFI_TPL maxTpl, Body&& body) {
  Machine& machine = Machine::Current();
  if (const auto scripted = machine.OnCall(service, maxTpl)) return *scripted;
  return body(machine);
}

}  // namespace sim

// Lines that go to the log and, the same, to the people who read the report on the BMC.
#pragma once

#include "support/debug_print.h"
#include "vboot/policy_engine.h"

namespace bds {

template <typename... Args>
void TellPolicyReader(FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
  DebugPrintV(DEBUG_LEVEL_ALL, format.Text(), {arguments, sizeof...(Args)});
  AppendPolicyDebugTextV(format.Text(), {arguments, sizeof...(Args)});
}

}  // namespace bds

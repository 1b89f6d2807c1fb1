// Whether a policy is well-formed XML, by a library that knows all of XML.
#pragma once

#include <optional>
#include <string_view>

#include "sim/policy/policy_reading.h"

namespace sim {

// The first place where the text is not well-formed, and why; nothing when it is.
std::optional<PolicyFinding> FindXmlError(std::string_view text);

}  // namespace sim

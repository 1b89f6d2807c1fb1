// One thing that a policy's author should know.
#pragma once

#include <cstddef>
#include <string>

namespace sim {

enum class FindingKind {
  Note,     // worth knowing; nothing is lost
  Warning,  // something does not become what was meant
  Refusal,  // the driver refuses the policy
};

struct PolicyFinding {
  FindingKind kind;
  std::size_t line = 0;    // from 1
  std::size_t column = 0;  // from 1, in bytes
  std::string text;
};

}  // namespace sim

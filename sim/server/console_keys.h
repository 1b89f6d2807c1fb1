// Where the keys of the simulated console come from.
#pragma once

#include <optional>

#include "platform/simple_text_in.h"

namespace sim {

class ConsoleKeys {
 public:
  virtual ~ConsoleKeys() = default;
  // The next key; nothing when none is waiting.
  virtual std::optional<EFI_INPUT_KEY> Next() = 0;
  // Waits for a key on the host; false when none will ever come (end of input).
  virtual bool Wait() = 0;
};

}  // namespace sim

// The driver's strings as the HII database gives them back, in the platform's language where it has them.
#pragma once

#include "bootopt/names/driver_strings.h"
#include "support/pool.h"

namespace bds {

// Registers the driver's strings with the HII database; failures leave the literal fall-backs in force.
void RegisterStrings();
// The string of this id in the platform language, else in en-US; null when it cannot be had.
[[nodiscard]] PoolPtr<CHAR16> GetDriverString(UINT16 id);

// A driver string, or the text that stands for it when the HII database cannot give it.
class DriverText {
 public:
  explicit DriverText(DriverString id);
  // The string; the literal where a fall-back exists; else null.
  const CHAR16* Or(const CHAR16* literal) const { return text_ ? text_.get() : literal; }

 private:
  PoolPtr<CHAR16> text_;
};

}  // namespace bds

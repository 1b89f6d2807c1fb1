// The runtime services of a machine (UEFI 2.10, chapter 8): variables on a store, time from the machine's clock, and
// the reset that ends a boot. The store belongs to whoever runs several boots; each machine gets these services anew.
#pragma once

#include "platform/runtime_services.h"
#include "sim/firmware/machine.h"
#include "sim/firmware/services/current.h"
#include "sim/firmware/variables/variable_store.h"

namespace sim {

class RuntimeServices : public CurrentModel<RuntimeServices> {
 public:
  // Fills the machine's runtime services table. A write that changed a non-volatile variable is a write of kind "nvram"
  // for the fault script; the store must outlive the machine.
  RuntimeServices(Machine& machine, VariableStore& store);

  VariableStore& Store() { return store_; }
  // Name of the variable of the standard's own GUID that GetVariable gave last; empty when the last was another's.
  const std::u16string& LastRead() const { return lastRead_; }
  // Name of the last boot option (UEFI 2.10, 3.1.3: Boot and four digits) that GetVariable gave.
  const std::u16string& LastBootOption() const { return lastBootOption_; }

 private:
  struct Calls;
  EFI_TIME Now() const;

  Machine& machine_;
  VariableStore& store_;
  std::u16string lastRead_;
  std::u16string lastBootOption_;
  // The wall clock at power-on, 2026-01-01 00:00:00 UTC; GetTime adds the virtual time.
  EFI_TIME start_{2026, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0};
};

}  // namespace sim

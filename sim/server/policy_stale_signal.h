// The platform's word that the boot policy of a standalone server is no longer current: a protocol that appears when a
// step of the driver begins, as another driver's event would install it.
#pragma once

#include <string>
#include <string_view>

#include "sim/firmware/machine.h"

namespace sim {

class PolicyStaleSignal {
 public:
  // step: as kStepNames has it; empty: the signal never comes.
  PolicyStaleSignal(Machine& machine, std::string step);
  PolicyStaleSignal(const PolicyStaleSignal&) = delete;
  PolicyStaleSignal& operator=(const PolicyStaleSignal&) = delete;

  // The driver begins the step. The protocol follows as soon as the priority allows it.
  void OnStep(std::string_view name);

 private:
  static void EFIAPI Install(EFI_EVENT event, void* context);

  Machine& machine_;
  std::string step_;
  EFI_EVENT event_ = nullptr;
};

}  // namespace sim

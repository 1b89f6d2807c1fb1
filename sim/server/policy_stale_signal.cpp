#include "sim/server/policy_stale_signal.h"

#include "platform/flexboot_protocol.h"

namespace sim {

PolicyStaleSignal::PolicyStaleSignal(Machine& machine, std::string step) : machine_(machine), step_(std::move(step)) {
  if (!step_.empty()) {
    static_cast<void>(machine_.BootServices()->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, Install, this, &event_));
  }
}

void PolicyStaleSignal::OnStep(std::string_view name) {
  if (event_ != nullptr && name == step_) {
    static_cast<void>(machine_.Events().Signal(event_));
  }
}

void EFIAPI PolicyStaleSignal::Install(EFI_EVENT, void* context) {
  EFI_HANDLE handle = nullptr;
  static_cast<void>(
      static_cast<PolicyStaleSignal*>(context)->machine_.Handles().Install(&handle, &kPolicyStaleSignalGuid, nullptr));
}

}  // namespace sim

// Legacy option ROMs: which are run, and what the platform is asked and told about them.
#include "platform/csm_policy.h"
#include "platform/pci_io.h"
#include "sim/bus/option_rom.h"
#include "sim/csm/csm.h"

namespace sim {
namespace {

// The platform's say over option ROMs, whichever of the two hooks it publishes; members null when it has none.
struct OptionRomPolicy {
  CSM_POLICY_HOOK_B* checks = nullptr;
  EFI_STATUS(EFIAPI* hook)(CSM_OPTION_ROM_CONTEXT* context) = nullptr;
};

OptionRomPolicy FindOptionRomPolicy(Machine& machine) {
  OptionRomPolicy policy;
  void* found = nullptr;
  if (!EFI_ERROR(machine.Handles().LocateProtocol(&ProtocolGuid<CSM_POLICY_HOOK_A>, nullptr, &found))) {
    policy.hook = static_cast<CSM_POLICY_HOOK_A*>(found)->OptionRomHook;
  }
  if (!EFI_ERROR(machine.Handles().LocateProtocol(&ProtocolGuid<CSM_POLICY_HOOK_B>, nullptr, &found))) {
    policy.checks = static_cast<CSM_POLICY_HOOK_B*>(found);
    policy.hook = policy.checks->OptionRomHook;
  }
  return policy;
}

}  // namespace

// The platform is asked before each ROM runs, and told when all have run. The ROMs' own code is not run here.
void Csm::RunOptionRoms() {
  const OptionRomPolicy policy = FindOptionRomPolicy(machine_);
  const AcrossCalls handles(machine_.Held(), machine_.Handles().With(ProtocolGuid<EFI_PCI_IO_PROTOCOL>));
  bool any = false;
  for (const EFI_HANDLE handle : *handles) {
    auto* pci = machine_.Handles().Get<EFI_PCI_IO_PROTOCOL>(handle);
    const bool legacy = pci != nullptr && HasLegacyImage({static_cast<const std::byte*>(pci->RomImage), pci->RomSize});
    if (!legacy || optionRomsRun_.contains(handle)) {
      continue;
    }
    if (policy.checks != nullptr && EFI_ERROR(policy.checks->CheckPci(policy.checks, handle))) {
      continue;
    }
    CSM_OPTION_ROM_CONTEXT context{pci, 1};
    if (policy.hook != nullptr) {
      static_cast<void>(policy.hook(&context));
    }
    machine_.Counts().Add("csm.option_roms");
    optionRomsRun_.insert(handle);
    any = true;
  }
  if (any && policy.hook != nullptr) {
    static_cast<void>(policy.hook(nullptr));
  }
}

}  // namespace sim

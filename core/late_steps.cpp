// The finishing steps before the handoff: late drivers, memory that nobody tested, used-up capsule variables.
#include "core/steps.h"
#include "platform/dxe_services.h"
#include "platform/signals.h"
#include "support/format.h"
#include "support/pool.h"
#include "support/services.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT64 kMemoryStates = EFI_MEMORY_PRESENT | EFI_MEMORY_INITIALIZED | EFI_MEMORY_TESTED;
constexpr UINT64 kUntested = EFI_MEMORY_PRESENT | EFI_MEMORY_INITIALIZED;
// What stays of the capabilities when the memory becomes system memory.
constexpr UINT64 kKeptCapabilities = 0x78FFFFFFFFFFFFFF;
constexpr UINT32 kMaxCapsules = 0x10000;

DXE_SERVICES* DxeServices() { return static_cast<DXE_SERVICES*>(FindConfigurationTable(gEfiDxeServicesTableGuid)); }

bool IsUntested(const EFI_GCD_MEMORY_SPACE_DESCRIPTOR& space) {
  return space.GcdMemoryType == EfiGcdMemoryTypeReserved && (space.Capabilities & kMemoryStates) == kUntested;
}

void MakeUsable(const DXE_SERVICES& services, const EFI_GCD_MEMORY_SPACE_DESCRIPTOR& space) {
  if (!EFI_ERROR(services.RemoveMemorySpace(space.BaseAddress, space.Length))) {
    static_cast<void>(services.AddMemorySpace(EfiGcdMemoryTypeSystemMemory, space.BaseAddress, space.Length,
                                              space.Capabilities & kKeptCapabilities));
  }
}

}  // namespace

EFI_STATUS CallTheDispatcher() {
  const DXE_SERVICES* services = DxeServices();
  return services != nullptr ? services->Dispatch() : EFI_NOT_FOUND;
}

void RecoverTheMemoryAbove4Gb() {
  const DXE_SERVICES* services = DxeServices();
  PoolPtr<EFI_GCD_MEMORY_SPACE_DESCRIPTOR> map;
  UINTN count = 0;
  if (services == nullptr || EFI_ERROR(services->GetMemorySpaceMap(&count, map.put())) || !map) {
    return;
  }
  for (UINTN i = 0; i < count; ++i) {
    if (IsUntested(map[i])) {
      MakeUsable(*services, map[i]);
    }
  }
}

EFI_STATUS PerformCapsuleVariableCleanup() {
  constexpr const CHAR16* kName = u"CapsuleUpdateData";
  EFI_STATUS status = DeleteVariable(kName, gEfiCapsuleVendorGuid);
  for (UINT32 i = 1; !EFI_ERROR(status) && i < kMaxCapsules; ++i) {
    CHAR16 numbered[32];
    FormatUtf16(numbered, "%s%d", kName, i);
    status = DeleteVariable(numbered, gEfiCapsuleVendorGuid);
  }
  return status;
}

}  // namespace bds

// All drivers on all controllers, and the legacy option ROMs behind them.
#include "core/connect_device_path.h"
#include "core/legacy_io_nodes.h"
#include "core/state.h"
#include "core/steps.h"
#include "platform/block_io.h"
#include "platform/legacy_bios.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr UINT32 kFloppyIds[] = {kFloppyController, kOldFloppyController};

EFI_HANDLE FindFloppyController() {
  for (const UINT32 id : kFloppyIds) {
    const ACPI_HID_DEVICE_PATH node = AcpiNode(id);
    const auto path = AppendNode(gCore.IsaBridgePath.get(), &node.Header);
    if (EFI_HANDLE handle = path ? HandleOfWholePath(path.get()) : nullptr; handle != nullptr) {
      return handle;
    }
  }
  return nullptr;
}

// A floppy controller without a drive would show up as a device that can never be booted.
void DetachEmptyFloppyController() {
  EFI_HANDLE bridge = gCore.IsaBridgePath ? HandleOfWholePath(gCore.IsaBridgePath.get()) : nullptr;
  if (bridge == nullptr) {
    return;
  }
  EFI_HANDLE controller = FindFloppyController();
  if (controller != nullptr && !HasProtocol(controller, ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>)) {
    static_cast<void>(BootServices()->DisconnectController(bridge, nullptr, controller));
  }
}

}  // namespace

EFI_STATUS ShadowAllLegacyOptionRoms() {
  EFI_LEGACY_BIOS_PROTOCOL* legacyBios = nullptr;
  const EFI_STATUS status = LocateProtocol(legacyBios);
  return EFI_ERROR(status) ? status : legacyBios->ShadowAllLegacyOproms(legacyBios);
}

EFI_STATUS ConnectEverything() {
  for (EFI_HANDLE handle : gCore.AllHandles) {
    static_cast<void>(BootServices()->ConnectController(handle, nullptr, nullptr, TRUE));
  }
  DetachEmptyFloppyController();
  return ShadowAllLegacyOptionRoms();
}

}  // namespace bds

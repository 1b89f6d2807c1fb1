// The PCI root bridges: connected twice, since drivers that wait for the end of DXE may add to what they find.
#include "core/steps.h"
#include "platform/pci_root_bridge_io.h"
#include "support/debug_print.h"
#include "support/protocols.h"

namespace bds {

void ConnectRootBridgeHandlesBeforeEndOfDxe() { ConnectRootBridgeHandles(); }

void ConnectRootBridgeHandles() {
  HandleBuffer bridges;
  const EFI_STATUS status = bridges.Locate(ProtocolGuid<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>);
  if (EFI_ERROR(status)) {
    DebugPrint("ConnectRootBridgeHandles:Failed getting RootBridge handles:%0x\n", status);
    return;
  }
  DebugPrint("ConnectRootBridgeHandles:RootBridge count:%d\n", bridges.size());
  for (EFI_HANDLE bridge : bridges) {
    static_cast<void>(BootServices()->ConnectController(bridge, nullptr, nullptr, FALSE));
  }
}

}  // namespace bds

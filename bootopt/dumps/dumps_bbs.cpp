// The dump of the CSM's BBS table.
#include "bootopt/bbs_table.h"
#include "bootopt/dumps/dumps.h"
#include "support/debug_print.h"
#include "support/protocols.h"

namespace bds {
namespace {

// A location that the CSM does not know is all ones; its low byte is what a reader of the dump expects.
UINT32 ShownLocation(UINT32 value) { return value == ~UINT32{0} ? 255 : value; }

void PrintMissingPath(EFI_HANDLE handle) {
  EFI_DEVICE_PATH_PROTOCOL* path = nullptr;
  const EFI_STATUS status = handle != nullptr ? OpenOn(handle, path) : EFI_INVALID_PARAMETER;
  if (EFI_ERROR(status)) {
    DebugPrint("Handle=%x, HandleProtocol status: %r, DevicePath: %x\n", handle, status, path);
  }
}

void PrintEntry(UINTN index, const BBS_TABLE& entry) {
  const BbsText description = CopyBbsText(BbsDescription(entry));
  DebugPrint("#%02d: %d %02X/%02X/%02X %x %x %x %04X handle: %x %x, %a\n", index, UINT16{entry.BootPriority},
             ShownLocation(entry.Bus), ShownLocation(entry.Device), ShownLocation(entry.Function), entry.Class,
             entry.SubClass, UINT16{entry.DeviceType}, UINT16{entry.StatusFlags}, UINT32{entry.IBV1},
             UINT32{entry.IBV2}, description.Text);
  PrintMissingPath(BbsHandle(entry));
}

}  // namespace

void DumpBbsTable(const BBS_TABLE* table) {
  DebugPrint("\nBBS_TABLE dump start\n");
  for (UINTN index = 0; table != nullptr && index < kBbsTableEntries; ++index) {
    if (table[index].BootPriority < kBbsEmpty) {
      PrintEntry(index, table[index]);
    }
  }
  DebugPrint("\nBBS_TABLE dump end\n");
}

}  // namespace bds

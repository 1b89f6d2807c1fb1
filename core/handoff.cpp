// The handoff to the setup front end, which shows the boot menu or setup and normally boots.
#include "bootopt/bbs_table.h"
#include "bootopt/dumps/dumps.h"
#include "core/boot.h"
#include "core/dump_nvram.h"
#include "core/steps.h"
#include "platform/legacy_bios.h"
#include "platform/setup_front_end.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/variables.h"

namespace bds {
namespace {

// UEFI 2.10, 3.1.4 and 8.5.4: keys and applications, sysprep, up to three keys; firmware UI and timestamp revocation.
constexpr UINT32 kBootOptionSupport = 0x00000313;
constexpr UINT64 kOsIndicationsSupported = 3;

template <typename Value>
void PublishVolatile(const CHAR16* name, Value value) {
  static_cast<void>(WriteVariable(name, gEfiGlobalVariableGuid, kVolatileBootRuntime, AsBytes(value)));
}

}  // namespace

void ReportBbsDevices() {
  EFI_LEGACY_BIOS_PROTOCOL* legacyBios = nullptr;
  if (const EFI_STATUS status = LocateProtocol(legacyBios); EFI_ERROR(status)) {
    DebugPrint("ReportBbsDevices:Failed locating LegacyBios:%r\n", status);
    return;
  }
  BbsInfo info;
  if (EFI_ERROR(GetBbsInfo(info))) {
    return;
  }
  DebugPrint("ReportBbsDevices:HDDCount:%d,BbsCount:%d\n", info.HddCount, info.BbsCount);
  DumpBbsTable(info.Table);
}

EFI_STATUS HandoffToKui() {
  ReportBbsDevices();
  DumpNvramOptions();
  PublishVolatile(u"BootOptionSupport", kBootOptionSupport);
  PublishVolatile(u"OsIndicationsSupported", kOsIndicationsSupported);
  SETUP_FRONT_END_PROTOCOL* frontEnd = nullptr;
  const EFI_STATUS status = LocateProtocol(frontEnd);
  return EFI_ERROR(status) ? status : frontEnd->Run();
}

}  // namespace bds

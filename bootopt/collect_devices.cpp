// Fills the device list: UEFI devices by the protocols that can load a boot image, legacy devices from the BBS table.
#include "bootopt/bbs_table.h"
#include "bootopt/dumps/dumps.h"
#include "bootopt/steps.h"
#include "platform/load_file.h"
#include "platform/simple_file_system.h"
#include "platform/usb_support.h"
#include "support/debug_print.h"
#include "support/protocols.h"

namespace bds {
namespace {

// A device on a handle with one of these can load a boot image. A handle with both is collected twice.
constexpr const EFI_GUID* kBootableProtocols[] = {
    &ProtocolGuid<EFI_LOAD_FILE_PROTOCOL>,
    &ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>,
};

void CollectProtocolDevices(const EFI_GUID& protocol) {
  HandleBuffer handles;
  if (EFI_ERROR(handles.Locate(protocol))) {
    return;
  }
  for (const EFI_HANDLE handle : handles) {
    CreateBootDevice(BootDeviceList, handle, kNoBbsIndex, nullptr);
  }
}

void CollectBbsDevices() {
  BbsInfo bbs;
  const EFI_STATUS status = GetBbsInfo(bbs);
  if (EFI_ERROR(status)) {
    DebugPrint("CollectBbsDevices:Failed locating LegacyBios:%0x\n", status);
    return;
  }
  DebugPrint("CollectBbsDevices:HDDCount:%d,BbsCount:%d\n", bbs.HddCount, bbs.BbsCount);
  DumpBbsTable(bbs.Table);
  for (UINT16 index = 0; index < bbs.BbsCount; ++index) {
    BBS_TABLE& entry = bbs.Table[index];
    if (entry.BootPriority < kBbsEmpty) {
      CreateBootDevice(BootDeviceList, BbsHandle(entry), index, &entry);
    }
  }
}

}  // namespace

EFI_STATUS CollectUsbBbsDevices() {
  USB_SUPPORT_PROTOCOL* usbSupport = nullptr;
  const EFI_STATUS status = LocateProtocol(usbSupport);
  return EFI_ERROR(status) ? status : usbSupport->UpdateBbsDevices();
}

void CollectBootDevices() {
  DebugPrint("CollectBootDevices:Protocol devices\n");
  for (const EFI_GUID* protocol : kBootableProtocols) {
    CollectProtocolDevices(*protocol);
  }
  DebugPrint("CollectBootDevices:BBS devices\n");
  CollectBbsDevices();
  // A device that there was no memory for, to collect it or to connect it before, is not gone, and its option no orphan.
  gBootOptions.OrphansUncertain = PoolWatch::SinceEntry().Exhausted();
}

}  // namespace bds

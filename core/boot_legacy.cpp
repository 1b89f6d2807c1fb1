// Booting a legacy option: the CSM boots the BBS entry of priority 0, so the chosen entry trades places with it.
#include "bootopt/bbs_table.h"
#include "core/boot.h"
#include "platform/legacy_bios.h"
#include "support/protocols.h"

namespace bds {
namespace {

struct Choice {
  BBS_TABLE* First = nullptr;   // has priority 0 now; may be the chosen one
  BBS_TABLE* Chosen = nullptr;  // the lowest priority of the type asked for
};

Choice Choose(const BbsInfo& info, UINT16 deviceType) {
  Choice choice;
  for (UINT16 i = 0; i < info.BbsCount; ++i) {
    BBS_TABLE& entry = info.Table[i];
    if (entry.BootPriority == kBbsEmpty || entry.BootPriority == kBbsSetAside) {
      continue;
    }
    if (entry.BootPriority == 0 && choice.First == nullptr) {
      choice.First = &entry;
    }
    if (entry.DeviceType == deviceType &&
        (choice.Chosen == nullptr || entry.BootPriority < choice.Chosen->BootPriority)) {
      choice.Chosen = &entry;
    }
  }
  return choice;
}

}  // namespace

EFI_STATUS BootLegacyOption(const DevicePath* path, UINT16 number) {
  EFI_LEGACY_BIOS_PROTOCOL* legacyBios = nullptr;
  EFI_STATUS status = LocateProtocol(legacyBios);
  if (EFI_ERROR(status)) {
    return status;
  }
  BbsInfo info;
  status = GetBbsInfo(info);
  if (EFI_ERROR(status)) {
    return status;
  }
  if (NodeLength(path) < offsetof(BBS_BBS_DEVICE_PATH, StatusFlag)) {
    return EFI_INVALID_PARAMETER;
  }
  const UINT16 deviceType = LoadUnaligned<UINT16>(NodeBytes(path).data() + offsetof(BBS_BBS_DEVICE_PATH, DeviceType));
  const Choice choice = Choose(info, deviceType);
  if (choice.Chosen == nullptr) {
    return EFI_NOT_FOUND;
  }
  if (choice.First != nullptr) {
    choice.First->BootPriority = choice.Chosen->BootPriority;
  }
  choice.Chosen->BootPriority = 0;
  SignalReadyToBoot(number);
  auto* node = reinterpret_cast<BBS_BBS_DEVICE_PATH*>(const_cast<DevicePath*>(path));
  return legacyBios->LegacyBoot(legacyBios, node, 0, nullptr);
}

}  // namespace bds

#include "bootopt/bbs_table.h"

#include "platform/legacy_bios_ext.h"
#include "support/debug_print.h"
#include "support/legacy_memory.h"
#include "support/memory.h"
#include "support/protocols.h"

namespace bds {
namespace {

bool SameFunctionAndClass(const BBS_TABLE& a, const BBS_TABLE& b) {
  return a.Bus == b.Bus && a.Device == b.Device && a.Function == b.Function && a.Class == b.Class &&
         a.SubClass == b.SubClass;
}

}  // namespace

EFI_STATUS GetBbsInfo(BbsInfo& info) {
  info = {};
  EFI_LEGACY_BIOS_PROTOCOL* legacyBios = nullptr;
  EFI_STATUS status = LocateProtocol(legacyBios);
  if (EFI_ERROR(status)) {
    return status;
  }
  HDD_INFO* hddInfo = nullptr;
  BbsInfo found;
  status = legacyBios->GetBbsInfo(legacyBios, &found.HddCount, &hddInfo, &found.BbsCount, &found.Table);
  if (EFI_ERROR(status)) {
    return status;
  }
  if (found.Table == nullptr) {
    return EFI_NOT_FOUND;
  }
  if (found.BbsCount > kBbsTableEntries) {
    found.BbsCount = kBbsTableEntries;
  }
  info = found;
  return EFI_SUCCESS;
}

EFI_HANDLE BbsHandle(const BBS_TABLE& entry) {
  return reinterpret_cast<EFI_HANDLE>(UINT64{entry.IBV2} << 32 | UINT64{entry.IBV1});
}

UINT8 BbsInstanceNumber(const BBS_TABLE* table, UINT16 index) {
  UINT16 before = index;
  while (before != 0 && SameFunctionAndClass(table[before - 1], table[index])) {
    --before;
  }
  return static_cast<UINT8>(index - before);
}

std::span<const char> BbsDescription(const BBS_TABLE& entry) {
  return LegacyString(entry.DescStringSegment, entry.DescStringOffset, kBbsStringCapacity);
}

std::span<const char> BbsManufacturer(const BBS_TABLE& entry) {
  return LegacyString(entry.MfgStringSegment, entry.MfgStringOffset, kBbsStringCapacity);
}

BbsText CopyBbsText(std::span<const char> text) {
  BbsText copy{};
  CopyMemory(copy.Text, text.data(), text.size() < kBbsStringCapacity ? text.size() : kBbsStringCapacity);
  return copy;
}

void DeleteBbsEntry(const BOOT_OPTION& option) {
  if (!IsLegacyOption(option)) {
    return;
  }
  DebugPrint("%a: Deleting the BbsIndex: %d entry from the BbsTable\n", "DeleteBbsEntry", option.BbsIndex);
  LEGACY_BIOS_EXT_PROTOCOL* extension = nullptr;
  EFI_STATUS status = LocateProtocol(extension);
  if (EFI_ERROR(status)) {
    DebugPrint("%a: Unable to locate Legacy BIOS Protocol Status = %r\n", "DeleteBbsEntry", status);
    return;
  }
  status = extension->DeleteBbsEntry(extension, static_cast<UINT8>(option.BbsIndex & 0xFF));
  if (EFI_ERROR(status)) {
    DebugPrint("%a: Unable to delete the BbsIndex: %d entry from the BbsTable Status = %r\n", "DeleteBbsEntry",
               option.BbsIndex, status);
  }
}

}  // namespace bds

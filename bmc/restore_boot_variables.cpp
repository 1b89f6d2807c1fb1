// The step that puts the copies of BootOrder and the Boot#### variables on the BMC back into NVRAM, once.
//
// A BMC that says nothing about a file is not taken for one without it: what was not restored is not replaced either.
#include "bmc/boot_variable_files.h"
#include "bmc/bt_file.h"
#include "bmc/copy_notes.h"
#include "bmc/restored_marker.h"
#include "bmc/state.h"
#include "bmc/steps.h"
#include "bootopt/load_option.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

// A save that lost its power leaves the first whole pieces of a file; the variable it was made from is there then.
bool IsTornCopyOf(Bytes file, Bytes variable) {
  return file.size() % MAX_BT_PIECE_SIZE == 0 && file.size() < variable.size() &&
         EqualMemory(file.data(), variable.data(), file.size());
}

// Writes one variable from the whole units of its file, unless NVRAM holds the whole of what the file holds a part of.
EFI_STATUS RestoreVariable(const CHAR16* name, Bytes file, UINTN unit) {
  PoolBuffer present;
  if (!EFI_ERROR(ReadVariable(name, gEfiGlobalVariableGuid, present)) && IsTornCopyOf(file, present.Bytes())) {
    return EFI_SUCCESS;
  }
  const Bytes whole = file.first(file.size() - file.size() % unit);
  return WriteVariableFirmly(name, gEfiGlobalVariableGuid, kNonVolatileBootRuntime, whole);
}

void RestoreOption(UINT16 number) {
  const OptionFileName name = BootOptionFileName(number);
  PoolBuffer file;
  const PoolWatch watch;
  const BmcFile copy = ReadCopy(name.Text, file);
  // A file that cannot be had is skipped for good, but one that was not asked for, or had no room, is left to the next
  // boot.
  if (copy == BmcFile::Unknown && (BtAllowanceIsSpent() || watch.Exhausted())) {
    gBmc.Copies = BOOT_COPIES::NotRestored;
  }
  DebugPrint("\n UEFIBoot: Read %a file, size = %xh \n", name.Text, file.Size);
  LoadOptionView view;
  if (copy != BmcFile::Present || !ViewLoadOption(file.Bytes(), view)) {
    DebugPrint("\n UEFIBoot: fails to ready %a file, %a vairable not restored \n", name.Text, name.Text);
    return;
  }
  const EFI_STATUS status = RestoreVariable(BootVariableName(number), file.Bytes(), 1);
  if (EFI_ERROR(status)) {
    gBmc.Copies = gBmc.Copies == BOOT_COPIES::MayBeReplaced ? BOOT_COPIES::OptionRefused : gBmc.Copies;
    DebugPrint("\n UEFIBoot: set [ BootStr ] variable failed! Status: 0x%lx\n", status);
  }
}

void MarkRestored() {
  constexpr UINT16 kRestored = 1;
  const EFI_STATUS status =
      WriteVariableFirmly(kBootOptionRestoredName, kBootOptionRestoredGuid, kNonVolatileBoot, AsBytes(kRestored));
  if (EFI_ERROR(status)) {
    DebugPrint("\n UEFIBoot: set [ BootOptionRestored ] variable failed! Status: 0x%lx\n", status);
  }
}

// What comes of it without a single option: MayBeReplaced when the order is in NVRAM now.
BOOT_COPIES RestoreOrder(PoolBuffer& order) {
  const BmcFile copy = ReadOrderCopy(order);
  if (copy != BmcFile::Present) {
    DebugPrint("\n UEFIBoot: BtReadBootVariableFile return failed! \n");
    return copy == BmcFile::Missing ? BOOT_COPIES::Denied : BOOT_COPIES::NotRestored;
  }
  DebugPrint("\n UEFIBoot: Read %a file, size = %xh \n", kOrderFile, order.Size);
  const EFI_STATUS status = RestoreVariable(kOrderVariable, order.Bytes(), sizeof(UINT16));
  if (EFI_ERROR(status)) {
    DebugPrint("\n UEFIBoot: set [ BootOrder ] variable failed!  Status: 0x%lx (%r)\n", status, status);
    return BOOT_COPIES::NotRestored;
  }
  return BOOT_COPIES::MayBeReplaced;
}

// What NVRAM refuses is restored by the next boot, but by no further one: it may never fit, and each restore undoes
// what the user changed since.
void GiveUpWhatIsRefusedAgain() {
  if (gBmc.Copies == BOOT_COPIES::OptionRefused) {
    if (EFI_ERROR(ReadNote(kOptionRefused))) {
      static_cast<void>(LeaveNote(kOptionRefused));
      return;
    }
    gBmc.Copies = BOOT_COPIES::MayBeReplaced;
  }
  if (gBmc.Copies == BOOT_COPIES::MayBeReplaced) {
    RemoveNote(kOptionRefused);
  }
}

}  // namespace

void RestoreEfiBootVariablesFromBMC() {
  if (!BeginCopyStep("\n UEFIBoot: Calling RestoreEfiBootVariablesFromBMC()")) {
    return;
  }
  DebugPrint("\n UEFIBoot: Geting BootOrder variable ....");
  PoolBuffer marker;
  const EFI_STATUS marked = ReadVariable(kBootOptionRestoredName, kBootOptionRestoredGuid, marker);
  if (!EFI_ERROR(marked)) {
    DebugPrint("\n UEFIBoot: EFI BootOptionRestored variable is detected, no need to restore it \n");
    return;
  }
  if (marked != EFI_NOT_FOUND) {
    DebugPrint("%a:BootOptionRestored cannot be read:%r\n", "RestoreEfiBootVariablesFromBMC", marked);
    gBmc.Copies = BOOT_COPIES::NotRestored;
    return;
  }
  PoolBuffer order;
  gBmc.Copies = RestoreOrder(order);
  if (gBmc.Copies != BOOT_COPIES::MayBeReplaced) {
    return;
  }
  ForEachNumber(order.Bytes(), RestoreOption);
  GiveUpWhatIsRefusedAgain();
  if (gBmc.Copies == BOOT_COPIES::MayBeReplaced) {
    MarkRestored();
  }
}

}  // namespace bds

// The step that copies BootOrder and the Boot#### variables to the BMC. A server's first copy is followed by a warm
// reset, the safe reboot.
//
// A BMC that says nothing about a file is not taken for one without it: no first save, and no reset, follows from
// silence, and no second reset from a BMC that forgets what it was given.
#include "bmc/boot_variable_files.h"
#include "bmc/bt_file.h"
#include "bmc/copy_notes.h"
#include "bmc/pm_timer.h"
#include "bmc/restored_marker.h"
#include "bmc/state.h"
#include "bmc/steps.h"
#include "support/debug_print.h"
#include "support/services.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT16 kProbedOptions = 3;  // Boot0001 to Boot0003 tell whether a copy without BootOrder exists
constexpr UINTN kTries = 2;

enum class Saving : UINT8 { Update, First, Refused };

// ---- Whether to save

Saving Refuse(const char* why) {
  DebugPrint("%a:%a\n", "SaveEfiBootVaiablesToBMC", why);
  return Saving::Refused;
}

// NVRAM is what the copies are made from: they were restored once.
bool CopiesWereRestored() {
  UINT16 marker = 0;
  UINTN size = 0;
  return !EFI_ERROR(ReadVariableInto(kBootOptionRestoredName, kBootOptionRestoredGuid,
                                     std::as_writable_bytes(std::span(&marker, 1)), size));
}

// No order is on the BMC. Without options either this is the first save; with them somebody damaged the copies, unless
// it was an earlier save of this server: one that noted it, or one that lost its power when the file was made and
// nothing written yet.
Saving ExamineOptions(bool orderIsEmpty) {
  bool anyPresent = false;
  for (UINT16 number = 1; number <= kProbedOptions; ++number) {
    const OptionFileName name = BootOptionFileName(number);
    DebugPrint("\n UEFIBoot: Checking  %a file on BMC\n", name.Text);
    PoolBuffer file;
    const BmcFile copy = ReadCopy(name.Text, file);
    DebugPrint(copy == BmcFile::Present ? FormatString<>(" Is Present\n") : FormatString<>(" Is Not Present\n"));
    if (copy == BmcFile::Unknown) {
      return Saving::Refused;
    }
    anyPresent = anyPresent || copy == BmcFile::Present;
  }
  if (!anyPresent) {
    return Saving::First;
  }
  if (!EFI_ERROR(ReadNote(kOrderFileUnfinished)) || (orderIsEmpty && CopiesWereRestored())) {
    return Saving::Update;
  }
  DebugPrint("\n UEFIBoot: INVALID CONDITION DETECTED. BootOrder var is absent on BMC - but Bootxxxx is present\n");
  return Saving::Refused;
}

Saving ExamineCopies() {
  constexpr char kNotRestored[] = "Copies not restored yet, keeping them";
  if (gBmc.Copies == BOOT_COPIES::NotRestored || gBmc.Copies == BOOT_COPIES::OptionRefused) {
    return Refuse(kNotRestored);
  }
  PoolBuffer order;
  const BmcFile copy = ReadCopy(kOrderFile, order);
  const bool empty = copy == BmcFile::Present && order.Size < sizeof(UINT16);
  if (copy == BmcFile::Present && !empty) {
    RemoveNote(kSafeRebootMade);
    return gBmc.Copies == BOOT_COPIES::Denied ? Refuse(kNotRestored) : Saving::Update;
  }
  DebugPrint("\n UEFIBoot: failed to open %a file \n", kOrderFile);
  const Saving saving = copy == BmcFile::Unknown ? Saving::Refused : ExamineOptions(empty);
  const bool forOneBoot = gBmc.OneTimeRequestInForce != FALSE || gBmc.OneTimePolicyInForce != FALSE;
  return saving == Saving::First && forOneBoot
             ? Refuse("The reset would lose the boot request, the first save waits for the next boot")
             : saving;
}

// ---- Saving

// Fills a file that was opened for writing, and closes it. True when the BMC took it all.
bool FillCopy(BT_FILE_CONTEXT& context, Bytes bytes) {
  const UINT8 result = BtWriteFile(context, bytes.data(), static_cast<UINT32>(bytes.size()));
  const bool written = result == BT_DONE && context.IsOpen != 0;
  const bool closed = BtCloseVariableFile(context) == 0;
  PmTimerStall(kBtSettleTime);
  return written && closed;
}

bool WriteOrder(Bytes order) {
  BT_FILE_CONTEXT context;
  return BtOpenFile(context, kOrderFile, BT_CREATE_FILE) == BT_DONE && FillCopy(context, order);
}

// Options without an order would look like damaged copies, and no later boot would save any more: hence the second try,
// and the note when that fails too.
bool SaveOrder(Bytes order) {
  DebugPrint("\n UEFIBoot: EFI BootOrder Variable size = %xh \n", order.size());
  for (UINTN tries = 0; tries < kTries; ++tries) {
    if (WriteOrder(order)) {
      RemoveNote(kOrderFileUnfinished);
      return true;
    }
  }
  DebugPrint("%a:The BMC does not take %a\n", "SaveEfiBootVaiablesToBMC", kOrderFile);
  LeaveNote(kOrderFileUnfinished);
  return false;
}

void WriteOption(const OptionFileName& name, Bytes image) {
  for (UINTN tries = 0; tries < kTries; ++tries) {
    BT_FILE_CONTEXT context;
    if (BtOpenFile(context, name.Text, BT_CREATE_FILE) != BT_DONE) {
      DebugPrint("\n UEFIBoot: fail to open %a file to write\n", name.Text);
      if (!BtUnheard(context)) {
        return;  // a no is not asked for twice
      }
      continue;
    }
    DebugPrint("\n UEFIBoot: Write to file %a\n", name.Text);
    if (FillCopy(context, image)) {
      return;
    }
  }
}

void SaveOption(UINT16 number) {
  const OptionFileName name = BootOptionFileName(number);
  PoolBuffer image;
  if (EFI_ERROR(ReadVariable(BootVariableName(number), gEfiGlobalVariableGuid, image))) {
    DebugPrint("\n UEFIBoot: fail to get EFI %a variable to save \n", name.Text);
    return;
  }
  WriteOption(name, image.Bytes());  // what is missed now the next boot's save brings
}

// Reads the order back: a BMC that took the files but does not keep them would be given its first save again.
bool OrderReachedBmc(Bytes order) {
  PoolBuffer kept;
  return ReadOrderCopy(kept) == BmcFile::Present && kept.Size == order.size() &&
         EqualMemory(kept.Data.get(), order.data(), order.size());
}

// At most once in a row: the note stays until a boot finds the copies, and without it there is no reset. It is looked
// for twice, so that one failing read of NVRAM makes no loop either.
void SafeReboot() {
  if (ReadNote(kSafeRebootMade) != EFI_NOT_FOUND) {
    DebugPrint("%a:The BMC did not keep its first copy, no further safe reboot\n", "SaveEfiBootVaiablesToBMC");
    return;
  }
  if (!LeaveNote(kSafeRebootMade)) {
    return;
  }
  DebugPrint("\n UEFIBoot: Server is booting first time in UEFI Boot Mode - issue a safe reboot ....\n");
  RuntimeServices()->ResetSystem(EfiResetWarm, EFI_SUCCESS, 0, nullptr);
}

}  // namespace

void SaveEfiBootVaiablesToBMC() {
  if (!BeginCopyStep("\n UEFIBoot: Calling SaveEfiBootVaiablesToBMC()\n")) {
    return;
  }
  const Saving saving = ExamineCopies();
  if (saving == Saving::Refused) {
    return;
  }
  // Read before the file is replaced: without the variable the BMC keeps the copy it has.
  PoolBuffer order;
  if (EFI_ERROR(ReadVariable(kOrderVariable, gEfiGlobalVariableGuid, order))) {
    DebugPrint("\n UEFIBoot: fail to get EFI BootOrder variable \n");
    return;
  }
  if (!SaveOrder(order.Bytes())) {
    return;
  }
  ForEachNumber(order.Bytes(), SaveOption);
  if (saving == Saving::First && OrderReachedBmc(order.Bytes())) {
    SafeReboot();
  }
}

}  // namespace bds

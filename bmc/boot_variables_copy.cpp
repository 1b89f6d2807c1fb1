// The steps that keep copies of BootOrder and the Boot#### variables as files on the BMC and put them back.
//
// A BMC that says nothing about a file is not taken for one without the file: no first save, and no reset, follows
// from silence.
#include "bmc/bt_file.h"
#include "bmc/bt_read_file.h"
#include "bmc/pm_timer.h"
#include "bmc/restored_marker.h"
#include "bmc/state.h"
#include "bmc/steps.h"
#include "bootopt/load_option.h"
#include "support/debug_print.h"
#include "support/number_set.h"
#include "support/services.h"
#include "support/setup.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr char kOrderFile[] = "BootOrder";
constexpr CHAR16 kOrderVariable[] = u"BootOrder";
constexpr char kRuler[] = "\n ============================================================== ";
constexpr UINT16 kProbedOptions = 3;  // Boot0001 to Boot0003 tell whether a copy without BootOrder exists

struct FileName {
  char Text[12];
};

FileName OptionFileName(UINT16 number) {
  FileName name{};
  FormatAscii(name.Text, "Boot%04X", number);
  return name;
}

bool UefiModeIsOn() {
  SetupVariable setup;
  return !EFI_ERROR(ReadSetup(setup)) && setup.At(kSetupUefiMode) != 0;
}

enum class Copy : UINT8 { Present, Missing, Unknown };

// Reads a file of the BMC, a second time when the first brought no answer; file holds its bytes when it is present.
Copy ReadCopy(const char* name, PoolBuffer& file) {
  bool heard = false;
  for (UINTN tries = 0; tries < 2 && !heard; ++tries) {
    file.Data = BtReadBootVariableFile(name, file.Size, &heard);
  }
  if (file.Data) {
    return Copy::Present;
  }
  file.Size = 0;
  return heard ? Copy::Missing : Copy::Unknown;
}

// The same for the order, where a file without a whole number is as good as none.
Copy ReadOrderCopy(PoolBuffer& order) {
  const Copy copy = ReadCopy(kOrderFile, order);
  return copy == Copy::Present && order.Size < sizeof(UINT16) ? Copy::Missing : copy;
}

// Calls routine(number) once for every number of an order; half a number at its end is none.
template <typename Routine>
void ForEachNumber(Bytes order, Routine routine) {
  NumberSet seen;
  ByteReader reader(order);
  for (UINT16 number = 0; reader.Read(number);) {
    if (!seen || seen.Insert(number)) {
      routine(number);
    }
  }
}

// ---- Saving

enum class Saving : UINT8 { Update, First, Refused };

// An order is missing on the BMC: true when there are no options either, so that this is the first save.
bool NoOptionsOnBmc() {
  bool anyPresent = false;
  for (UINT16 number = 1; number <= kProbedOptions; ++number) {
    const FileName name = OptionFileName(number);
    DebugPrint("\n UEFIBoot: Checking  %a file on BMC\n", name.Text);
    PoolBuffer file;
    const Copy copy = ReadCopy(name.Text, file);
    DebugPrint(copy == Copy::Present ? FormatString<>(" Is Present\n") : FormatString<>(" Is Not Present\n"));
    if (copy == Copy::Unknown) {
      return false;
    }
    anyPresent = anyPresent || copy == Copy::Present;
  }
  if (anyPresent) {
    DebugPrint("\n UEFIBoot: INVALID CONDITION DETECTED. BootOrder var is absent on BMC - but Bootxxxx is present\n");
  }
  return !anyPresent;
}

// The BMC holds options that this boot could not restore; the next boot tries again.
Saving KeepCopies() {
  DebugPrint("%a:Copies not restored yet, keeping them\n", "SaveEfiBootVaiablesToBMC");
  return Saving::Refused;
}

Saving ExamineCopies() {
  if (gBmc.CopiesUnread) {
    return KeepCopies();
  }
  PoolBuffer order;
  const Copy copy = ReadOrderCopy(order);
  if (copy == Copy::Present) {
    return gBmc.NoCopyToRestore ? KeepCopies() : Saving::Update;
  }
  DebugPrint("\n UEFIBoot: failed to open %a file \n", kOrderFile);
  return copy == Copy::Missing && NoOptionsOnBmc() ? Saving::First : Saving::Refused;
}

// Fills a file that was opened for writing, and closes it. True when the BMC took it all.
bool FillCopy(BT_FILE_CONTEXT& context, Bytes bytes) {
  const UINT8 result = BtWriteFile(context, bytes.data(), static_cast<UINT32>(bytes.size()));
  const bool written = result == BT_DONE && context.IsOpen != 0;
  const bool closed = BtCloseVariableFile(context) == 0;
  PmTimerStall(kBtSettleTime);
  return written && closed;
}

bool SaveOrder(Bytes order) {
  BT_FILE_CONTEXT context;
  return BtOpenFile(context, kOrderFile, BT_CREATE_FILE) == BT_DONE && FillCopy(context, order);
}

void SaveOption(UINT16 number) {
  const FileName name = OptionFileName(number);
  PoolBuffer image;
  if (EFI_ERROR(ReadVariable(BootVariableName(number), gEfiGlobalVariableGuid, image))) {
    DebugPrint("\n UEFIBoot: fail to get EFI %a variable to save \n", name.Text);
    return;
  }
  BT_FILE_CONTEXT context;
  if (BtOpenFile(context, name.Text, BT_CREATE_FILE) != BT_DONE) {
    DebugPrint("\n UEFIBoot: fail to open %a file to write\n", name.Text);
    return;
  }
  DebugPrint("\n UEFIBoot: Write to file %a\n", name.Text);
  static_cast<void>(FillCopy(context, image.Bytes()));  // what is missed now the next boot's save brings
}

// Saves the order, then every option it lists. True when the BMC took the order.
bool SaveVariables(Bytes order) {
  DebugPrint("\n UEFIBoot: EFI BootOrder Variable size = %xh \n", order.size());
  // Options without an order would look like a damaged copy, and no later boot would save any more: hence the second
  // try, and no options when that fails too.
  if (!SaveOrder(order) && !SaveOrder(order)) {
    DebugPrint("%a:The BMC does not take %a\n", "SaveEfiBootVaiablesToBMC", kOrderFile);
    return false;
  }
  ForEachNumber(order, SaveOption);
  return true;
}

// Reads the order back: a BMC that took the files but does not keep them would be given its first save, and the
// server its reset, at every boot.
bool OrderReachedBmc(Bytes order) {
  PoolBuffer kept;
  return ReadOrderCopy(kept) == Copy::Present && kept.Size == order.size() &&
         EqualMemory(kept.Data.get(), order.data(), order.size());
}

// ---- Restoring

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
  return WriteVariable(name, gEfiGlobalVariableGuid, kNonVolatileBootRuntime,
                       file.first(file.size() - file.size() % unit));
}

void RestoreOption(UINT16 number) {
  const FileName name = OptionFileName(number);
  PoolBuffer file;
  const Copy copy = ReadCopy(name.Text, file);
  // A file that cannot be had is skipped for good, but one that was not asked for is left to the next boot.
  gBmc.CopiesUnread = gBmc.CopiesUnread || (copy == Copy::Unknown && BtAllowanceIsSpent());
  DebugPrint("\n UEFIBoot: Read %a file, size = %xh \n", name.Text, file.Size);
  LoadOptionView view;
  if (copy != Copy::Present || !ViewLoadOption(file.Bytes(), view)) {
    DebugPrint("\n UEFIBoot: fails to ready %a file, %a vairable not restored \n", name.Text, name.Text);
    return;
  }
  const EFI_STATUS status = RestoreVariable(BootVariableName(number), file.Bytes(), 1);
  if (EFI_ERROR(status)) {
    DebugPrint("\n UEFIBoot: set [ BootStr ] variable failed! Status: 0x%lx\n", status);
  }
}

void MarkRestored() {
  constexpr UINT16 kRestored = 1;
  const EFI_STATUS status =
      WriteVariable(kBootOptionRestoredName, kBootOptionRestoredGuid, kNonVolatileBoot, AsBytes(kRestored));
  if (EFI_ERROR(status)) {
    DebugPrint("\n UEFIBoot: set [ BootOptionRestored ] variable failed! Status: 0x%lx\n", status);
  }
}

}  // namespace

void SaveEfiBootVaiablesToBMC() {
  if (!UefiModeIsOn()) {
    return;
  }
  DebugPrint("\n UEFIBoot: Calling SaveEfiBootVaiablesToBMC()\n");
  DebugPrintText(kRuler);
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
  const bool reached = SaveVariables(order.Bytes());
  if (saving != Saving::First || !reached || !OrderReachedBmc(order.Bytes())) {
    return;
  }
  DebugPrint("\n UEFIBoot: Server is booting first time in UEFI Boot Mode - issue a safe reboot ....\n");
  RuntimeServices()->ResetSystem(EfiResetWarm, EFI_SUCCESS, 0, nullptr);
}

void RestoreEfiBootVariablesFromBMC() {
  if (!UefiModeIsOn()) {
    return;
  }
  DebugPrint("\n UEFIBoot: Calling RestoreEfiBootVariablesFromBMC()");
  DebugPrintText(kRuler);
  DebugPrint("\n UEFIBoot: Geting BootOrder variable ....");
  if (VariableExists(kBootOptionRestoredName, kBootOptionRestoredGuid)) {
    DebugPrint("\n UEFIBoot: EFI BootOptionRestored variable is detected, no need to restore it \n");
    return;
  }
  PoolBuffer order;
  const Copy copy = ReadOrderCopy(order);
  if (copy != Copy::Present) {
    gBmc.CopiesUnread = copy == Copy::Unknown;
    gBmc.NoCopyToRestore = copy == Copy::Missing;
    DebugPrint("\n UEFIBoot: BtReadBootVariableFile return failed! \n");
    return;
  }
  DebugPrint("\n UEFIBoot: Read %a file, size = %xh \n", kOrderFile, order.Size);
  const EFI_STATUS status = RestoreVariable(kOrderVariable, order.Bytes(), sizeof(UINT16));
  if (EFI_ERROR(status)) {
    DebugPrint("\n UEFIBoot: set [ BootOrder ] variable failed!  Status: 0x%lx (%r)\n", status, status);
    return;
  }
  ForEachNumber(order.Bytes(), RestoreOption);
  if (!gBmc.CopiesUnread) {
    MarkRestored();
  }
}

}  // namespace bds

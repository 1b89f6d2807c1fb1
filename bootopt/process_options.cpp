// Removes what lost its device for good, and hides what may come back.
#include "bootopt/dumps/dumps.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr UINTN kDeleteWithVariable = 1;
constexpr char kPreProcess[] = "PreProcessBootOptions";

// A header has its members right behind it, under the same tag.
bool HasMembers(const BOOT_OPTION& header) {
  return header.Next != nullptr && header.Tag != kUnassigned && header.Next->Tag == header.Tag;
}

// A number counts once: kept, the second record of a firmware option would be saved as the first one's member.
void DropRepeatedOptions() {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    if (option->Repeated != FALSE) {
      DeleteBootOption(BootOptionList, option);
    }
    option = next;
  }
}

void ProcessOrphan(BOOT_OPTION* orphan) {
  if (orphan->FwBootOption == FALSE) {
    DebugPrint("%a:Keeping a non FwBootOption type Orphan:%a\n", kPreProcess, orphan->Description.get());
    return;
  }
  if (gBootOptions.OrphansUncertain) {
    DebugPrint("%a:Keeping a FwBootOption whose device may be there:%a\n", kPreProcess, orphan->Description.get());
    return;
  }
  DebugPrint("%a:Deleting a FwBootOption type Orphan:%a\n", kPreProcess, orphan->Description.get());
  DeleteBootOptionAndVariable(BootOptionList, orphan, kDeleteWithVariable);
}

}  // namespace

void PreProcessBootOptions() {
  DumpBootOptionList(BootOptionList, "Before Processing");
  DropRepeatedOptions();
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    if (IsOrphan(*option)) {
      ProcessOrphan(option);
    }
    option = next;
  }
  DumpBootOptionList(BootOptionList, "After Processing");
}

void PostProcessBootOptions() {
  static_cast<void>(HaveVbootPolicy());  // asked for its messages
  SortList(BootOptionList, CompareByTag);
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    if (option->GroupHeader != FALSE) {
      DebugPrint("%a:Checking is Group Header:%a with Tag:%0x orphan\n", "PostProcessBootOptions",
                 option->Description.get(), option->Tag);
      if (!HasMembers(*option)) {
        DebugPrint("%a:Deleting Orphan Header:%a\n", "PostProcessBootOptions", option->Description.get());
        DeleteBootOptionAndVariable(BootOptionList, option, kDeleteWithVariable);
      }
    }
    option = next;
  }
}

void ApplyOemBootOptionPolicy() {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (!IsUefiHardDiskOption(*option)) {
      continue;
    }
    if (IsMatched(*option)) {
      DebugPrint("%a:Unhiding UEFI HDD Orphan:%a\n", "ApplyOemBootOptionPolicy", option->Description.get());
      option->Attributes &= ~LOAD_OPTION_HIDDEN;
    } else {
      DebugPrint("%a:Hiding UEFI HDD Orphan:%a\n", "ApplyOemBootOptionPolicy", option->Description.get());
      option->Attributes |= LOAD_OPTION_HIDDEN;
    }
  }
}

}  // namespace bds

// The steps that delete or switch options by the management mode and the UEFI boot setting.
#include "bmc/management_mode.h"
#include "bmc/restored_marker.h"
#include "bmc/state.h"
#include "bmc/steps.h"
#include "bootopt/boot_lists.h"
#include "support/debug_print.h"
#include "support/setup.h"

namespace bds {
namespace {

constexpr UINT8 kUefiModeOff = 0;
constexpr UINT8 kUefiModeOn = 1;

// Calls visit for every option of the list; visit may delete the option it is given.
template <typename Visit>
void ForEachOption(Visit visit) {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    BOOT_OPTION* next = option->Next;
    visit(*option);
    option = next;
  }
}

bool AllowedInUefiMode(const BOOT_OPTION& option) { return !IsLegacyOption(option); }
bool AllowedInLegacyMode(const BOOT_OPTION& option) {
  return IsLegacyOption(option) || IsBuiltInApplicationOption(option);
}

void FilterManaged(bool uefiMode) {
  DebugPrint("%a:Server is in Zephan mode with UEFI mode turned %a\n", "RemoveNonSupportedBootOptions",
             uefiMode ? "on" : "off");
  if (!uefiMode) {
    static_cast<void>(DeleteVariable(kBootOptionRestoredName, kBootOptionRestoredGuid));
  }
  ForEachOption([uefiMode](BOOT_OPTION& option) {
    if (uefiMode ? AllowedInUefiMode(option) : AllowedInLegacyMode(option)) {
      return;
    }
    DebugPrint("**** Delete option : %a \n", option.Description.get());
    DeleteBootOption(BootOptionList, &option);
  });
}

// The options that the UEFI setting switches: UEFI options whose path begins with an ACPI or a media node.
bool FollowsUefiSetting(const BOOT_OPTION& option) {
  if (IsLegacyOption(option) || IsBuiltInApplicationOption(option) || !option.FilePathList) {
    return false;
  }
  const UINT8 type = option.FilePathList->Type;
  return type == ACPI_DEVICE_PATH || type == MEDIA_DEVICE_PATH;
}

void FilterStandalone(UINT8 uefiMode) {
  DebugPrint("%a:Server is in Standalone mode with UEFI mode turned %a\n", "RemoveNonSupportedBootOptions",
             uefiMode != kUefiModeOff ? "on" : "off");
  if (uefiMode > kUefiModeOn) {
    return;
  }
  ForEachOption([uefiMode](BOOT_OPTION& option) {
    if (!FollowsUefiSetting(option)) {
      return;
    }
    if (uefiMode == kUefiModeOn) {
      DebugPrint("**** Making  option active : %a \n", option.Description.get());
      option.Attributes |= LOAD_OPTION_ACTIVE;
      return;
    }
    DebugPrint("**** Making  option  non active: %a \n", option.Description.get());
    option.Attributes &= ~LOAD_OPTION_ACTIVE;
  });
}

UINT8 StbuMode() {
  SetupVariable setup;
  return EFI_ERROR(ReadSetup(setup)) ? UINT8{0} : setup.At(kSetupStbuMode);
}

}  // namespace

void RemoveNonSupportedBootOptions() {
  SetupVariable setup;
  if (const EFI_STATUS status = ReadSetup(setup); EFI_ERROR(status)) {
    DebugPrint("%a:Failed reading Setup:%r\n", "RemoveNonSupportedBootOptions", status);
    return;
  }
  if (gBmc.ZephanConfigMode) {
    DebugPrint("%a:Server is in Zephan config mode, Keeping all the boot options alive\n",
               "RemoveNonSupportedBootOptions");
    return;
  }
  const ZEPHAN_MODE_INFO* info = LocateZephanMode();
  if (info == nullptr) {
    return;
  }
  const UINT8 uefiMode = setup.At(kSetupUefiMode);
  DebugPrint("%a:System Mode : %x UEFI : %x\n", "RemoveNonSupportedBootOptions", info->Mode, uefiMode);
  if (info->Mode != 0) {
    FilterManaged(uefiMode != kUefiModeOff);
    return;
  }
  FilterStandalone(uefiMode);
}

void RemoveOrphanOptions() {
  DebugPrint("RemoveOrphanOptions() \n");
  const UINT8 stbuMode = StbuMode();
  const ZEPHAN_MODE_INFO* info = LocateZephanMode();
  if (info == nullptr || (info->Mode != 1 && stbuMode == 0)) {
    return;
  }
  DebugPrint("Zephan mode \n");
  if (gBootOptions.OrphansUncertain) {
    DebugPrint("%a:Memory ran out, no orphan is deleted on this boot\n", "RemoveOrphanOptions");
    return;
  }
  ForEachOption([](BOOT_OPTION& option) {
    if (IsMatched(option)) {
      return;
    }
    DebugPrint("****Found an orphan: Delete option : %S \n", option.Description.get());
    DeleteBootOption(BootOptionList, &option);
  });
}

}  // namespace bds

// The step that makes options for the loaders of operating systems on fixed disks.
#include "bootopt/boot_lists.h"
#include "bootopt/file_path_builders.h"
#include "bootopt/handle_path.h"
#include "osopt/loader_path.h"
#include "osopt/loader_table.h"
#include "osopt/steps.h"
#include "support/debug_print.h"
#include "support/file.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

bool IsStartedByAnOption(Bytes loaderPath) {
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    const Bytes path{reinterpret_cast<const std::byte*>(option->FilePathList.get()),
                     option->FilePathList ? option->FilePathListLength : 0};
    if (!EFI_ERROR(CompareOsLoaderPath(path, loaderPath))) {
      return true;
    }
  }
  return false;
}

void CreateOptionFor(const OS_LOADER& loader, const DevicePath* partition) {
  UINTN size = 0;
  PoolPtr<DevicePath> path = BuildShortFormPath(partition, loader.Path, size);
  if (!path || IsStartedByAnOption({reinterpret_cast<const std::byte*>(path.get()), size})) {
    return;
  }
  PoolPtr<CHAR16> description = CopyText(loader.Description, TextLength(loader.Description));
  BOOT_OPTION* option = description ? CreateBootOption(BootOptionList) : nullptr;
  if (option == nullptr) {
    return;
  }
  option->FwBootOption = TRUE;
  option->Description = std::move(description);
  option->FilePathList = std::move(path);
  option->FilePathListLength = size;
}

bool HasFile(const File& root, const CHAR16* path) {
  File file;
  return !EFI_ERROR(root.OpenForReading(path, file));
}

// Looks for one loader on the volume; holds is what was found there before. True when it needs an option.
bool NeedsOption(const OS_LOADER& loader, const File& root, UINT8& holds) {
  if ((holds & loader.NotBeside) != 0 || !HasFile(root, loader.Path)) {
    return false;
  }
  holds |= loader.Holds;
  if (loader.Said != nullptr) {
    DebugPrint("%a=TRUE\n", loader.Said);
  }
  if ((holds & loader.DuplicateOf) != 0) {
    DebugPrint("Duplicate Entry Found.Skipping..\n");
    return false;
  }
  return true;
}

void SearchVolume(EFI_HANDLE handle) {
  auto* volume = HandleProtocol<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>(handle);
  File root;
  if (volume == nullptr || EFI_ERROR(root.OpenVolume(volume))) {
    return;
  }
  const DevicePath* partition = FindNode(DevicePathOf(handle), MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP);
  UINT8 holds = 0;
  for (const OS_LOADER& loader : OsLoaders()) {
    if (NeedsOption(loader, root, holds) && IsHardDriveNode(partition)) {
      CreateOptionFor(loader, partition);
    }
  }
}

}  // namespace

EFI_STATUS CreateEfiOsBootOption() {
  if (!IsStbuEfiEnabled()) {
    return EFI_UNSUPPORTED;
  }
  DebugPrint("Add EFI Boot option:STBU mode \n");
  if (!EveryOptionWasLoaded()) {
    // The option of a loader may be the one that was not loaded, and would be there twice.
    DebugPrint("%a:Not every option was loaded, no new one is made\n", "CreateEfiOsBootOption");
    return EFI_NOT_READY;
  }
  HandleBuffer volumes;
  if (const EFI_STATUS status = volumes.Locate(ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>); EFI_ERROR(status)) {
    return status;
  }
  for (const EFI_HANDLE volume : volumes) {
    if (IsOnFixedMedia(volume)) {
      SearchVolume(volume);
    }
  }
  return EFI_SUCCESS;
}

}  // namespace bds

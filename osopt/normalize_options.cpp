// The step that brings the firmware's own options up to date: the path and the name that they would get today.
#include "bootopt/boot_lists.h"
#include "bootopt/file_path_builders.h"
#include "bootopt/names/option_name.h"
#include "osopt/loader_table.h"
#include "osopt/steps.h"
#include "support/device_path.h"
#include "support/text.h"

namespace bds {
namespace {

bool BeginsWithALoadersName(const CHAR16* description) {
  const UINTN length = TextLength(description);
  for (const OS_LOADER& loader : OsLoaders()) {
    const UINTN name = TextLength(loader.Description);
    if (length >= name && EqualMemory(description, loader.Description, name * sizeof(CHAR16))) {
      return true;
    }
  }
  return false;
}

// Its path names a file on a partition, which the builders, who know devices only, would lose.
bool StartsALoader(const BOOT_OPTION& option) {
  const DevicePath* path = option.FilePathList.get();
  return BeginsWithALoadersName(option.Description.get()) &&
         FindNode(path, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP) != nullptr &&
         FindNode(path, MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP) != nullptr;
}

bool IsNormalized(const BOOT_OPTION& option) {
  const bool numbered = option.BootOptionNumber != kNoBootOptionNumber;
  return option.FwBootOption != FALSE && IsMatched(option) && numbered && !StartsALoader(option);
}

// A path that is not whole, for want of memory, would not find the device on the next boot.
void RebuildPath(BOOT_OPTION& option) {
  const PoolWatch watch;
  PoolPtr<DevicePath> old = std::move(option.FilePathList);
  const UINTN oldLength = std::exchange(option.FilePathListLength, 0);
  if (!BuildFilePathList(option) || watch.Exhausted()) {
    option.FilePathList = std::move(old);
    option.FilePathListLength = oldLength;
  }
}

void RebuildName(BOOT_OPTION& option) {
  const PoolWatch watch;
  PoolPtr<CHAR16> old = std::move(option.Description);
  if (BuildBootOptionName(option) == 0 || watch.Exhausted()) {
    option.Description = std::move(old);
  }
}

}  // namespace

void EfiOsName_NormalizeBootOptions() {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (IsNormalized(*option)) {
      RebuildPath(*option);
      RebuildName(*option);
    }
  }
}

}  // namespace bds

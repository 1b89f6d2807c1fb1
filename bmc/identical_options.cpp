// The step that leaves one option of several that stand for the same thing.
#include "bmc/steps.h"
#include "bootopt/boot_lists.h"
#include "support/memory.h"

namespace bds {
namespace {

UINTN DataSize(const BOOT_OPTION& option) { return option.OptionalData ? option.OptionalDataSize : 0; }
UINTN PathSize(const BOOT_OPTION& option) { return option.FilePathList ? option.FilePathListLength : 0; }

// Names and attributes do not count.
bool AreIdentical(const BOOT_OPTION& a, const BOOT_OPTION& b) {
  return PathSize(a) == PathSize(b) && DataSize(a) == DataSize(b) &&
         EqualMemory(a.FilePathList.get(), b.FilePathList.get(), PathSize(a)) &&
         EqualMemory(a.OptionalData.get(), b.OptionalData.get(), DataSize(a));
}

void DeleteLaterTwins(const BOOT_OPTION& option) {
  for (BOOT_OPTION* later = option.Next; later != nullptr;) {
    BOOT_OPTION* next = later->Next;
    if (AreIdentical(option, *later)) {
      DeleteBootOption(BootOptionList, later);
    }
    later = next;
  }
}

}  // namespace

// Identity is transitive, so that one pass finds all: behind an option none of its twins is left.
void DeleteIdenticalBootOptions() {
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    DeleteLaterTwins(*option);
  }
}

}  // namespace bds

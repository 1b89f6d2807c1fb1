// Tags on the loader that an option starts: its directory and its file name.
#include <utility>

#include "flexboot/loader_search.h"
#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/text.h"
#include "vboot/loader_match.h"
#include "vboot/tag_processors.h"

namespace bds {
namespace {

// path: the text of the option's first file path node; null when it has none. EFI_OUT_OF_RESOURCES.
EFI_STATUS ReadLoaderPath(VBOOT_OPTION_WRAPPER& wrapper, CHAR16*& path) {
  if (!wrapper.LoaderPath) {
    const DevicePath* node = FindNode(wrapper.Option->FilePathList.get(), MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP);
    if (node != nullptr) {
      wrapper.LoaderPath = CopyFilePathText(node);
    }
    if (node != nullptr && !wrapper.LoaderPath) {
      return EFI_OUT_OF_RESOURCES;
    }
  }
  path = wrapper.LoaderPath.get();
  return EFI_SUCCESS;
}

const CHAR16* GetLdrName(const CHAR16* path) {
  DebugPrint("GetLdrName\n");
  DebugPrint("reporting path: %a\n", path);
  return FileName(path);
}

// The texts of a tag's lines and those of a pair's part differ in their conversions only; texts come out the same.
TagVerdict Judge(const LOADER_TEST& test, const BOOT_OPTION& option, bool matches, const CHAR16* text,
                 const CHAR16* pattern) {
  if (matches) {
    DebugPrint("(metaimatch) %S looks like a match for %S\n", text, pattern);
    return TagVerdict::Select;
  }
  if (test.Otherwise == TagVerdict::Refuse) {
    DebugPrint("%s: Marking a non-match\n", test.TagName);
    DebugPrint("Following is marked as non match: Option %S tag 0x%x\n", option.Description.get(), option.Tag);
  }
  return test.Otherwise;
}

bool HasDirectoryBehind(const CHAR16* path, UINTN length) {
  return TextLength(path) > length && ContainsText(path + length, u"\\");
}

// Runs the comparison over the options that have a loader path. A path for which the pool has no room ends the walk.
template <typename Compare>
EFI_STATUS WalkLoaders(TAG_CALL& call, UINT8 pairBit, Compare&& compare) {
  if (EFI_ERROR(LocateCollation())) {
    DebugPrint("Unicode interface unavailable, cannot do case insesitive comps.\n");
    return EFI_NOT_FOUND;
  }
  EFI_STATUS status = EFI_SUCCESS;
  WalkOptions(call, {.Eligible = false}, [&](VBOOT_OPTION_WRAPPER& wrapper) {
    CHAR16* path = nullptr;
    status = ReadLoaderPath(wrapper, path);
    if (EFI_ERROR(status)) {
      return TagVerdict::Stop;
    }
    const TagVerdict verdict =
        path != nullptr ? compare(*gFlexBoot.Collation, *wrapper.Option, path) : TagVerdict::Keep;
    if (verdict == TagVerdict::Select) {
      wrapper.LoaderOfPair = static_cast<UINT8>(wrapper.LoaderOfPair | pairBit);
    }
    return verdict;
  });
  if (EFI_ERROR(status)) {
    SetTagMessage(call, "no memory for a loader's path");
  }
  return status;
}

}  // namespace

EFI_STATUS MatchLoaderPath(TAG_CALL& call, const LOADER_TEST& test) {
  const UINTN length = TextLength(test.Value);
  const UINTN compared = length != 0 ? length - 1 : 0;  // not the last backslash
  const PoolPtr<CHAR16> wanted = WidenText(test.Value, compared);
  if (!wanted) {
    return EFI_OUT_OF_RESOURCES;
  }
  return WalkLoaders(
      call, test.PairBit, [&](EFI_UNICODE_COLLATION_PROTOCOL& collation, const BOOT_OPTION& option, CHAR16* path) {
        call.Found.Text = path;
        DebugPrint("Have file path %S\n", path);
        if (HasDirectoryBehind(path, length)) {
          DebugPrint("Path on option is longer than policy's\n");
          return TagVerdict::Keep;
        }
        const UINTN front = TextLength(path) < compared ? TextLength(path) : compared;
        const CHAR16 behind = std::exchange(path[front], CHAR16{0});
        DebugPrint("comparing %S to %S\n", wanted.get(), path);
        const TagVerdict verdict =
            Judge(test, option, collation.MetaiMatch(&collation, wanted.get(), path) != FALSE, wanted.get(), path);
        path[front] = behind;
        return verdict;
      });
}

EFI_STATUS MatchLoaderName(TAG_CALL& call, const LOADER_TEST& test) {
  const PoolPtr<CHAR16> pattern = WidenText(test.Value);
  if (!pattern) {
    return EFI_OUT_OF_RESOURCES;
  }
  return WalkLoaders(
      call, test.PairBit, [&](EFI_UNICODE_COLLATION_PROTOCOL& collation, const BOOT_OPTION& option, CHAR16* path) {
        DebugPrint("Option has a file path %S\n", path);
        const CHAR16* name = GetLdrName(path);
        call.Found.Text = name;
        DebugPrint("comparing %S to %S\n", name, pattern.get());
        return Judge(test, option, collation.MetaiMatch(&collation, name, pattern.get()) != FALSE, name, pattern.get());
      });
}

EFI_STATUS ProcBootloaderPath(TAG_CALL& call) {
  return MatchLoaderPath(call, {call.TagValue, TagVerdict::Refuse, "BootLoaderPath"});
}

EFI_STATUS ProcBootloaderName(TAG_CALL& call) {
  return MatchLoaderName(call, {call.TagValue, TagVerdict::Refuse, "BootLoaderName"});
}

}  // namespace bds

// Tags on the loader that an option starts: its directory and its file name.
#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/loader_match.h"
#include "vboot/tag_processors.h"

namespace bds {
namespace {

EFI_UNICODE_COLLATION_PROTOCOL* Collation() {
  if (gFlexBoot.Collation == nullptr) {
    gFlexBoot.Collation = LocateProtocol<EFI_UNICODE_COLLATION_PROTOCOL>();
  }
  if (gFlexBoot.Collation == nullptr) {
    DebugPrint("Unicode interface unavailable, cannot do case insesitive comps.\n");
  }
  return gFlexBoot.Collation;
}

// The path string of the option's first file path node, in pool memory; null when it has none.
PoolPtr<CHAR16> LoaderPathOf(const BOOT_OPTION& option) {
  const DevicePath* node = FindNode(option.FilePathList.get(), MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP);
  if (node == nullptr) {
    return nullptr;
  }
  const UINTN capacity = (NodeLength(node) - sizeof(DevicePath)) / sizeof(CHAR16);
  PoolPtr<CHAR16> path = AllocateArray<CHAR16>(capacity + 1);
  if (path) {
    CopyMemory(path.get(), node + 1, capacity * sizeof(CHAR16));
    path[capacity] = 0;
  }
  return path;
}

// The file's name within the path.
CHAR16* GetLdrName(CHAR16* path) {
  DebugPrint("GetLdrName\n");
  DebugPrint("reporting path: %a\n", path);
  CHAR16* name = path;
  for (CHAR16* at = path; *at != 0; ++at) {
    if (*at == '\\') {
      name = at + 1;
    }
  }
  return name;
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

// Runs the comparison over the options that have a loader path.
template <typename Compare>
EFI_STATUS WalkLoaders(TAG_CALL& call, UINT8 pairBit, Compare&& compare) {
  EFI_UNICODE_COLLATION_PROTOCOL* collation = Collation();
  if (collation == nullptr) {
    return EFI_NOT_FOUND;
  }
  WalkOptions(call, {.Eligible = false}, [&](VBOOT_OPTION_WRAPPER& wrapper) {
    const PoolPtr<CHAR16> path = LoaderPathOf(*wrapper.Option);
    const TagVerdict verdict = path ? compare(*collation, *wrapper.Option, path.get()) : TagVerdict::Keep;
    if (verdict == TagVerdict::Select) {
      wrapper.LoaderOfPair = static_cast<UINT8>(wrapper.LoaderOfPair | pairBit);
    }
    return verdict;
  });
  return EFI_SUCCESS;
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
        DebugPrint("Have file path %S\n", path);
        if (HasDirectoryBehind(path, length)) {
          DebugPrint("Path on option is longer than policy's\n");
          return TagVerdict::Keep;
        }
        if (TextLength(path) > compared) {
          path[compared] = 0;
        }
        DebugPrint("comparing %S to %S\n", wanted.get(), path);
        return Judge(test, option, collation.MetaiMatch(&collation, wanted.get(), path) != FALSE, wanted.get(), path);
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

#include "bootopt/load_option.h"

#include "support/device_path.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr UINTN kImageHeaderSize = sizeof(UINT32) + sizeof(UINT16);  // Attributes, FilePathListLength

// Bytes of the description with its NUL; 0 when the NUL is missing.
UINTN DescriptionSize(Bytes room) {
  for (UINTN at = 0; at + sizeof(CHAR16) <= room.size(); at += sizeof(CHAR16)) {
    if (LoadUnaligned<CHAR16>(room.data() + at) == 0) {
      return at + sizeof(CHAR16);
    }
  }
  return 0;
}

// Several paths may follow one another; the nodes must fill the bytes exactly and end with an end node of the
// entire path. Node types count only in the first path, which CheckDevicePath judges.
bool FillsExactly(Bytes paths) {
  for (UINTN at = 0; paths.size() - at >= sizeof(DevicePath);) {
    const auto* node = reinterpret_cast<const DevicePath*>(paths.data() + at);
    const UINTN length = NodeLength(node);
    if (length < sizeof(DevicePath) || length > paths.size() - at) {
      return false;
    }
    at += length;
    if (at == paths.size()) {
      return IsEndEntire(node) && length == sizeof(DevicePath);
    }
  }
  return false;
}

bool TakeMarker(ByteReader& reader, const OptionMarker& marker) { return reader.SkipIfEqual(marker); }

// Fills the fields that the image gives; false when the pool is exhausted.
bool FillOption(BOOT_OPTION& option, const LoadOptionView& view) {
  option.Attributes = view.Attributes;
  option.Description.reset(static_cast<CHAR16*>(AllocateCopyPool(view.Description.size(), view.Description.data())));
  option.FilePathList.reset(
      static_cast<DevicePath*>(AllocateCopyPool(view.FilePathList.size(), view.FilePathList.data())));
  option.FilePathListLength = option.FilePathList ? view.FilePathList.size() : 0;
  return option.Description && option.FilePathList;
}

bool KeepOptionalData(BOOT_OPTION& option, Bytes rest) {
  PoolBuffer copy = CopyBytes(rest);
  option.OptionalDataSize = copy.Size;
  option.OptionalData = std::move(copy.Data);
  return option.OptionalDataSize == rest.size();
}

// One run of the parser over an image and, depth by depth, its members.
class LoadOptionParser {
 public:
  LoadOptionParser(BOOT_OPTION_LIST& list, UINT16 number, UINT32& priority)
      : list_(list), number_(number), priority_(priority) {}

  BOOT_OPTION* Parse(const LoadOptionView& view, UINT32 depth) {
    BOOT_OPTION* option = CreateBootOption(list_);
    if (option == nullptr) {
      return nullptr;
    }
    option->BootOptionNumber = number_;
    option->StoredNumber = number_;
    option->Priority = priority_;
    priority_ += kOptionPriorityStep;
    ByteReader rest(view.OptionalData);
    if (!FillOption(*option, view)) {
      DeleteBootOption(list_, option);
      return nullptr;
    }
    if (TakeMarker(rest, kFirmwareMarker)) {
      option->FwBootOption = TRUE;
    } else if (TakeMarker(rest, kGroupMarker)) {
      option->FwBootOption = TRUE;
      option->GroupHeader = TRUE;
      ParseMembers(rest, depth);
    }
    if (!KeepOptionalData(*option, rest.Rest())) {
      // Saved without its data the option would not be the one that was loaded.
      DeleteWithMembers(option);
      return nullptr;
    }
    return option;
  }

 private:
  void DeleteWithMembers(BOOT_OPTION* option) {
    while (list_.Last != option) {
      DeleteBootOption(list_, list_.Last);
    }
    DeleteBootOption(list_, option);
  }

  // Moves behind every member that became an option; the first record that does not is left to the caller.
  void ParseMembers(ByteReader& rest, UINT32 depth) {
    Bytes image;
    UINTN recordSize = 0;
    LoadOptionView view;
    while (depth < kMaxGroupDepth && ViewMemberRecord(rest.Rest(), image, recordSize) && ViewLoadOption(image, view) &&
           Parse(view, depth + 1) != nullptr && rest.Skip(recordSize)) {
    }
  }

  BOOT_OPTION_LIST& list_;
  UINT16 number_;
  UINT32& priority_;
};

}  // namespace

bool IsFirmwareData(Bytes optionalData) {
  ByteReader data(optionalData);
  return TakeMarker(data, kFirmwareMarker) || TakeMarker(data, kGroupMarker);
}

bool ViewLoadOption(Bytes image, LoadOptionView& view) {
  ByteReader reader(image);
  UINT16 pathLength = 0;
  if (!reader.Read(view.Attributes) || !reader.Read(pathLength) || pathLength < sizeof(DevicePath) ||
      image.size() < kImageHeaderSize + sizeof(CHAR16) || pathLength >= image.size() - kImageHeaderSize) {
    return false;
  }
  const UINTN room = image.size() - kImageHeaderSize - pathLength;
  const UINTN descriptionSize = DescriptionSize(reader.Rest().first(room));
  if (descriptionSize == 0 || !reader.Take(descriptionSize, view.Description) ||
      !reader.Take(pathLength, view.FilePathList)) {
    return false;
  }
  view.OptionalData = reader.Rest();
  return !EFI_ERROR(CheckDevicePath(view.FilePathList)) && FillsExactly(view.FilePathList);
}

bool ViewMemberRecord(Bytes bytes, Bytes& image, UINTN& recordSize) {
  ByteReader reader(bytes);
  UINT32 length = 0;
  if (bytes.size() <= kMemberHeaderSize || !TakeMarker(reader, kMemberMarker) || !reader.Read(length) ||
      length < kMemberHeaderSize || length > bytes.size()) {
    return false;
  }
  recordSize = length;
  return reader.Take(length - kMemberHeaderSize, image);
}

BOOT_OPTION* ParseLoadOption(BOOT_OPTION_LIST& list, UINT16 number, const LoadOptionView& view, UINT32& priority) {
  return LoadOptionParser(list, number, priority).Parse(view, 0);
}

}  // namespace bds

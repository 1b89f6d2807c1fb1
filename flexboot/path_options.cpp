#include "flexboot/path_options.h"

#include "bootopt/dumps/dumps.h"
#include "bootopt/file_path_builders.h"
#include "bootopt/names/controller_name.h"
#include "flexboot/loader_search.h"
#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/policy_generated.h"

namespace bds {
namespace {

constexpr UINTN kMaxFilePathLength = 32'764;  // characters
constexpr UINT8 kGptSignature = 2;

bool IsGptNode(const DevicePath* node) {
  return IsHardDriveNode(node) && LoadUnaligned<HARDDRIVE_DEVICE_PATH>(node).SignatureType == kGptSignature;
}

bool SameSignature(const DevicePath* a, const DevicePath* b) {
  constexpr UINTN kAt = offsetof(HARDDRIVE_DEVICE_PATH, Signature);
  return EqualMemory(NodeBytes(a).data() + kAt, NodeBytes(b).data() + kAt, sizeof(HARDDRIVE_DEVICE_PATH::Signature));
}

// Letter case aside. What an option's path holds may look like a pattern; the same path is the same all the same.
bool SameFile(const CHAR16* path, const CHAR16* other) {
  EFI_UNICODE_COLLATION_PROTOCOL* collation = gFlexBoot.Collation;
  return collation->MetaiMatch(collation, path, other) || collation->StriColl(collation, path, other) == 0;
}

// starts: the option starts that file of the partition. EFI_OUT_OF_RESOURCES when that cannot be told.
EFI_STATUS CompareFile(const BOOT_OPTION& option, const DevicePath* partition, const CHAR16* filePath, bool& starts) {
  starts = false;
  const DevicePath* path = option.FilePathList.get();
  const DevicePath* drive = FindNode(path, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP);
  const DevicePath* file = FindNode(path, MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP);
  if (!IsGptNode(drive) || !SameSignature(drive, partition) || file == nullptr) {
    return EFI_SUCCESS;
  }
  const PoolPtr<CHAR16> text = CopyFilePathText(file);
  if (!text) {
    return EFI_OUT_OF_RESOURCES;
  }
  starts = SameFile(filePath, text.get());
  return EFI_SUCCESS;
}

// found is null when there is none.
EFI_STATUS FindOptionForFile(const BOOT_OPTION_LIST& options, const DevicePath* partition, const CHAR16* filePath,
                             BOOT_OPTION*& found) {
  for (found = options.First; found != nullptr; found = found->Next) {
    bool starts = false;
    if (const EFI_STATUS status = CompareFile(*found, partition, filePath, starts); EFI_ERROR(status) || starts) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

// The loader's name and the controller's, as far as there are any. A loader that was only known by its directory is
// called after the file that was found.
PoolPtr<CHAR16> NameFromController(EFI_HANDLE handle, const CHAR16* loader) {
  DebugPrint("Generating name from controller:\n");
  const PoolPtr<CHAR16> controller = ControllerNameOnPath(handle);
  if (!controller) {
    DebugPrint("Failed to get controller name\n");
    return CopyText(loader, TextLength(loader));
  }
  constexpr UINTN kBetween = 5;  // " on " and the NUL
  const UINTN room = TextLength(loader) + TextLength(controller.get()) + kBetween;
  PoolPtr<CHAR16> name = AllocateArray<CHAR16>(room);
  if (name) {
    FormatUtf16({name.get(), room}, "%S on %s", loader, controller.get());
  }
  return name;
}

struct LOADER_TEXTS {
  const char* Name;
  const char* Description;
};

bool IsGiven(const char* text) { return text != nullptr && *text != 0; }

PoolPtr<CHAR16> DescribeOption(const LOADER_TEXTS& texts, EFI_HANDLE handle, const CHAR16* foundPath) {
  if (IsGiven(texts.Description)) {
    DebugPrint("build check 1\n");
    return WidenText(texts.Description);
  }
  if (!IsGiven(texts.Name)) {
    return NameFromController(handle, FileName(foundPath));
  }
  const PoolPtr<CHAR16> name = WidenText(texts.Name);
  return name ? NameFromController(handle, name.get()) : nullptr;
}

// Gives a new option its name and the mark of the policy. An option that cannot have both is taken back.
void FinishOption(BOOT_OPTION* option, PoolPtr<CHAR16> description) {
  DebugPrint("Generating optional data\n");
  DebugPrint("Null policy data ptr\n");
  PoolBuffer mark = CopyBytes(std::as_bytes(std::span(kPolicyGeneratedMark)));
  if (!description || !mark.Data) {
    DeleteBootOption(BootOptionList, option);
    return;
  }
  option->Description = std::move(description);
  option->OptionalDataSize = mark.Size;
  option->OptionalData = std::move(mark.Data);
}

void RenameOption(BOOT_OPTION& option, const char* description) {
  DebugPrint("Updating description string\n");
  if (PoolPtr<CHAR16> wide = WidenText(description); wide) {
    option.Description = std::move(wide);
  }
}

void CreateOnVolume(EFI_HANDLE handle, const CHAR16* fullPath, UINT8 availableData, const LOADER_TEXTS& texts) {
  EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* volume = nullptr;
  if (const EFI_STATUS status = OpenOn(handle, volume); EFI_ERROR(status)) {
    DebugPrint("Could not get the file system protocol (%r)\n", status);
    return;
  }
  PoolPtr<CHAR16> foundPath;
  if (EFI_ERROR(FindLoaderFile(volume, fullPath, availableData, foundPath))) {
    return;
  }
  BOOT_OPTION* option = nullptr;
  const EFI_STATUS status = CreateOptionForFile(BootOptionList, handle, foundPath.get(), option);
  if (!EFI_ERROR(status)) {
    FinishOption(option, DescribeOption(texts, handle, foundPath.get()));
    return;
  }
  if (status == EFI_ABORTED && IsGiven(texts.Description)) {
    RenameOption(*option, texts.Description);
  }
  DebugPrint("did not create a new option\n");
}

EFI_STATUS NoData() {
  DebugPrint("No data\n");
  return EFI_INVALID_PARAMETER;
}

// The texts one behind the other as UTF-16.
EFI_STATUS JoinTexts(const char* first, UINTN firstLength, const char* separator, const char* second,
                     PoolPtr<CHAR16>& joined) {
  const UINTN room = firstLength + TextLength(separator) + TextLength(second) + 1;
  const PoolPtr<char> text = AllocateArray<char>(room);
  if (!text) {
    return EFI_OUT_OF_RESOURCES;
  }
  CopyMemory(text.get(), first, firstLength);
  FormatAscii({text.get() + firstLength, room - firstLength}, "%a%a", separator, second);
  DebugPrint("Built path %a\n", text.get());
  joined = WidenText(text.get());
  return joined ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

EFI_STATUS BuildDirectory(const char* path, PoolPtr<CHAR16>& fullPath) {
  if (!IsGiven(path)) {
    return NoData();
  }
  UINTN length = TextLength(path);
  if (length > 1 && path[length - 1] == '\\') {  // the root keeps its own
    DebugPrint("Removing trailing slash\n");
    --length;
  }
  return JoinTexts(path, length, "", "", fullPath);
}

EFI_STATUS BuildFilePath(const char* path, const char* name, PoolPtr<CHAR16>& fullPath) {
  if (path == nullptr || name == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  if (*path == 0 && *name == 0) {
    return NoData();
  }
  const UINTN length = TextLength(path);
  const bool separated = length != 0 && path[length - 1] == '\\';
  return JoinTexts(path, length, separated ? "" : "\\", name, fullPath);
}

}  // namespace

EFI_STATUS BuildPath(const char* path, const char* name, UINT8 availableData, PoolPtr<CHAR16>& fullPath) {
  switch (availableData) {
    case kLoaderPathKnown:
      DebugPrint("Have path %a\n", path);
      return BuildDirectory(path, fullPath);
    case kLoaderNameKnown:
      DebugPrint("have name %a\n", name);
      return IsGiven(name) ? JoinTexts(name, TextLength(name), "", "", fullPath) : NoData();
    case kLoaderPathKnown | kLoaderNameKnown:
      DebugPrint("Have complete file path %a %a\n", path, name);
      return BuildFilePath(path, name, fullPath);
    default:
      return EFI_INVALID_PARAMETER;
  }
}

EFI_STATUS CreatePathBasedBootOption(const char* path, const char* name, const char* description,
                                     std::span<const EFI_HANDLE> volumes) {
  const UINT8 availableData =
      static_cast<UINT8>((IsGiven(path) ? kLoaderPathKnown : 0) | (IsGiven(name) ? kLoaderNameKnown : 0));
  DebugPrint("CreatePathBasedBootOption AvailableData = 0x%x\n", availableData);
  if (availableData == 0) {
    return EFI_INVALID_PARAMETER;
  }
  DebugPrint("2 BootLoaderPath %a\n", path);
  DebugPrint("2 BootLoaderName %a\n", name);
  PoolPtr<CHAR16> fullPath;
  if (const EFI_STATUS status = BuildPath(path, name, availableData, fullPath); EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("looking at %d handles, path is %a\n", volumes.size(), fullPath.get());
  for (const EFI_HANDLE handle : volumes) {
    if (handle != nullptr) {
      CreateOnVolume(handle, fullPath.get(), availableData, {name, description});
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS CreateOptionForFile(BOOT_OPTION_LIST& options, EFI_HANDLE handle, const CHAR16* filePath,
                               BOOT_OPTION*& option) {
  if (TextLength(filePath) > kMaxFilePathLength) {
    return EFI_INVALID_PARAMETER;
  }
  if (EFI_ERROR(LocateCollation())) {
    DebugPrint("Unicode interface unavailable, cannot check for exisiting matches.\n");
    return EFI_NOT_FOUND;
  }
  DevicePath* path = nullptr;
  if (const EFI_STATUS status = OpenOn(handle, path); EFI_ERROR(status)) {
    DebugPrint("%r opening device path on target handle\n", status);
    return status;
  }
  DebugPrint("dev path:\n  ");
  PrintDevicePaths({reinterpret_cast<const std::byte*>(path), DevicePathSize(path)});
  const DevicePath* partition = FindNode(path, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP);
  if (!IsGptNode(partition)) {
    DebugPrint("Not a GPT partition. Only GPT partitions are supported.\n");
    return EFI_INVALID_PARAMETER;
  }
  // Without the memory to tell, a second option for the same file might come of it.
  if (const EFI_STATUS status = FindOptionForFile(options, partition, filePath, option); EFI_ERROR(status)) {
    DebugPrint("%r looking for an option that starts the file\n", status);
    return status;
  }
  if (option != nullptr) {
    DebugPrint("Option already there\n");
    return EFI_ABORTED;
  }
  UINTN size = 0;
  PoolPtr<DevicePath> shortForm = BuildShortFormPath(partition, filePath, size);
  option = shortForm ? CreateBootOption(options) : nullptr;
  if (option == nullptr) {
    return EFI_OUT_OF_RESOURCES;
  }
  option->FilePathList = std::move(shortForm);
  option->FilePathListLength = size;
  option->DeviceHandle = handle;
  option->FwBootOption = TRUE;
  return EFI_SUCCESS;
}

}  // namespace bds

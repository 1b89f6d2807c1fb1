#include "flexboot/loader_search.h"

#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr char kFindFileInFs[] = "FindFileInFs";
constexpr char kFindFileInDir[] = "FindFileInDir";
constexpr CHAR16 kRootPath[] = u"\\";
constexpr CHAR16 kEfiFiles[] = u"*.efi";
constexpr UINTN kNameRoom = 128;        // characters of an entry's name that are read without a second try
constexpr UINTN kMaxDepth = 32;         // directories below one another; a volume that leads deeper is damaged
constexpr UINTN kMaxEntries = 100'000;  // entries of one search; a volume that has more leads in a circle
constexpr UINTN kMaxRecord = 0x10000;   // bytes of one entry; no name is that long

// An entry of a directory, or a file's description, in a buffer that grows.
class FileInfo {
 public:
  const EFI_FILE_INFO* operator->() const { return reinterpret_cast<const EFI_FILE_INFO*>(buffer_.get()); }
  bool IsDirectory() const { return ((*this)->Attribute & EFI_FILE_DIRECTORY) != 0; }
  const CHAR16* Name() const { return (*this)->FileName; }

  // Describes the opened file itself.
  [[nodiscard]] EFI_STATUS Describe(const File& file) {
    EFI_FILE_PROTOCOL* opened = file.get();
    return Fill(
        [opened](UINTN* size, void* buffer) { return opened->GetInfo(opened, &gEfiFileInfoGuid, size, buffer); });
  }
  // Reads the next entry of the opened directory. EFI_NOT_FOUND behind the last one. path is for messages.
  [[nodiscard]] EFI_STATUS ReadEntry(const File& directory, const CHAR16* path) {
    EFI_FILE_PROTOCOL* opened = directory.get();
    grown_ = false;
    const EFI_STATUS status = Fill([opened](UINTN* size, void* buffer) { return opened->Read(opened, size, buffer); });
    if (!EFI_ERROR(status)) {
      return used_ == 0 ? EFI_NOT_FOUND : EFI_SUCCESS;
    }
    if (grown_) {
      DebugPrint("Failed to read file %a, error %r\n", path, status);
    } else {
      DebugPrint("Error reading entry: %r\n", status);
    }
    return status;
  }

 private:
  static constexpr UINTN kFixedSize = offsetof(EFI_FILE_INFO, FileName);

  // Calls the service with the room that there is, and once more with the room that it asks for.
  template <typename Service>
  EFI_STATUS Fill(Service service) {
    if (!buffer_ && !Grow(kFixedSize + kNameRoom * sizeof(CHAR16))) {
      return EFI_OUT_OF_RESOURCES;
    }
    used_ = room_;
    EFI_STATUS status = service(&used_, buffer_.get());
    if (status == EFI_BUFFER_TOO_SMALL) {
      grown_ = true;
      if (used_ > kMaxRecord) {
        return EFI_DEVICE_ERROR;
      }
      if (!Grow(used_)) {
        return EFI_OUT_OF_RESOURCES;
      }
      used_ = room_;
      status = service(&used_, buffer_.get());
    }
    if (EFI_ERROR(status)) {
      return status;
    }
    return Terminate() ? EFI_SUCCESS : EFI_DEVICE_ERROR;
  }
  bool Grow(UINTN size) {
    room_ = size;
    buffer_.reset(static_cast<std::byte*>(AllocateZeroPool(size + sizeof(CHAR16))));
    return static_cast<bool>(buffer_);
  }
  // The name ends where the record does, whatever the volume's driver wrote. False for a record that has no name.
  bool Terminate() {
    used_ = (used_ < room_ ? used_ : room_) & ~UINTN{1};  // names are whole characters
    StoreUnaligned(buffer_.get() + used_, CHAR16{0});
    return used_ == 0 || used_ >= kFixedSize;
  }

  PoolPtr<std::byte> buffer_;  // one character larger than room_
  UINTN room_ = 0;
  UINTN used_ = 0;
  bool grown_ = false;
};

// The two parts with exactly one backslash between them; null when the pool is exhausted.
PoolPtr<CHAR16> JoinPath(const CHAR16* directory, const CHAR16* name) {
  const UINTN directoryLength = TextLength(directory);
  const UINTN nameLength = TextLength(name);
  const bool separated = directoryLength != 0 && directory[directoryLength - 1] == '\\';
  const UINTN prefix = directoryLength + (separated ? 0 : 1);
  PoolPtr<CHAR16> joined = AllocateArray<CHAR16>(prefix + nameLength + 1);
  if (joined) {
    CopyMemory(joined.get(), directory, directoryLength * sizeof(CHAR16));
    joined[prefix - 1] = '\\';
    CopyMemory(joined.get() + prefix, name, nameLength * sizeof(CHAR16));
    joined[prefix + nameLength] = 0;
  }
  return joined;
}

bool IsSelfOrParent(const CHAR16* name) { return TextEqual(name, u".") || TextEqual(name, u".."); }

// One search.
struct FILE_SEARCH {
  const CHAR16* Pattern;
  bool Recurse;
  PoolPtr<CHAR16>& FoundPath;
  UINTN EntriesLeft = kMaxEntries;
};

EFI_STATUS OutOfResources() {
  DebugPrint("out of resources while looking for file\n");
  return EFI_OUT_OF_RESOURCES;
}

EFI_STATUS FindFile(FILE_SEARCH& search, const CHAR16* path, const File& directory, const FileInfo& info, UINTN depth);

// Searches one directory of a directory. A directory that cannot be opened holds nothing.
EFI_STATUS FindBelow(FILE_SEARCH& search, const CHAR16* path, const File& parent, const FileInfo& entry, UINTN depth) {
  File directory;
  if (depth == kMaxDepth || EFI_ERROR(parent.OpenForReading(entry.Name(), directory))) {
    return EFI_NOT_FOUND;
  }
  const PoolPtr<CHAR16> below = JoinPath(path, entry.Name());
  return below ? FindFile(search, below.get(), directory, entry, depth + 1) : OutOfResources();
}

EFI_STATUS FindFile(FILE_SEARCH& search, const CHAR16* path, const File& directory, const FileInfo& info, UINTN depth) {
  if (!info.IsDirectory()) {
    return EFI_DEVICE_ERROR;
  }
  for (FileInfo entry; search.EntriesLeft != 0;) {
    --search.EntriesLeft;  // before directories below take their own: the bound holds for the whole search
    EFI_STATUS status = entry.ReadEntry(directory, path);
    if (EFI_ERROR(status)) {
      return status;
    }
    if (search.Recurse && entry.IsDirectory()) {
      status = IsSelfOrParent(entry.Name()) ? EFI_NOT_FOUND : FindBelow(search, path, directory, entry, depth);
      if (!EFI_ERROR(status) || status == EFI_OUT_OF_RESOURCES) {
        return status;
      }
    } else if (gFlexBoot.Collation->MetaiMatch(gFlexBoot.Collation, entry.Name(), search.Pattern)) {
      search.FoundPath = JoinPath(path, entry.Name());
      return search.FoundPath ? EFI_SUCCESS : OutOfResources();
    }
  }
  return EFI_NOT_FOUND;
}

EFI_STATUS OpenWholePath(const File& root, const CHAR16* path, PoolPtr<CHAR16>& foundPath) {
  File file;
  const EFI_STATUS status = root.OpenForReading(path, file);
  DebugPrint("%r opening file\n", status);
  if (EFI_ERROR(status)) {
    return status;
  }
  foundPath = CopyText(path, TextLength(path));
  return foundPath ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

}  // namespace

EFI_STATUS LocateCollation() {
  return gFlexBoot.Collation != nullptr ? EFI_SUCCESS : LocateProtocol(gFlexBoot.Collation);
}

const CHAR16* FileName(const CHAR16* path) {
  const CHAR16* name = path;
  for (; *path != 0; ++path) {
    name = *path == '\\' ? path + 1 : name;
  }
  return name;
}

EFI_STATUS FindFileInFs(const CHAR16* name, PoolPtr<CHAR16>& foundPath, const File& root) {
  if (const EFI_STATUS status = LocateCollation(); EFI_ERROR(status)) {
    return status;
  }
  FileInfo info;
  EFI_STATUS status = info.Describe(root);
  if (EFI_ERROR(status)) {
    DebugPrint("%a: Failed to get root info (%r)\n", kFindFileInFs, status);
    return status;
  }
  FILE_SEARCH search{name, true, foundPath};
  status = FindFile(search, kRootPath, root, info, 0);
  DebugPrint("%a: FindFile returns %r\n", kFindFileInFs, status);
  if (!EFI_ERROR(status)) {
    DebugPrint("%a: matching path is %a\n", kFindFileInFs, foundPath.get());
  }
  return status;
}

EFI_STATUS FindFileInDir(const CHAR16* pattern, const CHAR16* directory, PoolPtr<CHAR16>& foundPath, const File& root) {
  if (gFlexBoot.Collation == nullptr) {
    DebugPrint("Locating unicode collation protocol\n");
  }
  EFI_STATUS status = LocateCollation();
  if (EFI_ERROR(status)) {
    DebugPrint("Error %r trying to find the proto\n", status);
    return status;
  }
  File opened;
  status = root.OpenForReading(directory, opened);
  DebugPrint("Got %r opening the dir\n", status);
  if (EFI_ERROR(status)) {
    DebugPrint("%a: Error opening folder %a(%r)\n", kFindFileInDir, directory, status);
    return status;
  }
  FileInfo info;
  status = info.Describe(opened);
  DebugPrint("Got %r getting dir info\n", status);
  if (EFI_ERROR(status)) {
    DebugPrint("%a: Failed to get dir info (%r)\n", kFindFileInDir, status);
    return status;
  }
  if (!info.IsDirectory()) {
    DebugPrint("%a: Opened file is not a directory\n", kFindFileInDir);
    return EFI_INVALID_PARAMETER;
  }
  DebugPrint("Searching for file name\n");
  FILE_SEARCH search{pattern, false, foundPath};
  status = FindFile(search, directory, opened, info, 0);
  if (EFI_ERROR(status)) {
    DebugPrint("%a: %r finding *.efi in %a\n", kFindFileInDir, status, directory);
    return status;
  }
  DebugPrint("%a: Found match: %a\n", kFindFileInDir, foundPath.get());
  return EFI_SUCCESS;
}

EFI_STATUS FindLoaderFile(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* volume, const CHAR16* fullPath, UINT8 availableData,
                          PoolPtr<CHAR16>& foundPath) {
  File root;
  EFI_STATUS status = root.OpenVolume(volume);
  DebugPrint("%r opening volume\n", status);
  if (!EFI_ERROR(status)) {
    switch (availableData) {
      case kLoaderPathKnown:
        DebugPrint("Searching %a for EFI files\n", fullPath);
        status = FindFileInDir(kEfiFiles, fullPath, foundPath, root);
        break;
      case kLoaderNameKnown:
        DebugPrint("Searching for file %a\n", fullPath);
        status = FindFileInFs(fullPath, foundPath, root);
        break;
      default:
        DebugPrint("Have complete file path %a\n", fullPath);
        status = OpenWholePath(root, fullPath, foundPath);
        break;
    }
  }
  DebugPrint("returning status %r\n", status);
  return status;
}

}  // namespace bds

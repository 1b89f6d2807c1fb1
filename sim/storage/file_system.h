// Files for the firmware's file system driver, read-only: from a FAT or ISO 9660 volume, or from a folder of the host.
// Paths are UTF-8, begin at the volume's root, part at '\' or '/', and match without regard to ASCII case.
#pragma once

#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/storage/block_source.h"

namespace sim {

// Attribute bits as the UEFI file protocol and FAT have them (UEFI 2.10, 13.5).
inline constexpr std::uint64_t kFileReadOnly = 0x01;
inline constexpr std::uint64_t kFileHidden = 0x02;
inline constexpr std::uint64_t kFileSystem = 0x04;
inline constexpr std::uint64_t kFileDirectory = 0x10;
inline constexpr std::uint64_t kFileArchive = 0x20;

struct FileEntry {
  std::string name;              // UTF-8, one component; empty for the root
  std::uint64_t size = 0;        // in bytes; 0 for a directory
  std::uint64_t attributes = 0;  // bits above
  std::time_t modified = 0;      // 0: unknown
  [[nodiscard]] bool IsDirectory() const { return (attributes & kFileDirectory) != 0; }
};

// One opened file or directory. It keeps what it needs of its volume alive.
class OpenedFile {
 public:
  virtual ~OpenedFile() = default;
  [[nodiscard]] virtual const FileEntry& Entry() const = 0;
  // Reads from byte `offset` of a file; `done` is short at the end and 0 behind it. EFI_DEVICE_ERROR or
  // EFI_VOLUME_CORRUPTED when the content cannot be had; EFI_UNSUPPORTED for a directory.
  [[nodiscard]] virtual EFI_STATUS Read(std::uint64_t offset, std::span<std::byte> out, std::size_t& done) = 0;
  // The members of a directory in stored order (host folders: by name), without "." and "..".
  [[nodiscard]] virtual EFI_STATUS List(std::vector<FileEntry>& entries) = 0;
};

struct VolumeInfo {
  std::string label;  // UTF-8, trailing blanks removed
  std::uint64_t totalBytes = 0;
  std::uint32_t blockSize = 512;  // cluster or logical block, in bytes
};

class FileSystemReader {
 public:
  virtual ~FileSystemReader() = default;
  [[nodiscard]] virtual const VolumeInfo& Info() const = 0;
  // Opens `path`; empty or "\" is the root. "." and ".." are resolved before anything is looked up, and a path that
  // climbs above the root is EFI_NOT_FOUND, like one that names nothing or goes through a file.
  [[nodiscard]] virtual EFI_STATUS Open(std::string_view path, std::unique_ptr<OpenedFile>& file) = 0;
};

// Opens the FAT12, FAT16, FAT32 or ISO 9660 file system that fills `volume`. EFI_UNSUPPORTED: it begins like none of
// them; EFI_VOLUME_CORRUPTED: it begins like one and does not hold together; EFI_DEVICE_ERROR: it cannot be read.
[[nodiscard]] EFI_STATUS OpenFileSystem(const BlockSourcePtr& volume, std::unique_ptr<FileSystemReader>& reader);

// A folder of the host as a volume. Symbolic links and special files are not there: neither listed nor opened, nor
// followed on the way, so that nothing outside the folder is reached. EFI_NOT_FOUND when it is no folder.
[[nodiscard]] EFI_STATUS OpenHostFolder(const std::filesystem::path& folder, std::string label,
                                        std::unique_ptr<FileSystemReader>& reader);

// Splits a path at both separators and resolves "." and "..". False when it climbs above the root, holds a NUL, or
// has more than 64 components.
[[nodiscard]] bool SplitPath(std::string_view path, std::vector<std::string>& components);
// Joins two paths as the file protocol does: a `path` with a leading separator begins at the root.
[[nodiscard]] std::string JoinPath(std::string_view base, std::string_view path);
[[nodiscard]] bool SameName(std::string_view a, std::string_view b);

}  // namespace sim

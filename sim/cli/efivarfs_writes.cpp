// Preloaded into a program that "bds-sim run" starts: gives write() on a file of variables the meaning that it has on
// Linux's efivarfs. There one call carries one whole variable; on an ordinary file the end of a longer old one would
// stay behind it. Every write is put on record, so that bds-sim knows which files to believe.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kAttributes = 4;
constexpr std::uint32_t kAppendWrite = 0x40;

// The file's name when it lies in the folder of variables; path gets the whole.
const char* VariableOf(int descriptor, char (&path)[PATH_MAX]) {
  const char* folder = std::getenv("EFIVARFS_PATH");
  char link[64];
  std::snprintf(link, sizeof(link), "/proc/self/fd/%d", descriptor);
  const ssize_t length = folder == nullptr ? -1 : readlink(link, path, sizeof(path) - 1);
  if (length <= 0) {
    return nullptr;
  }
  path[length] = '\0';
  const std::size_t above = std::strlen(folder);
  return std::strncmp(path, folder, above) == 0 && std::strchr(path + above, '/') == nullptr ? path + above : nullptr;
}

// One line: the size that the file has now, and its name.
void Record(const char* name, std::size_t size) {
  const char* file = std::getenv("BDS_SIM_WRITES");
  const int record = file == nullptr ? -1 : open(file, O_WRONLY | O_APPEND | O_CLOEXEC);
  if (record < 0) {
    return;
  }
  char line[PATH_MAX];
  const int length = std::snprintf(line, sizeof(line), "%zu %s\n", size, name);
  static_cast<void>(syscall(SYS_write, record, line, static_cast<std::size_t>(length)));
  close(record);
}

ssize_t WriteVariable(int descriptor, const char* path, const char* name, const void* data, std::size_t size) {
  std::uint32_t attributes = 0;
  if (size < kAttributes) {
    errno = EINVAL;
    return -1;
  }
  std::memcpy(&attributes, data, kAttributes);
  struct stat before {};
  static_cast<void>(fstat(descriptor, &before));
  const bool appendWrite = (attributes & kAppendWrite) != 0;
  const bool append = appendWrite && before.st_size > static_cast<off_t>(kAttributes);
  if (size == kAttributes && !append) {  // no data: the variable is deleted
    Record(name, 0);
    return unlink(path) == 0 ? static_cast<ssize_t>(size) : -1;
  }
  attributes &= ~kAppendWrite;
  static_cast<void>(fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_APPEND));  // pwrite would append
  const std::size_t skipped = append ? kAttributes : 0;
  const off_t begin = append ? before.st_size : 0;
  if (ftruncate(descriptor, begin) != 0) {
    return -1;
  }
  const auto* bytes = static_cast<const char*>(data) + skipped;
  if (syscall(SYS_pwrite64, descriptor, bytes, size - skipped, begin) != static_cast<ssize_t>(size - skipped) ||
      (appendWrite && !append &&
       syscall(SYS_pwrite64, descriptor, &attributes, kAttributes, off_t{0}) != kAttributes)) {
    return -1;
  }
  Record(name, static_cast<std::size_t>(begin) + size - skipped);
  return static_cast<ssize_t>(size);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ssize_t write(int descriptor, const void* data, std::size_t size) {
  char path[PATH_MAX];
  struct stat status {};
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
    if (const char* name = VariableOf(descriptor, path)) {
      return WriteVariable(descriptor, path, name, data, size);
    }
  }
  return syscall(SYS_write, descriptor, data, size);
}

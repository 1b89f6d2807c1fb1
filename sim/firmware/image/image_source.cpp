// The sources in the standard's order. Protocols that are asked may be foreign; what they answer is checked.
#include "sim/firmware/image/image_source.h"

#include <algorithm>
#include <cstring>

#include "platform/firmware_volume2.h"
#include "platform/load_file.h"
#include "platform/simple_file_system.h"
#include "sim/firmware/image/pe_image.h"

namespace sim {
namespace {

using Path = EFI_DEVICE_PATH_PROTOCOL;

std::size_t NodeSize(const Path* node) { return node->Length[0] | (std::size_t{node->Length[1]} << 8); }
const Path* NextNode(const Path* node) {
  return reinterpret_cast<const Path*>(reinterpret_cast<const std::byte*>(node) + NodeSize(node));
}
bool IsNode(const Path* node, UINT8 type, UINT8 subType) { return node->Type == type && node->SubType == subType; }
bool IsEnd(const Path* node) { return node->Type == END_DEVICE_PATH_TYPE; }

// The handle nearest to the path's end that carries the protocol, and what is left of the path there.
template <typename Protocol>
Protocol* Locate(Machine& machine, const DevicePath& path, ImageBytes& found) {
  DevicePath walked = path;
  Path* rest = walked.Get();
  EFI_HANDLE device = nullptr;
  if (EFI_ERROR(machine.Handles().LocateDevicePath(&ProtocolGuid<Protocol>, &rest, &device))) {
    return nullptr;
  }
  found.device = device;
  found.filePath = DevicePath::Copy(rest);
  return machine.Handles().Get<Protocol>(device);
}

// True when the bytes are memory that somebody allocated; a path from outside may name any address.
bool IsAllocated(Machine& machine, std::uint64_t start, std::uint64_t size) {
  const auto map = machine.Pages().Map();
  return std::any_of(map.begin(), map.end(), [&](const EFI_MEMORY_DESCRIPTOR& range) {
    const std::uint64_t length = range.NumberOfPages * kPageSize;
    return range.Type != EfiConventionalMemory && start >= range.PhysicalStart && size <= length &&
           start - range.PhysicalStart <= length - size;
  });
}

void ReadMemory(Machine& machine, ImageBytes& out) {
  constexpr std::size_t kMemoryNodeSize = 24;
  const auto node = out.whole.Bytes();
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  if (NodeSize(out.whole.Get()) < kMemoryNodeSize) {
    out.status = EFI_INVALID_PARAMETER;
    return;
  }
  std::memcpy(&start, node.data() + 8, sizeof(start));
  std::memcpy(&end, node.data() + 16, sizeof(end));
  if (end < start || end - start >= kMaxImageSize || !IsAllocated(machine, start, end - start + 1)) {
    out.status = EFI_NOT_FOUND;
    return;
  }
  const auto* bytes = reinterpret_cast<const std::byte*>(start);
  out.bytes.assign(bytes, bytes + (end - start + 1));
  out.filePath = out.whole;
  out.status = EFI_SUCCESS;
}

bool ReadFirmwareFile(Machine& machine, ImageBytes& out) {
  auto* volume = Locate<EFI_FIRMWARE_VOLUME2_PROTOCOL>(machine, out.whole, out);
  const Path* file = out.filePath.Get();
  if (volume == nullptr || !IsNode(file, MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_FILE_DP) ||
      NodeSize(file) < sizeof(MEDIA_FW_VOL_FILEPATH_DEVICE_PATH)) {
    return false;
  }
  EFI_GUID name;
  std::memcpy(&name, reinterpret_cast<const std::byte*>(file) + sizeof(Path), sizeof(name));
  VOID* buffer = nullptr;
  UINTN size = 0;
  UINT32 authentication = 0;
  out.status = volume->ReadSection(volume, &name, EFI_SECTION_PE32, 0, &buffer, &size, &authentication);
  if (EFI_ERROR(out.status)) {
    return true;
  }
  const auto* bytes = static_cast<const std::byte*>(buffer);
  out.bytes.assign(bytes, bytes + std::min<UINTN>(size, kMaxImageSize));
  static_cast<void>(machine.BootServices()->FreePool(buffer));
  return true;
}

// The name that the file path nodes make together; empty when there is another kind of node, or none.
std::u16string FileName(const DevicePath& path) {
  std::u16string name;
  for (const Path* node = path.Get(); !IsEnd(node); node = NextNode(node)) {
    if (!IsNode(node, MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP)) {
      return {};
    }
    std::u16string part((NodeSize(node) - sizeof(Path)) / sizeof(char16_t), u'\0');
    std::memcpy(part.data(), reinterpret_cast<const std::byte*>(node) + sizeof(Path), part.size() * sizeof(char16_t));
    part = part.substr(0, part.find(u'\0'));
    const bool needsSeparator = !name.empty() && name.back() != u'\\' && !part.starts_with(u'\\');
    name += needsSeparator ? u"\\" + part : part;
  }
  return name;
}

EFI_STATUS FileSize(EFI_FILE_PROTOCOL* file, std::size_t& size) {
  UINTN needed = 0;
  EFI_STATUS status = file->GetInfo(file, &gEfiFileInfoGuid, &needed, nullptr);
  if (status != EFI_BUFFER_TOO_SMALL || needed < offsetof(EFI_FILE_INFO, FileName) || needed > 64 * 1024) {
    return EFI_ERROR(status) && status != EFI_BUFFER_TOO_SMALL ? status : EFI_DEVICE_ERROR;
  }
  std::vector<std::uint64_t> buffer((needed + 7) / 8);
  status = file->GetInfo(file, &gEfiFileInfoGuid, &needed, buffer.data());
  if (EFI_ERROR(status)) {
    return status;
  }
  const auto* info = reinterpret_cast<const EFI_FILE_INFO*>(buffer.data());
  if ((info->Attribute & EFI_FILE_DIRECTORY) != 0) {
    return EFI_NOT_FOUND;
  }
  size = info->FileSize;
  return info->FileSize > kMaxImageSize ? EFI_LOAD_ERROR : EFI_SUCCESS;
}

EFI_STATUS ReadOpened(EFI_FILE_PROTOCOL* file, std::vector<std::byte>& bytes) {
  std::size_t size = 0;
  if (const EFI_STATUS status = FileSize(file, size); EFI_ERROR(status)) {
    return status;
  }
  bytes.resize(size);
  UINTN done = 0;
  while (done < size) {
    UINTN piece = size - done;
    const EFI_STATUS status = file->Read(file, &piece, bytes.data() + done);
    if (EFI_ERROR(status)) {
      return status;
    }
    if (piece == 0) {
      break;  // shorter than it said; the image reader sees what is missing
    }
    done += std::min<UINTN>(piece, size - done);
  }
  bytes.resize(done);
  return EFI_SUCCESS;
}

bool ReadFile(Machine& machine, ImageBytes& out) {
  auto* fileSystem = Locate<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>(machine, out.whole, out);
  const std::u16string name = fileSystem == nullptr ? std::u16string() : FileName(out.filePath);
  if (name.empty()) {
    return false;
  }
  EFI_FILE_PROTOCOL* root = nullptr;
  out.status = fileSystem->OpenVolume(fileSystem, &root);
  if (EFI_ERROR(out.status)) {
    return true;
  }
  EFI_FILE_PROTOCOL* file = nullptr;
  out.status = root->Open(root, &file, name.c_str(), EFI_FILE_MODE_READ, 0);
  if (!EFI_ERROR(out.status)) {
    out.status = ReadOpened(file, out.bytes);
    static_cast<void>(file->Close(file));
  }
  static_cast<void>(root->Close(root));
  return true;
}

// Both load file protocols: asked for the size, then for the file. A device that changes its mind is asked once more.
template <typename Protocol>
bool ReadLoadFile(Machine& machine, ImageBytes& out, BOOLEAN bootPolicy) {
  auto* loader = Locate<Protocol>(machine, out.whole, out);
  if (loader == nullptr) {
    return false;
  }
  UINTN size = 0;
  out.status = loader->LoadFile(loader, out.filePath.Get(), bootPolicy, &size, nullptr);
  for (int attempt = 0; attempt < 2 && out.status == EFI_BUFFER_TOO_SMALL && size <= kMaxImageSize; ++attempt) {
    out.bytes.resize(size);
    out.status = loader->LoadFile(loader, out.filePath.Get(), bootPolicy, &size, out.bytes.data());
  }
  out.bytes.resize(EFI_ERROR(out.status) ? 0 : std::min<std::size_t>(size, out.bytes.size()));
  return true;
}

bool SamePartition(const Path* left, const Path* right) {
  HARDDRIVE_DEVICE_PATH a;
  HARDDRIVE_DEVICE_PATH b;
  std::memcpy(&a, left, sizeof(a));
  std::memcpy(&b, right, sizeof(b));
  return a.SignatureType == b.SignatureType && a.MBRType == b.MBRType &&
         std::memcmp(a.Signature, b.Signature, sizeof(a.Signature)) == 0 &&
         (a.SignatureType == 2 || a.PartitionNumber == b.PartitionNumber);
}
bool IsHardDrive(const Path* node) {
  return IsNode(node, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP) && NodeSize(node) >= sizeof(HARDDRIVE_DEVICE_PATH);
}

// The last node before the end; null for an empty path.
const Path* LastNode(const Path* path) {
  const Path* last = nullptr;
  for (; !IsEnd(path); path = NextNode(path)) {
    last = path;
  }
  return last;
}

// A path that begins with a hard drive node, completed by the path of the partition that the node describes.
DevicePath Complete(Machine& machine, const DevicePath& path) {
  if (!IsHardDrive(path.Get())) {
    return path;
  }
  for (const EFI_HANDLE handle : machine.Handles().With(ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>)) {
    const auto* own = machine.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
    if (own == nullptr || DevicePathSize(own) == 0) {
      continue;
    }
    const Path* last = LastNode(own);
    if (last != nullptr && IsHardDrive(last) && SamePartition(last, path.Get())) {
      return DevicePath::Copy(own).Append(DevicePath::Copy(NextNode(path.Get())));
    }
  }
  return path;
}

}  // namespace

ImageBytes ReadImageFromPath(Machine& machine, const EFI_DEVICE_PATH_PROTOCOL* path, bool bootPolicy) {
  ImageBytes out;
  out.whole = DevicePath::Copy(path);
  if (out.whole.Empty()) {
    out.status = EFI_INVALID_PARAMETER;
    return out;
  }
  if (IsNode(out.whole.Get(), HARDWARE_DEVICE_PATH, HW_MEMMAP_DP)) {
    ReadMemory(machine, out);
    return out;
  }
  if (bootPolicy) {
    out.whole = Complete(machine, out.whole);
  }
  const bool found = ReadFirmwareFile(machine, out) || ReadFile(machine, out) ||
                     (!bootPolicy && ReadLoadFile<EFI_LOAD_FILE2_PROTOCOL>(machine, out, FALSE)) ||
                     ReadLoadFile<EFI_LOAD_FILE_PROTOCOL>(machine, out, bootPolicy ? TRUE : FALSE);
  if (!found) {
    out.status = EFI_NOT_FOUND;
  }
  return out;
}

ImageBytes LocateImageDevice(Machine& machine, const EFI_DEVICE_PATH_PROTOCOL* path) {
  ImageBytes out;
  if (path == nullptr) {
    return out;
  }
  out.whole = DevicePath::Copy(path);
  if (!out.whole.Empty() && Locate<EFI_DEVICE_PATH_PROTOCOL>(machine, out.whole, out) == nullptr) {
    out.filePath = out.whole;
  }
  return out;
}

}  // namespace sim

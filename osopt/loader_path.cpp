#include "osopt/loader_path.h"

#include "bootopt/device_path_tests.h"
#include "platform/block_io.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

// Bytes of the whole characters in the file path node at the front; 0 when another node stands there.
UINTN FileTextSize(Bytes path) {
  const auto* node = reinterpret_cast<const DevicePath*>(path.data());
  if (path.size() < sizeof(DevicePath) || !IsNode(node, MEDIA_DEVICE_PATH, MEDIA_FILEPATH_DP)) {
    return 0;
  }
  const UINTN length = NodeLength(node);
  return length < sizeof(DevicePath) || length > path.size()
             ? 0
             : (length - sizeof(DevicePath)) / sizeof(CHAR16) * sizeof(CHAR16);
}

bool EqualLettersAside(Bytes a, Bytes b) {
  ByteReader first(a);
  ByteReader second(b);
  for (CHAR16 one = 0, other = 0; first.Read(one) && second.Read(other);) {
    if (AsciiLower(one) != AsciiLower(other)) {
      return false;
    }
  }
  return true;
}

// The header of a file path node says how long its text is, so that both texts end at the same place.
bool BeginsWith(Bytes rest, Bytes other) {
  if (rest.size() < other.size()) {
    return false;
  }
  const UINTN text = FileTextSize(other);
  const UINTN plain = text == 0 ? other.size() : sizeof(DevicePath);
  const UINTN behind = plain + text;
  return EqualMemory(rest.data(), other.data(), plain) &&
         EqualLettersAside(rest.subspan(plain, text), other.subspan(plain, text)) &&
         EqualMemory(rest.data() + behind, other.data() + behind, other.size() - behind);
}

bool SameHardDrive(const DevicePath* a, const DevicePath* b) {
  constexpr UINTN kHeader = sizeof(DevicePath);
  return EqualMemory(NodeBytes(a).data() + kHeader, NodeBytes(b).data() + kHeader,
                     sizeof(HARDDRIVE_DEVICE_PATH) - kHeader);
}

}  // namespace

const DevicePath* LeadingHardDrive(Bytes path) {
  const auto* node = reinterpret_cast<const DevicePath*>(path.data());
  const bool whole = path.size() >= sizeof(HARDDRIVE_DEVICE_PATH) && IsHardDriveNode(node);
  return whole && NodeLength(node) <= path.size() ? node : nullptr;
}

EFI_STATUS CompareOsLoaderPath(Bytes optionPath, Bytes otherPath) {
  const DevicePath* drive = LeadingHardDrive(optionPath);
  const DevicePath* other = LeadingHardDrive(otherPath);
  const bool same = drive != nullptr && other != nullptr && SameHardDrive(drive, other) &&
                    BeginsWith(optionPath.subspan(NodeLength(drive)), otherPath.subspan(NodeLength(other)));
  return same ? EFI_SUCCESS : EFI_NOT_FOUND;
}

EFI_STATUS PartitionHandles::List() {
  HandleBuffer handles;
  if (const EFI_STATUS status = handles.Locate(ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>); EFI_ERROR(status)) {
    return status;
  }
  places_ = AllocateArray<Place>(handles.size());
  if (!places_) {
    return EFI_OUT_OF_RESOURCES;
  }
  EFI_STATUS answer = EFI_NOT_FOUND;
  for (const EFI_HANDLE handle : handles) {
    Place& place = places_[count_];
    const EFI_STATUS status = FindPartitionNode(handle, place.Node);
    if (!EFI_ERROR(status)) {
      place.Handle = handle;
      ++count_;
    } else if (status != EFI_NOT_FOUND) {
      answer = status;
    }
  }
  return answer;
}

EFI_STATUS PartitionHandles::Find(const DevicePath* hardDriveNode, EFI_HANDLE& partition) {
  if (!listed_) {
    absent_ = List();
    listed_ = true;
  }
  for (UINTN i = 0; i < count_; ++i) {
    if (IsSamePartition(hardDriveNode, places_[i].Node)) {
      partition = places_[i].Handle;
      return EFI_SUCCESS;
    }
  }
  return absent_;
}

}  // namespace bds

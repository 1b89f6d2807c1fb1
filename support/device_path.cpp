#include "support/device_path.h"

namespace bds {
namespace {

constexpr bool IsStandardType(UINT8 type) {
  return (type >= HARDWARE_DEVICE_PATH && type <= BBS_DEVICE_PATH) || type == END_DEVICE_PATH_TYPE;
}

// Two paths' bytes in one new block; the caller says what lies between them.
PoolPtr<DevicePath> Join(Bytes first, Bytes second, Bytes third) {
  const UINTN size = first.size() + second.size() + third.size();
  auto joined = PoolPtr<DevicePath>(static_cast<DevicePath*>(AllocatePool(size)));
  if (joined) {
    ByteWriter writer({reinterpret_cast<std::byte*>(joined.get()), size});
    writer.WriteBytes(first);
    writer.WriteBytes(second);
    writer.WriteBytes(third);
  }
  return joined;
}

// To the end node of the instance at hand.
void WalkInstance(DevicePathWalker& walker) {
  while (walker.Node() != nullptr && !IsEnd(walker.Node())) {
    walker.Next();
  }
}

Bytes PathBytes(const DevicePath* path, UINTN size) { return {reinterpret_cast<const std::byte*>(path), size}; }

}  // namespace

bool IsHardDriveNode(const DevicePath* node) {
  return IsNode(node, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP) && NodeLength(node) >= sizeof(HARDDRIVE_DEVICE_PATH);
}

bool IsSamePartition(const DevicePath* a, const DevicePath* b) {
  const auto first = LoadUnaligned<HARDDRIVE_DEVICE_PATH>(a);
  const auto second = LoadUnaligned<HARDDRIVE_DEVICE_PATH>(b);
  return first.PartitionNumber == second.PartitionNumber && first.SignatureType == second.SignatureType &&
         EqualMemory(first.Signature, second.Signature, sizeof(first.Signature));
}

bool IsVendorNode(const DevicePath* node, UINT8 type, UINT8 subType, const EFI_GUID& guid) {
  return IsNode(node, type, subType) && NodeLength(node) >= sizeof(VENDOR_DEVICE_PATH) &&
         EqualMemory(reinterpret_cast<const UINT8*>(node) + sizeof(DevicePath), &guid, sizeof(guid));
}

void DevicePathWalker::Examine() {
  stop_ = PathStop::None;
  if (offset_ >= kMaxDevicePathSize) {
    stop_ = PathStop::TooLong;
    return;
  }
  if (bytes_.size() - offset_ < sizeof(DevicePath)) {
    stop_ = PathStop::BytesExhausted;
    return;
  }
  const DevicePath* node = NodeAt();
  if (NodeLength(node) < sizeof(DevicePath)) {
    stop_ = PathStop::ShortNode;
  } else if (NodeLength(node) > bytes_.size() - offset_) {
    stop_ = PathStop::NodePastEnd;
  } else if (types_ == NodeTypes::Standard && !IsStandardType(node->Type)) {
    stop_ = PathStop::BadType;
  } else if (IsEndEntire(node)) {
    stop_ = PathStop::EndEntire;
  }
}

void DevicePathWalker::Next() {
  if (stop_ == PathStop::None) {
    offset_ += NodeLength(NodeAt());
    Examine();
  }
}

UINTN DevicePathSize(Bytes bytes, NodeTypes types) {
  DevicePathWalker walker(bytes, types);
  while (walker.Node() != nullptr) {
    walker.Next();
  }
  return walker.Stop() == PathStop::EndEntire ? walker.Consumed() : 0;
}

UINTN DevicePathSize(const DevicePath* path) {
  return path == nullptr ? 0 : DevicePathSize(PathBytes(path, kMaxDevicePathSize));
}

const DevicePath* LastNode(const DevicePath* path) {
  const DevicePath* last = nullptr;
  DevicePathWalker walker(path);
  for (; walker.Node() != nullptr; walker.Next()) {
    last = walker.Node();
  }
  return walker.Valid() ? last : nullptr;
}

const DevicePath* NextToLastNode(const DevicePath* path) {
  const DevicePath* last = nullptr;
  const DevicePath* before = nullptr;
  DevicePathWalker walker(path);
  for (; walker.Node() != nullptr; walker.Next()) {
    before = last;
    last = walker.Node();
  }
  return walker.Valid() ? before : nullptr;
}

const DevicePath* FindNode(const DevicePath* path, UINT8 type, UINT8 subType) {
  for (DevicePathWalker walker(path); walker.Node() != nullptr; walker.Next()) {
    if (IsNode(walker.Node(), type, subType)) {
      return walker.Node();
    }
  }
  return nullptr;
}

PoolPtr<CHAR16> CopyFilePathText(const DevicePath* node) {
  const UINTN length = (NodeLength(node) - sizeof(DevicePath)) / sizeof(CHAR16);
  PoolPtr<CHAR16> text = AllocateArray<CHAR16>(length + 1);
  if (text) {
    CopyMemory(text.get(), node + 1, length * sizeof(CHAR16));
    text[length] = 0;
  }
  return text;
}

PoolPtr<DevicePath> CopyNextInstance(const DevicePath*& remaining) {
  if (remaining == nullptr) {
    return nullptr;
  }
  const DevicePath* start = remaining;
  DevicePathWalker walker(start);
  WalkInstance(walker);
  if (!walker.Valid()) {
    remaining = nullptr;
    return nullptr;
  }
  remaining = walker.Node() == nullptr ? nullptr : NextNode(walker.Node());
  return Join(PathBytes(start, walker.Offset()), AsBytes(kEndEntireNode), {});
}

PoolPtr<DevicePath> CopyNextInstance(Bytes& rest) {
  const Bytes path = rest;
  rest = {};
  DevicePathWalker walker(path, NodeTypes::Any);
  WalkInstance(walker);
  if (!walker.Valid()) {
    return nullptr;
  }
  if (walker.Node() != nullptr) {
    rest = path.subspan(walker.Offset() + NodeLength(walker.Node()));
  }
  return Join(path.first(walker.Offset()), AsBytes(kEndEntireNode), {});
}

bool IsOneInstance(Bytes path) {
  DevicePathWalker walker(path, NodeTypes::Any);
  WalkInstance(walker);
  return walker.Node() == nullptr && walker.Valid();
}

PoolPtr<DevicePath> CopyDevicePath(const DevicePath* path) {
  const UINTN size = DevicePathSize(path);
  return size == 0 ? nullptr : Join(PathBytes(path, size), {}, {});
}

PoolPtr<DevicePath> AppendNode(const DevicePath* path, const DevicePath* node) {
  const UINTN size = DevicePathSize(path);
  if (path != nullptr && size == 0) {
    return nullptr;
  }
  return Join(PathBytes(path, size == 0 ? 0 : size - sizeof(DevicePath)), NodeBytes(node), AsBytes(kEndEntireNode));
}

PoolPtr<DevicePath> AppendInstance(const DevicePath* a, const DevicePath* b) {
  if (a == nullptr) {
    return CopyDevicePath(b);
  }
  constexpr DevicePath kEndInstance{END_DEVICE_PATH_TYPE, END_INSTANCE_DEVICE_PATH_SUBTYPE, {4, 0}};
  const UINTN sizeA = DevicePathSize(a);
  const UINTN sizeB = DevicePathSize(b);
  if (sizeA == 0 || sizeB == 0) {
    return nullptr;
  }
  return Join(PathBytes(a, sizeA - sizeof(DevicePath)), AsBytes(kEndInstance), PathBytes(b, sizeB));
}

EFI_STATUS CheckDevicePath(Bytes bytes) { return DevicePathSize(bytes) != 0 ? EFI_SUCCESS : EFI_INVALID_PARAMETER; }

}  // namespace bds

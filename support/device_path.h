// Walking and building device paths. Paths from outside are walked with a bound; a walker names why it stopped.
#pragma once

#include <span>

#include "platform/device_path.h"
#include "support/byte_reader.h"
#include "support/pool.h"

namespace bds {

using DevicePath = EFI_DEVICE_PATH_PROTOCOL;

inline UINT16 NodeLength(const DevicePath* node) { return LoadUnaligned<UINT16>(node->Length); }
inline const DevicePath* NextNode(const DevicePath* node) {
  return reinterpret_cast<const DevicePath*>(reinterpret_cast<const UINT8*>(node) + NodeLength(node));
}
inline bool IsNode(const DevicePath* node, UINT8 type, UINT8 subType) {
  return node != nullptr && node->Type == type && node->SubType == subType;
}
inline bool IsEndEntire(const DevicePath* node) {
  return IsNode(node, END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE);
}
inline bool IsEnd(const DevicePath* node) { return node->Type == END_DEVICE_PATH_TYPE; }

// True for a vendor node (hardware, messaging or media) with this GUID, long enough to hold one.
[[nodiscard]] bool IsVendorNode(const DevicePath* node, UINT8 type, UINT8 subType, const EFI_GUID& guid);

// A hard-drive media node of full length.
[[nodiscard]] bool IsHardDriveNode(const DevicePath* node);
// Two such nodes name the same partition: number, signature type and signature. Start and size are left out: a
// partition that was resized is still the same one.
[[nodiscard]] bool IsSamePartition(const DevicePath* a, const DevicePath* b);

// The bytes of one node; its Length is at least 4 in any path that a walker accepted.
inline Bytes NodeBytes(const DevicePath* node) { return {reinterpret_cast<const std::byte*>(node), NodeLength(node)}; }

inline constexpr UINTN kMaxDevicePathSize = 0x10000;

// Why a walk over a device path ended.
enum class PathStop : UINT8 {
  None,            // a node is at hand
  EndEntire,       // the end-of-entire-path node was reached; Consumed() counts it
  ShortNode,       // a node length below 4
  NodePastEnd,     // a node reaches past the bytes there are
  BytesExhausted,  // no end node before the bytes ended
  BadType,         // a node type that no standard path has
  TooLong,         // more than 64 KiB
};

// Which node types a walk accepts. For a path whose size nobody tells, an unknown type is the sign that it is none;
// within known bytes a path may hold nodes of types that come later than this driver.
enum class NodeTypes : UINT8 { Standard, Any };

// Visits the nodes of one device path (all instances) without ever leaving the bytes it was given.
class DevicePathWalker {
 public:
  explicit DevicePathWalker(Bytes bytes, NodeTypes types = NodeTypes::Standard) : bytes_(bytes), types_(types) {
    Examine();
  }
  // For a path in memory whose size nobody tells: bounded by 64 KiB.
  explicit DevicePathWalker(const DevicePath* path)
      : DevicePathWalker(path == nullptr ? Bytes{}
                                         : Bytes{reinterpret_cast<const std::byte*>(path), kMaxDevicePathSize}) {}

  // The node at hand; null once the walk has stopped. End-of-instance nodes are visited, the final end node is not.
  const DevicePath* Node() const { return stop_ == PathStop::None ? NodeAt() : nullptr; }
  void Next();
  PathStop Stop() const { return stop_; }
  bool Valid() const { return stop_ == PathStop::None || stop_ == PathStop::EndEntire; }
  UINTN Offset() const { return offset_; }
  // Bytes walked over, the end node included once it was reached.
  UINTN Consumed() const { return stop_ == PathStop::EndEntire ? offset_ + NodeLength(NodeAt()) : offset_; }

 private:
  const DevicePath* NodeAt() const { return reinterpret_cast<const DevicePath*>(bytes_.data() + offset_); }
  void Examine();

  Bytes bytes_;
  NodeTypes types_;
  UINTN offset_ = 0;
  PathStop stop_ = PathStop::None;
};

// Size in bytes up to and including the first end-of-entire-path node; 0 when the path is null or broken.
[[nodiscard]] UINTN DevicePathSize(const DevicePath* path);
// The same for a path that may use no more than these bytes.
[[nodiscard]] UINTN DevicePathSize(Bytes bytes, NodeTypes types = NodeTypes::Standard);

// The last node before the final end node; null for an empty or broken path.
[[nodiscard]] const DevicePath* LastNode(const DevicePath* path);
// The node before LastNode; null when there is none.
[[nodiscard]] const DevicePath* NextToLastNode(const DevicePath* path);
// The first node of this type and subtype before the final end node; null when there is none.
[[nodiscard]] const DevicePath* FindNode(const DevicePath* path, UINT8 type, UINT8 subType);

// The text of a file path node, in pool memory; null when the pool is exhausted.
[[nodiscard]] PoolPtr<CHAR16> CopyFilePathText(const DevicePath* node);

// Takes one instance off the front of a multi-instance path: a pool copy that ends with an end-of-entire-path node.
// remaining moves to the next instance, or becomes null behind the last. Null when remaining is null, broken, or
// the pool is exhausted.
[[nodiscard]] PoolPtr<DevicePath> CopyNextInstance(const DevicePath*& remaining);
// The same off the front of bytes that hold a path, nodes of any type included; rest is empty behind the last instance.
[[nodiscard]] PoolPtr<DevicePath> CopyNextInstance(Bytes& rest);

// The bytes begin with a path of one instance.
[[nodiscard]] bool IsOneInstance(Bytes path);

// A pool copy of the whole path; null when it is broken or the pool is exhausted.
[[nodiscard]] PoolPtr<DevicePath> CopyDevicePath(const DevicePath* path);

// A pool copy of path with the node put before its final end node. path may be null (then only the node).
[[nodiscard]] PoolPtr<DevicePath> AppendNode(const DevicePath* path, const DevicePath* node);

// A path as its instances' concatenation: a (may be null) then b as a further instance.
[[nodiscard]] PoolPtr<DevicePath> AppendInstance(const DevicePath* a, const DevicePath* b);

// The check that paths read from variables must pass: node types 1 to 5 and the end type only, lengths of at least 4,
// an end-of-entire-path node within the bytes, at most 64 KiB. EFI_INVALID_PARAMETER otherwise.
[[nodiscard]] EFI_STATUS CheckDevicePath(Bytes bytes);

inline constexpr DevicePath kEndEntireNode{END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, {4, 0}};

// The header of a node record whose size is that of Node.
template <typename Node>
constexpr DevicePath NodeHeader(UINT8 type, UINT8 subType) {
  return {type, subType, {static_cast<UINT8>(sizeof(Node) & 0xFF), static_cast<UINT8>(sizeof(Node) >> 8)}};
}

}  // namespace bds

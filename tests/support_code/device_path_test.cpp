// Device paths that lie about their lengths, and the paths built from good ones.
#include "support/device_path.h"

#include <gtest/gtest.h>

#include "tests/support/firmware.h"

namespace bds {
namespace {

using fake::Data;

Bytes AsSpan(const Data& data) { return std::as_bytes(std::span(data)); }
const DevicePath* AsPath(const Data& data) { return reinterpret_cast<const DevicePath*>(data.data()); }

struct WalkCase {
  const char* Name;
  Data Path;
  PathStop Stop;
  UINTN Nodes;
};
const WalkCase kWalks[] = {
    {"only the end node", {0x7F, 0xFF, 4, 0}, PathStop::EndEntire, 0},
    {"a PCI node and the end", {1, 1, 6, 0, 0, 2, 0x7F, 0xFF, 4, 0}, PathStop::EndEntire, 1},
    {"no byte", {}, PathStop::BytesExhausted, 0},
    {"three bytes", {1, 1, 4}, PathStop::BytesExhausted, 0},
    {"length zero", {1, 1, 0, 0, 0x7F, 0xFF, 4, 0}, PathStop::ShortNode, 0},
    {"length three", {1, 1, 3, 0, 0x7F, 0xFF, 4, 0}, PathStop::ShortNode, 0},
    {"end node of length zero", {0x7F, 0xFF, 0, 0}, PathStop::ShortNode, 0},
    {"node one byte too long", {1, 1, 11, 0, 0, 2, 0x7F, 0xFF, 4, 0}, PathStop::NodePastEnd, 0},
    {"longest possible node", {1, 1, 0xFF, 0xFF, 0, 2, 0x7F, 0xFF, 4, 0}, PathStop::NodePastEnd, 0},
    {"no end node", {1, 1, 6, 0, 0, 2}, PathStop::BytesExhausted, 1},
    {"type zero", {0, 1, 4, 0, 0x7F, 0xFF, 4, 0}, PathStop::BadType, 0},
    {"type six behind a good node", {1, 1, 4, 0, 6, 1, 4, 0, 0x7F, 0xFF, 4, 0}, PathStop::BadType, 1},
    {"two instances", {1, 1, 4, 0, 0x7F, 1, 4, 0, 2, 1, 4, 0, 0x7F, 0xFF, 4, 0}, PathStop::EndEntire, 3},
};

TEST(DevicePathWalker, NamesWhyItStopped) {
  for (const WalkCase& walk : kWalks) {
    DevicePathWalker walker(AsSpan(walk.Path));
    UINTN nodes = 0;
    for (; walker.Node() != nullptr; walker.Next()) {
      ASSERT_LT(++nodes, 100U) << walk.Name;
    }
    EXPECT_EQ(walker.Stop(), walk.Stop) << walk.Name;
    EXPECT_EQ(nodes, walk.Nodes) << walk.Name;
    const bool good = walk.Stop == PathStop::EndEntire;
    EXPECT_EQ(CheckDevicePath(AsSpan(walk.Path)), good ? EFI_SUCCESS : EFI_INVALID_PARAMETER) << walk.Name;
    EXPECT_EQ(DevicePathSize(AsSpan(walk.Path)), good ? walk.Path.size() : 0) << walk.Name;
  }
}

TEST(DevicePathWalker, GivesUpAt64KiB) {
  Data path;
  while (path.size() < 2 * kMaxDevicePathSize) {
    path.insert(path.end(), {1, 1, 0, 0x40});
    path.resize(path.size() + 0x4000 - 4);
  }
  DevicePathWalker walker(AsSpan(path));
  while (walker.Node() != nullptr) {
    walker.Next();
  }
  EXPECT_EQ(walker.Stop(), PathStop::TooLong);
  EXPECT_EQ(DevicePathSize(AsPath(path)), 0U);
}

TEST(DevicePath, FindsNodesByPlaceAndKind) {
  const Data path = fake::Path().Node(2, 1, {}).Node(1, 1, {0, 2}).Node(3, 18, {}).Bytes();
  EXPECT_EQ(LastNode(AsPath(path))->SubType, 18);
  EXPECT_EQ(NextToLastNode(AsPath(path))->SubType, 1);
  EXPECT_EQ(FindNode(AsPath(path), 1, 1), NextToLastNode(AsPath(path)));
  EXPECT_EQ(FindNode(AsPath(path), 4, 1), nullptr);
  const Data single = fake::Path().Node(2, 1, {}).Bytes();
  EXPECT_EQ(NextToLastNode(AsPath(single)), nullptr);
  const Data empty = fake::Path().Bytes();
  EXPECT_EQ(LastNode(AsPath(empty)), nullptr);
  EXPECT_EQ(LastNode(nullptr), nullptr);
}

TEST(DevicePath, TakesInstancesApartAndPutsThemTogether) {
  fake::Firmware firmware;
  const Data first = fake::Path().Node(1, 1, {0, 2}).Bytes();
  const Data second = fake::Path().Node(3, 18, {1}).Bytes();
  const PoolPtr<DevicePath> both = AppendInstance(AsPath(first), AsPath(second));
  ASSERT_TRUE(both);
  EXPECT_EQ(DevicePathSize(both.get()), first.size() + second.size());
  const DevicePath* remaining = both.get();
  for (const Data* expected : {&first, &second}) {
    const PoolPtr<DevicePath> instance = CopyNextInstance(remaining);
    ASSERT_TRUE(instance);
    EXPECT_EQ(DevicePathSize(instance.get()), expected->size());
    EXPECT_TRUE(EqualMemory(instance.get(), expected->data(), expected->size()));
  }
  EXPECT_EQ(remaining, nullptr);
  EXPECT_FALSE(CopyNextInstance(remaining));
}

TEST(DevicePath, AppendsANodeBeforeTheEnd) {
  fake::Firmware firmware;
  const Data path = fake::Path().Node(1, 1, {0, 2}).Bytes();
  const Data node = {3, 18, 5, 0, 9};
  const PoolPtr<DevicePath> longer = AppendNode(AsPath(path), AsPath(node));
  const Data expected = fake::Path().Node(1, 1, {0, 2}).Node(3, 18, {9}).Bytes();
  ASSERT_EQ(DevicePathSize(longer.get()), expected.size());
  EXPECT_TRUE(EqualMemory(longer.get(), expected.data(), expected.size()));
  const Data broken = {1, 1, 0, 0, 0x7F, 0xFF, 4, 0};
  EXPECT_FALSE(AppendNode(AsPath(broken), AsPath(node)));
  EXPECT_FALSE(CopyDevicePath(AsPath(broken)));
}

TEST(DevicePath, AVendorNodeMustBeLongEnoughForItsGuid) {
  constexpr EFI_GUID guid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  Data node(20, 0);
  node[0] = 1;
  node[1] = 4;
  node[2] = 20;
  CopyMemory(node.data() + 4, &guid, sizeof(guid));
  EXPECT_TRUE(IsVendorNode(AsPath(node), 1, 4, guid));
  EXPECT_FALSE(IsVendorNode(AsPath(node), 3, 4, guid));
  node[2] = 19;
  EXPECT_FALSE(IsVendorNode(AsPath(node), 1, 4, guid));
  EXPECT_FALSE(IsVendorNode(nullptr, 1, 4, guid));
}

}  // namespace
}  // namespace bds

// Which path instance designates which device: one fact varies per row.
#include "bootopt/device_path_tests.h"

#include <gtest/gtest.h>

#include "bootopt/vendor_nodes.h"
#include "osopt/loader_path.h"
#include "tests/support/boot_server.h"

namespace {

using namespace bdstest;

const bds::DevicePath* AsPath(const Blob& blob) { return reinterpret_cast<const bds::DevicePath*>(blob.data()); }

struct Row {
  const char* Name;
  Blob Instance;
  bool Accepted;
};

void Check(bds::DevicePathTest test, const bds::BOOT_DEVICE& device, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(test(AsPath(row.Instance), device), row.Accepted) << row.Name;
  }
}

TEST(DevicePathTests, LocateAcceptsTheHandlesPathWithAtMostAFileBehindIt) {
  FakeServer firmware;
  const Blob disk = PciRoot() + Pci(31, 2);
  bds::BOOT_DEVICE device;
  device.DeviceHandle = firmware.AddHandle(disk + End());
  firmware.AddHandle(PciRoot() + Pci(4, 0) + End());
  Check(bds::LocateDevicePathTest, device,
        {{"the path itself", disk + End(), true},
         {"a file behind it", disk + FilePath(u"\\x.efi") + End(), true},
         {"a firmware file behind it", disk + Node(4, 6, Blob(16)) + End(), true},
         {"a partition behind it", disk + HardDrive(1, 7) + End(), false},
         {"another handle's path", PciRoot() + Pci(4, 0) + End(), false},
         {"a shorter path", PciRoot() + End(), false},
         {"an empty path", End(), false}});
  device.DeviceHandle = nullptr;
  Check(bds::LocateDevicePathTest, device, {{"no handle", disk + End(), false}});
}

TEST(DevicePathTests, PartitionComparesNumberAndSignatureOnly) {
  FakeServer firmware;
  fake::BlockIo blockIo(true);
  bds::BOOT_DEVICE device;
  device.DeviceHandle = firmware.AddHandle(PciRoot() + Pci(31, 2) + HardDrive(2, 7) + End());
  firmware.Install<EFI_BLOCK_IO_PROTOCOL>(device.DeviceHandle, blockIo);
  const std::vector<Row> rows = {
      {"same node", HardDrive(2, 7) + End(), true},
      {"a loader behind it", HardDrive(2, 7) + FilePath(u"\\a") + End(), true},
      {"another start", HardDrive(2, 7, 2, 99) + End(), true},
      {"another number", HardDrive(3, 7) + End(), false},
      {"another signature", HardDrive(2, 8) + End(), false},
      {"another signature type", HardDrive(2, 7, 1) + End(), false},
      {"a node cut short", Node(4, 1, LittleEndian<UINT32>(2)) + End(), false},
      {"not the first node", Pci(31, 2) + HardDrive(2, 7) + End(), false},
  };
  Check(bds::PartitionDevicePathTest, device, rows);
  blockIo.MediaData.LogicalPartition = FALSE;
  Check(bds::PartitionDevicePathTest, device, {{"no partition", HardDrive(2, 7) + End(), false}});
  blockIo.Media = nullptr;
  Check(bds::PartitionDevicePathTest, device, {{"no media record", HardDrive(2, 7) + End(), false}});
}

// Only when every handle could be asked is a partition gone: what is gone is deleted.
TEST(DevicePathTests, PartitionIsGoneOnlyWhenEveryHandleAnswers) {
  FakeServer firmware;
  fake::BlockIo blockIo(true);
  const EFI_HANDLE partition = firmware.AddHandle(PciRoot() + Pci(31, 2) + HardDrive(2, 7) + End());
  firmware.Install<EFI_BLOCK_IO_PROTOCOL>(partition, blockIo);
  firmware.Install<EFI_BLOCK_IO_PROTOCOL>(firmware.AddHandle(), blockIo);  // without a path
  const Blob here = HardDrive(2, 7) + End();
  const Blob gone = HardDrive(2, 8) + End();
  struct Case {
    const Blob& path;
    UINT64 call;  // which one of this search fails; 0: none
    EFI_STATUS failure;
    EFI_STATUS expected;
  };
  const Case cases[] = {
      {here, 0, EFI_SUCCESS, EFI_SUCCESS},
      {gone, 0, EFI_SUCCESS, EFI_NOT_FOUND},
      {gone, 1, EFI_UNSUPPORTED, EFI_NOT_FOUND},
      {gone, 1, EFI_OUT_OF_RESOURCES, EFI_OUT_OF_RESOURCES},  // the block device
      {here, 2, EFI_OUT_OF_RESOURCES, EFI_OUT_OF_RESOURCES},  // its path
      {gone, 4, EFI_DEVICE_ERROR, EFI_DEVICE_ERROR},
      {here, 3, EFI_DEVICE_ERROR, EFI_SUCCESS},  // found before
  };
  for (const Case& c : cases) {
    UINT64 call = 0;
    firmware.machine.Faults().SetCallHook([&](std::string_view service, std::uint64_t) {
      return service == "HandleProtocol" && ++call == c.call ? std::optional(c.failure) : std::nullopt;
    });
    EFI_HANDLE found = nullptr;
    bds::PartitionHandles partitions;
    EXPECT_EQ(partitions.Find(AsPath(c.path), found), c.expected) << c.call;
    EXPECT_EQ(found, EFI_ERROR(c.expected) ? nullptr : partition) << c.call;
  }
  firmware.machine.Faults().SetCallHook(nullptr);
}

// Of the partition everything behind its header counts, of the file all but its ASCII letters' case, and of what the
// option has behind that nothing.
TEST(LoaderPaths, ThePartitionsBytesAndTheFileDecide) {
  const auto compare = [](const Blob& option, const Blob& other) { return bds::CompareOsLoaderPath(option, other); };
  const Blob drive = HardDrive(2, 7);
  const Blob path = drive + FilePath(u"\\EFI\\z\\[\u00e9].efi") + End();
  for (std::size_t i = 4; i < drive.size(); ++i) {
    Blob other = path;
    other[i] ^= std::byte{1};
    EXPECT_EQ(compare(path, other), EFI_NOT_FOUND) << i;
  }
  struct Case {
    const char* name;
    Blob option;
    EFI_STATUS expected;
  };
  const Case cases[] = {
      {"itself", path, EFI_SUCCESS},
      {"other letters", drive + FilePath(u"\\efi\\Z\\[\u00e9].EFI") + End(), EFI_SUCCESS},
      {"a letter that ASCII has not", drive + FilePath(u"\\EFI\\z\\[\u00c9].efi") + End(), EFI_NOT_FOUND},
      {"no letter", drive + FilePath(u"\\EFI\\z\\{\u00e9].efi") + End(), EFI_NOT_FOUND},
      {"a longer file", drive + FilePath(u"\\EFI\\z\\[\u00e9].efix") + End(), EFI_NOT_FOUND},
      {"a further path", path + PciRoot() + End(), EFI_SUCCESS},
      {"cut short", Blob(path.begin(), path.end() - 1), EFI_NOT_FOUND},
      {"behind a controller", PciRoot() + path, EFI_NOT_FOUND},
      {"none", {}, EFI_NOT_FOUND},
  };
  for (const Case& each : cases) EXPECT_EQ(compare(each.option, path), each.expected) << each.name;
}

TEST(DevicePathTests, UsbClassTakesOnlyTheAnyDeviceNode) {
  FakeServer firmware;
  bds::BOOT_DEVICE stick;
  stick.DeviceHandle = firmware.AddHandle(PciRoot() + Pci(29, 0) + Usb(1) + End());
  Check(bds::UsbClassDevicePathTest, stick,
        {{"any device", Node(3, 15, Blob(7, std::byte{0xFF})) + End(), true},
         {"a vendor", Node(3, 15, B({0x34, 0x12, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})) + End(), false},
         {"a product", Node(3, 15, B({0xFF, 0xFF, 0x34, 0x12, 0xFF, 0xFF, 0xFF})) + End(), false},
         {"a class", Node(3, 15, B({0xFF, 0xFF, 0xFF, 0xFF, 8, 0xFF, 0xFF})) + End(), false},
         {"a node cut short", Node(3, 15, Blob(6, std::byte{0xFF})) + End(), false},
         {"a USB node", Usb(1) + End(), false}});
  bds::BOOT_DEVICE disk;
  disk.DeviceHandle = firmware.AddHandle(PciRoot() + Pci(31, 2) + End());
  Check(bds::UsbClassDevicePathTest, disk, {{"not on USB", Node(3, 15, Blob(7, std::byte{0xFF})) + End(), false}});
}

TEST(DevicePathTests, BbsComparesTheDeviceType) {
  FakeServer firmware;
  BBS_TABLE entry{};
  entry.DeviceType = BBS_TYPE_HARDDRIVE;
  bds::BOOT_DEVICE device;
  device.BbsEntry = &entry;
  Check(bds::BbsDevicePathTest, device,
        {{"same type", Bbs(2) + End(), true},
         {"another type", Bbs(3) + End(), false},
         {"no room for a type", Node(5, 1) + End(), false},
         {"not a BBS node", Pci(0, 2) + End(), false}});
  EXPECT_TRUE(firmware.Logged("BbsDevicePathTest:Device Type=2 and Option Type=2 are of same type\n"));
  EXPECT_TRUE(firmware.Logged("BbsDevicePathTest:Device Type=2 and Option Type=3 are not of same type\n"));
  device.BbsEntry = nullptr;
  Check(bds::BbsDevicePathTest, device, {{"a UEFI device", Bbs(2) + End(), false}});
}

TEST(DevicePathTests, LocationComparesPlaceClassAndInstance) {
  FakeServer firmware;
  BBS_TABLE entry{};
  entry.Bus = 0x102;  // the low byte counts
  entry.Device = 31;
  entry.Function = 2;
  entry.Class = 1;
  entry.SubClass = 6;
  BBS_TABLE* table = firmware.PublishBbsTable({entry, entry});
  bds::BOOT_DEVICE second;
  second.BbsEntry = &table[1];
  second.BbsIndex = 1;
  const auto location = [](std::initializer_list<unsigned> data) {
    return HardwareVendor(bds::kLegacyLocationGuid, B(data)) + End();
  };
  Check(bds::NuvBbsDevicePathTest, second,
        {{"same place", location({2, 31, 2, 1, 6, 1}), true},
         {"bus", location({3, 31, 2, 1, 6, 1}), false},
         {"device", location({2, 30, 2, 1, 6, 1}), false},
         {"function", location({2, 31, 3, 1, 6, 1}), false},
         {"class", location({2, 31, 2, 2, 6, 1}), false},
         {"subclass", location({2, 31, 2, 1, 1, 1}), false},
         {"instance", location({2, 31, 2, 1, 6, 0}), false},
         {"a node cut short", location({2, 31, 2, 1, 6}), false},
         {"another vendor", HardwareVendor(bds::kOrphanMaskGuid, B({2, 31, 2, 1, 6, 1})) + End(), false}});
}

TEST(DevicePathTests, NameComparesTheWholeIdentityName) {
  FakeServer firmware;
  fake::DiskInfo disk("SERIAL-0123456789AB ");  // 20 characters fill the field
  bds::BOOT_DEVICE device;
  device.DeviceHandle = firmware.AddHandle(PciRoot() + Pci(31, 2) + End());
  firmware.Install<EFI_DISK_INFO_PROTOCOL>(device.DeviceHandle, disk);
  const auto name = [](const std::u16string& text) {
    return HardwareVendor(bds::kDeviceNameGuid, Utf16(text)) + End();
  };
  Check(bds::NuvDeviceNameDevicePathTest, device,
        {{"same name", name(u"SERIAL-0123456789AB "), true},
         {"another case", name(u"serial-0123456789AB "), false},
         {"shorter", name(u"SERIAL-0123456789AB"), false},
         {"longer", name(u"SERIAL-0123456789AB  "), false},
         {"no name at all", HardwareVendor(bds::kDeviceNameGuid) + End(), false},
         {"an odd length", HardwareVendor(bds::kDeviceNameGuid, Blob(41)) + End(), false}});
  bds::BOOT_DEVICE nameless;
  nameless.DeviceHandle = firmware.AddHandle(PciRoot() + Pci(5, 0) + End());
  Check(bds::NuvDeviceNameDevicePathTest, nameless, {{"a device without a name", name(u""), false}});
}

}  // namespace

// Options bound to devices, the orphan mask, and what stays in the device list.
#include <gtest/gtest.h>

#include "bootopt/orphan_mask.h"
#include "bootopt/steps.h"
#include "bootopt/vendor_nodes.h"
#include "tests/support/boot_server.h"

namespace {

using namespace bdstest;

bds::BOOT_DEVICE* AddDevice(EFI_HANDLE handle) {
  return bds::CreateBootDevice(bds::BootDeviceList, handle, bds::kNoBbsIndex, nullptr);
}
BBS_TABLE LegacyDisk() {
  BBS_TABLE entry{};
  entry.DeviceType = BBS_TYPE_HARDDRIVE;
  entry.IBV1 = 0;
  return entry;
}
constexpr UINT16 kBbsIndex = 30;  // above the entries that the CSM keeps for itself

TEST(Matching, BindsALegacyDeviceToOneOptionOnly) {
  FakeServer firmware;
  BBS_TABLE entry = LegacyDisk();
  bds::CreateBootDevice(bds::BootDeviceList, nullptr, kBbsIndex, &entry);
  const auto& first = AddOption(Bbs(2) + End());
  const auto& second = AddOption(Bbs(2) + End());
  bds::MatchBootOptionsToDevices();
  EXPECT_EQ(first.BbsEntry, &entry);
  EXPECT_EQ(first.BbsIndex, kBbsIndex);
  EXPECT_EQ(second.BbsEntry, nullptr);
}

TEST(Matching, VetoKeepsUefiOptionsFromLegacyDevices) {
  FakeServer firmware;
  const Blob disk = PciRoot() + Pci(31, 2);
  const EFI_HANDLE handle = firmware.AddHandle(disk + End());
  BBS_TABLE entry = LegacyDisk();
  bds::CreateBootDevice(bds::BootDeviceList, handle, kBbsIndex, &entry);
  const auto& option = AddOption(disk + End());
  bds::MatchBootOptionsToDevices();
  EXPECT_EQ(option.DeviceHandle, nullptr);
  EXPECT_EQ(bds::BootDeviceList.Count, 1u);
}

TEST(Matching, ThePathDecidesWhichDeviceItDesignates) {
  const Blob disk = PciRoot() + Pci(31, 2);
  const Blob elsewhere = PciRoot() + Pci(7, 0) + End();
  const struct {
    const char* Name;
    Blob Path;
    bool Firmware;
    bool Bound;
  } cases[] = {
      {"a firmware option's second path is elsewhere", disk + End() + elsewhere, true, false},
      {"a foreign option's second path is elsewhere", disk + End() + elsewhere, false, true},
      {"all paths of a firmware option agree", disk + End() + disk + End(), true, true},
      {"every instance", disk + EndInstance() + disk + FilePath(u"\\b") + End(), false, true},
      {"one instance of two", disk + EndInstance() + elsewhere, false, false},
      {"a node of length 0", disk + B({1, 1, 0, 0}), false, false},
      {"a stand-in takes any device", HardwareVendor(bds::kVeyraStandinGuid) + End(), false, true},
      {"whatever stands behind it", HardwareVendor(bds::kVeyraStandinGuid) + Node(0xC4, 0xA2, B({0, 0})) + End(), true,
       true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    const EFI_HANDLE handle = firmware.AddHandle(disk + End());
    AddDevice(handle);
    const auto& option = AddOption(row.Path, row.Firmware);
    bds::MatchBootOptionsToDevices();
    EXPECT_EQ(option.DeviceHandle, row.Bound ? handle : nullptr);
    const Blob standinNode = HardwareVendor(bds::kVeyraStandinGuid);
    const bool standin = std::equal(standinNode.begin(), standinNode.end(), row.Path.begin());
    EXPECT_EQ(firmware.CountLogged("Matched a Veyra standin device path\n"), standin ? 1 : 0);
  }
}

TEST(Matching, SkipsHeadersAndMatchedOptions) {
  FakeServer firmware;
  const Blob disk = PciRoot() + Pci(31, 2);
  AddDevice(firmware.AddHandle(disk + End()));
  auto& header = AddOption(disk + End(), true);
  header.GroupHeader = TRUE;
  auto& taken = AddOption(disk + End());
  const auto elsewhere = reinterpret_cast<EFI_HANDLE>(UINTN{0x77770});
  taken.DeviceHandle = elsewhere;
  bds::MatchBootOptionsToDevices();
  EXPECT_FALSE(bds::IsMatched(header));
  EXPECT_EQ(taken.DeviceHandle, elsewhere);
  EXPECT_EQ(bds::BootDeviceList.Count, 1u);
}

TEST(UnmatchedDevices, FixedDisksGoAndEverythingElseStays) {
  struct Case {
    const char* Name;
    bool BlockIo;
    bool Removable;
    bool Legacy;
    bool Stays;
  };
  constexpr Case kCases[] = {
      {"fixed disk", true, false, false, false},
      {"stick", true, true, false, true},
      {"network card", false, false, false, true},
      {"legacy disk on a handle", true, false, true, true},
  };
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    fake::BlockIo blockIo(true, row.Removable);
    BBS_TABLE entry = LegacyDisk();
    const EFI_HANDLE handle = firmware.AddHandle(PciRoot() + Pci(3, 0) + End());
    if (row.BlockIo) {
      firmware.Install<EFI_BLOCK_IO_PROTOCOL>(handle, blockIo);
    }
    bds::CreateBootDevice(bds::BootDeviceList, handle, row.Legacy ? kBbsIndex : bds::kNoBbsIndex,
                          row.Legacy ? &entry : nullptr);
    bds::DeleteUnmatchedUefiHddBootDevices();
    EXPECT_EQ(bds::BootDeviceList.Count, row.Stays ? 1u : 0u);
  }
}

TEST(OrphanMask, UnmaskingLeavesOtherPathsAlone) {
  FakeServer firmware;
  const Blob mask = HardwareVendor(bds::kOrphanMaskGuid) + End();
  const Blob uefi = PciRoot() + Pci(31, 2) + End();
  const std::pair<Blob, Blob> cases[] = {
      {mask, mask},  // nothing behind the mask
      {mask + uefi, uefi},
      {uefi, uefi},
      {HardwareVendor(bds::kLegacyLocationGuid, Blob(6)) + End() + uefi,
       HardwareVendor(bds::kLegacyLocationGuid, Blob(6)) + End() + uefi},
      {HardwareVendor(bds::kOrphanMaskGuid) + B({1, 1, 2, 0}),  // a mask whose path never ends
       HardwareVendor(bds::kOrphanMaskGuid) + B({1, 1, 2, 0})},
  };
  for (const auto& [before, after] : cases) {
    auto& option = AddOption(before);
    bds::UnmaskOrphanDevices();
    EXPECT_EQ(PathOf(option), after);
  }
}

TEST(OrphanMask, APathThatWouldOutgrowItsLengthFieldStaysUnmasked) {
  FakeServer firmware;
  const Blob longest = Bbs(2) + Node(3, 10, Blob(0xFFFF - 9 - 4 - 4));
  auto& option = AddOption(longest + End());
  ASSERT_EQ(option.FilePathListLength, 0xFFFFu);
  bds::PutOrphanMask(option);
  EXPECT_EQ(option.FilePathListLength, 0xFFFFu);
}

TEST(OrphanMask, ThePoolRunningOutLeavesTheOptionAsItWas) {
  FakeServer firmware;
  auto& option = AddOption(Bbs(2) + End());
  firmware.FailAllocationAfter(0, true);
  bds::MaskOrphanDevices();
  EXPECT_EQ(PathOf(option), Bbs(2) + End());
}

TEST(OrphanMask, OnlyGroupsWithoutAPresentMemberAreMasked) {
  struct Case {
    const char* Name;
    bool MemberPresent;
    UINT16 MemberNumber;
    bool HeaderMasked;
  };
  constexpr Case kCases[] = {
      {"member present", true, 5, false},
      {"member absent", false, 5, true},
      {"another group's member", true, 6, true},
  };
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    BBS_TABLE entry = LegacyDisk();
    auto& header = AddOption(Bbs(2) + End(), true, 5, 256);
    header.GroupHeader = TRUE;
    auto& member = AddOption(Bbs(2) + End(), true, row.MemberNumber, 512);
    member.BbsEntry = row.MemberPresent ? &entry : nullptr;
    bds::MaskOrphanDevices();
    EXPECT_EQ(header.FilePathListLength == (Bbs(2) + End()).size() + 24, row.HeaderMasked);
    EXPECT_EQ(member.FilePathListLength == (Bbs(2) + End()).size() + 24, !row.MemberPresent);
  }
}

TEST(OrphanMask, AHeaderFollowedByAnotherIsMasked) {
  FakeServer firmware;
  BBS_TABLE entry = LegacyDisk();
  auto& empty = AddOption(Bbs(3) + End(), true, 4, 256);
  empty.GroupHeader = TRUE;
  auto& full = AddOption(Bbs(2) + End(), true, 5, 512);
  full.GroupHeader = TRUE;
  AddOption(Bbs(2) + End(), true, 5, 768).BbsEntry = &entry;
  bds::MaskOrphanDevices();
  EXPECT_FALSE(bds::IsLegacyOption(empty));
  EXPECT_TRUE(bds::IsLegacyOption(full));
}

}  // namespace

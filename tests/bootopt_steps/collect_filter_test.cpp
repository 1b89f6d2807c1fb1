// The device list: what is collected, and what the filters take out again.
#include <gtest/gtest.h>

#include "bootopt/steps.h"
#include "platform/load_file.h"
#include "platform/setup_variable.h"
#include "tests/support/boot_server.h"

namespace {

using namespace bdstest;

constexpr EFI_GUID kEspGuid{0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};

TEST(Collecting, LoadFileHandlesComeBeforeVolumesAndAHandleWithBothTwice) {
  FakeServer firmware;
  EFI_LOAD_FILE_PROTOCOL loadFile{};
  FakeVolume volume;
  const EFI_HANDLE volumeOnly = firmware.AddHandle(PciRoot() + Pci(1, 0) + End());
  firmware.Install(volumeOnly, volume.Protocol);
  const EFI_HANDLE both = firmware.AddHandle(PciRoot() + Pci(2, 0) + End());
  firmware.Install(both, loadFile);
  firmware.Install(both, volume.Protocol);
  fake::BlockIo bare(false);
  firmware.Install<EFI_BLOCK_IO_PROTOCOL>(firmware.AddHandle(PciRoot() + Pci(3, 0) + End()), bare);
  bds::CollectBootDevices();
  std::vector<EFI_HANDLE> found;
  for (auto* device = bds::BootDeviceList.First; device != nullptr; device = device->Next) {
    found.push_back(device->DeviceHandle);
  }
  EXPECT_EQ(found, (std::vector<EFI_HANDLE>{both, volumeOnly, both}));
  EXPECT_TRUE(firmware.Logged("CollectBbsDevices:Failed locating LegacyBios:800000000000000e\n"));
}

TEST(Collecting, BbsEntriesByPriorityAndOwner) {
  FakeServer firmware;
  std::vector<BBS_TABLE> entries(27);
  for (auto& entry : entries) {
    entry.BootPriority = 0xFFFF;
  }
  const EFI_HANDLE disk = firmware.AddHandle(PciRoot() + Pci(5, 0) + End());
  entries[3].BootPriority = 1;  // kept by the CSM for itself: no handle
  entries[4].BootPriority = 1;
  entries[4].IBV1 = static_cast<UINT32>(reinterpret_cast<UINTN>(disk));
  entries[24].BootPriority = 1;
  entries[25].BootPriority = 1;
  entries[26].BootPriority = 0xFFFC;
  firmware.PublishBbsTable(entries);
  bds::CollectBootDevices();
  std::vector<unsigned> indexes;
  for (auto* device = bds::BootDeviceList.First; device != nullptr; device = device->Next) {
    indexes.push_back(device->BbsIndex);
  }
  EXPECT_EQ(indexes, (std::vector<unsigned>{4, 25, 26}));
  EXPECT_EQ(bds::BootDeviceList.First->DeviceHandle, disk);
  EXPECT_TRUE(firmware.Logged("CollectBbsDevices:HDDCount:8,BbsCount:27\n\nBBS_TABLE dump start\n#03: 1 "));
  EXPECT_EQ(firmware.CountLogged("\nBBS_TABLE dump start\n"), 1);
  EXPECT_EQ(firmware.CountLogged("\nBBS_TABLE dump end\n"), 1);
}

struct FilterCase {
  const char* Name;
  bool Volume;
  bool Esp;
  bool Loader;
  EFI_STATUS OpenVolume;
  bool Stays;
  const char* Message;
};

TEST(Filtering, VolumesWithoutALoaderGo) {
  constexpr FilterCase kCases[] = {
      {"no loader", true, false, false, EFI_SUCCESS, false,
       "RemoveInvalidUefiHddBootDevices: Remove UEFI HDD = EFI_NOT_FOUND\n"},
      {"loader", true, false, true, EFI_SUCCESS, true, ""},
      {"system partition", true, true, false, EFI_SUCCESS, true, "ESP Protocol Found\n"},
      {"no volume", false, false, false, EFI_SUCCESS, true, "Simple File System Not Found - EFI_UNSUPPORTED\n"},
      {"unreadable", true, false, false, EFI_VOLUME_CORRUPTED, true, "Open Volume Failed - EFI_VOLUME_CORRUPTED\n"},
  };
  for (const FilterCase& row : kCases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    FakeVolume volume;
    volume.OpenStatus = row.OpenVolume;
    if (row.Loader) {
      volume.Files.insert(u"\\EFI\\BOOT\\BOOTX64.EFI");
    }
    const EFI_HANDLE handle = firmware.AddHandle(PciRoot() + Pci(1, 0) + End());
    if (row.Volume) {
      firmware.Install(handle, volume.Protocol);
    }
    if (row.Esp) {
      firmware.Install(handle, kEspGuid, nullptr);
    }
    bds::CreateBootDevice(bds::BootDeviceList, handle, bds::kNoBbsIndex, nullptr);
    bds::FilterBootDeviceList();
    EXPECT_EQ(bds::BootDeviceList.Count, row.Stays ? 1u : 0u);
    EXPECT_TRUE(firmware.Logged(row.Message));
    EXPECT_EQ(firmware.CountLogged("FilterBootDeviceList:Deleting BbsIndex:65535 from DeviceList\n"),
              row.Stays ? 0 : 1);
    EXPECT_EQ(volume.StillOpen, 0);
    EXPECT_TRUE(!row.Esp || volume.Opened == 0) << "a system partition is not looked into";
  }
}

TEST(Filtering, BootModeKeepsOneKindOfDevice) {
  struct Case {
    const char* Name;
    Blob Data;
    bool UefiStays;
    bool LegacyStays;
  };
  const Case cases[] = {
      {"UEFI only", B({2}), true, false},
      {"legacy only", B({3}), false, true},
      {"another value", B({1}), true, true},
      {"the longest that is read", B({2}) + Blob(279), true, false},
      {"longer than what is read", B({2}) + Blob(280), true, true},
      {"absent", {}, true, true},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    if (!row.Data.empty()) {
      firmware.SetVariable(kVeyraNvramDataName, kVeyraNvramDataGuid, 3, row.Data);
    }
    BBS_TABLE entry{};
    const EFI_HANDLE handle = firmware.AddHandle(PciRoot() + Pci(1, 0) + End());
    bds::CreateBootDevice(bds::BootDeviceList, handle, bds::kNoBbsIndex, nullptr);
    bds::CreateBootDevice(bds::BootDeviceList, nullptr, 40, &entry);
    bds::FilterBootDeviceList();
    bool uefi = false;
    bool legacy = false;
    for (auto* device = bds::BootDeviceList.First; device != nullptr; device = device->Next) {
      (device->BbsEntry != nullptr ? legacy : uefi) = true;
    }
    EXPECT_EQ(uefi, row.UefiStays);
    EXPECT_EQ(legacy, row.LegacyStays);
  }
}

}  // namespace

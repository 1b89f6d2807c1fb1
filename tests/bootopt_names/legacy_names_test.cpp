// Names of legacy disks: what is written into legacy memory for the CSM's menu, and what the BMC is told.
#include "bootopt/names/bbs_names.h"
#include "platform/legacy_region.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

struct Region : LEGACY_REGION_PROTOCOL {
  std::vector<std::pair<char, UINT32>> Calls;
  EFI_STATUS Status = EFI_SUCCESS;
  Region() : LEGACY_REGION_PROTOCOL{} {
    UnLock = [](LEGACY_REGION_PROTOCOL* self, UINT32 start, UINT32 length, UINT32*) EFIAPI -> EFI_STATUS {
      EXPECT_EQ(length, 32U);
      static_cast<Region*>(self)->Calls.emplace_back('u', start);
      return static_cast<Region*>(self)->Status;
    };
    Lock = [](LEGACY_REGION_PROTOCOL* self, UINT32 start, UINT32 length, UINT32*) EFIAPI -> EFI_STATUS {
      EXPECT_EQ(length, 32U);
      static_cast<Region*>(self)->Calls.emplace_back('l', start);
      return EFI_SUCCESS;
    };
  }
};

class PortName : public fake::BootListsTest {
 protected:
  PortName() {
    disk_.SetModel("WDC WD1003FBYX-01Y7B");
    handle_ = Fw.NewHandle(fake::PciRoot());
    Fw.Install(handle_, static_cast<EFI_DISK_INFO_PROTOCOL*>(&disk_));
    Fw.Install(Fw.NewHandle(), static_cast<LEGACY_REGION_PROTOCOL*>(&region_));
    entry_.IBV1 = static_cast<UINT32>(reinterpret_cast<UINTN>(handle_));
    entry_.DescStringSegment = 0xE000;
    entry_.DescStringOffset = 0x10;
  }
  // The 32 bytes at the description, after they were set to dots.
  std::string Rewritten() {
    Fw.WriteLegacy(0xE0010, std::string(33, '.'));
    RewriteLegacyPortName(entry_);
    EXPECT_EQ(Fw.ReadLegacy(0xE0030, 1), ".") << "the byte behind";
    return Fw.ReadLegacy(0xE0010, 32);
  }
  static std::string Padded(std::string text) {
    text.resize(32, '\0');
    return text;
  }

  fake::DiskInfo disk_;
  Region region_;
  EFI_HANDLE handle_;
  BBS_TABLE entry_{};
};

TEST_F(PortName, SataPortsOfTheThreeControllers) {
  struct Case {
    UINT32 Function;
    UINT32 Port;
    const char* Prefix;
    UINTN Controller;
  };
  const Case cases[] = {
      {2, 0, "HDD Slot 1:", 0}, {2, 3, "HDD Slot 4:", 0},          {2, 4, "PCH SATA 1:", 0},  {2, 5, "PCH SATA 2:", 0},
      {2, 6, "HDD Slot x:", 0}, {5, 1, "HDD Slot 2:", 1},          {5, 99, "HDD Slot x:", 1}, {4, 0, "HDD Slot 5:", 2},
      {4, 3, "HDD Slot 8:", 2}, {4, 4, "PCH SATA x:", 2},          {4, 5, "PCH SATA x:", 2},  {4, 6, "HDD Slot x:", 2},
      {7, 2, "HDD Slot 3:", 0}, {2, 0xFFFFFFFF, "HDD Slot x:", 0},
  };
  entry_.SubClass = 6;
  for (const Case& port : cases) {
    entry_.Function = port.Function;
    disk_.Channel = port.Port;
    EXPECT_EQ(Rewritten(), Padded(std::string(port.Prefix) + "WDC WD1003FBYX-01Y7B"))
        << port.Function << " " << port.Port;
    EXPECT_EQ(TakeLog(), "ControllerNo = " + std::to_string(port.Controller) +
                             "  PortNumber = " + std::to_string(port.Port) + "\n");
  }
}

TEST_F(PortName, IdeChannelsAndSerialDrivesOnThem) {
  struct Case {
    UINT32 Function, Channel, Drive;
    UINT16 Word76;
    const char* Prefix;
  };
  const Case cases[] = {
      {2, 0, 0, 0, "PATA0 PM: "},      {2, 0, 1, 0xFFFF, "PATA0 PS: "}, {5, 1, 0, 0x0001, "PATA1 SM: "},
      {5, 1, 1, 0x0002, "SATA1 SS: "}, {2, 0, 0, 0x0004, "SATA0 PM: "}, {4, 0, 0, 0x0006, "sSATA  PM: "},
      {4, 1, 1, 0, "PATA2 SS: "},
  };
  entry_.SubClass = 1;
  for (const Case& drive : cases) {
    entry_.Function = drive.Function;
    disk_.Channel = drive.Channel;
    disk_.Drive = drive.Drive;
    std::memcpy(&disk_.IdentifyData[152], &drive.Word76, 2);
    EXPECT_EQ(Rewritten(), Padded(std::string(drive.Prefix) + "WDC WD1003FBYX-01Y7B")) << drive.Prefix;
  }
}

TEST_F(PortName, MemoryIsUnlockedForTheWriteOnly) {
  entry_.SubClass = 6;
  static_cast<void>(Rewritten());
  EXPECT_EQ(region_.Calls, (std::vector<std::pair<char, UINT32>>{{'u', 0xE0010}, {'l', 0xE0010}}));
  region_.Status = EFI_DEVICE_ERROR;
  EXPECT_EQ(Rewritten(), std::string(32, '.')) << "what stays locked is not written";
}

TEST_F(PortName, DescriptionsWithoutRoomInLegacyMemoryAreNotWritten) {
  entry_.SubClass = 6;
  for (const auto& [segment, offset] : {std::pair<UINT16, UINT16>{0, 0}, {0, 0x500}, {0xFFFF, 0xFFE1}}) {
    entry_.DescStringSegment = segment;
    entry_.DescStringOffset = offset;
    RewriteLegacyPortName(entry_);
    EXPECT_TRUE(region_.Calls.empty()) << segment;
  }
  entry_.DescStringSegment = 0xFFFF;
  entry_.DescStringOffset = 0xFFE0;
  RewriteLegacyPortName(entry_);
  EXPECT_EQ(region_.Calls.size(), 2U) << "exactly the last 32 bytes";
}

TEST(LegacyLocationName, PlacesAndTypeWords) {
  fake::Firmware firmware;
  struct Case {
    UINT8 Code;
    UINT16 Type;
    bool Described;
    const char* Name;
  };
  const Case cases[] = {
      {1, 2, false, "Primary Master Hard Disk"},
      {2, 3, false, "Primary Slave CD-ROM"},
      {3, 1, false, "Secondary Master Floppy"},
      {4, 4, false, "Secondary Slave PCMCIA"},
      {5, 2, true, "SATA Port 0 ST1000"},
      {8, 2, false, "SATA Port 3 Hard Disk"},
      {10, 5, false, "Virtual Device USB"},
      {9, 6, false, "Network"},
      {0, 0x80, false, "Boot Entry Vector (BEV)"},
      {11, 0x81, false, "Unknown"},
      {255, 2, true, "ST1000"},
  };
  firmware.WriteLegacy(0xE0000, std::string("ST1000\0", 7));
  for (const Case& location : cases) {
    BBS_TABLE entry{};
    entry.DeviceType = location.Type;
    entry.DescStringSegment = location.Described ? 0xE000 : 0;
    char text[kLegacyLocationNameCapacity];
    EXPECT_EQ(BuildLegacyLocationName(entry, location.Code, text), std::strlen(location.Name));
    EXPECT_STREQ(text, location.Name);
  }
}

TEST(LegacyLocationName, CutsTheDescriptionAndTheText) {
  fake::Firmware firmware;
  firmware.WriteLegacy(0xE0000, std::string(100, 'd'));
  BBS_TABLE entry{};
  entry.DescStringSegment = 0xE000;
  char text[kLegacyLocationNameCapacity];
  EXPECT_EQ(BuildLegacyLocationName(entry, 0, text), 32U);
  EXPECT_EQ(BuildLegacyLocationName(entry, 10, std::span(text, 8)), 7U);
  EXPECT_STREQ(text, "Virtual");
}

}  // namespace
}  // namespace bds

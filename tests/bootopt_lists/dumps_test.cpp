// The dumps' exact texts, and images that lie to them.
#include "bootopt/dumps/dumps.h"

#include <gmock/gmock.h>

#include "bootopt/bbs_table.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/option_image.h"

namespace bds {
namespace {

using fake::Data;
using fake::OptionImage;
using fake::Path;
using testing::HasSubstr;
using testing::Not;

class Dumps : public fake::BootListsTest {
 protected:
  std::string DumpOf(const Data& image) {
    DumpLoadOption(std::as_bytes(std::span(image)), false);
    return TakeLog();
  }
};

// A SATA disk in use, at the place that the tests expect.
BBS_TABLE SataDisk(UINT16 priority, UINT16 descriptionSegment) {
  BBS_TABLE entry{};
  entry.BootPriority = priority;
  entry.Device = 0x1F;
  entry.Function = 2;
  entry.Class = 1;
  entry.SubClass = 6;
  entry.DeviceType = 2;
  entry.DescStringSegment = descriptionSegment;
  return entry;
}

TEST_F(Dumps, AnOptionShowsItsFieldsPathsAndHandle) {
  const Data paths = fake::Join({Path().Node(1, 1, {2, 0x1F}).Node(0x7F, 1, {}).Node(3, 5, {1, 0}).Bytes(),
                                 Path().Node(3, 2, {4, 0, 1, 0}).Bytes()});
  BOOT_OPTION& option = AddOption(u"Disk", paths);
  option.DeviceHandle = Fw.NewHandle(Path().Node(3, 1, {1, 0, 0, 0}));
  DumpBootOption(option, 3);
  const std::string log = TakeLog();
  EXPECT_THAT(log, testing::StartsWith("Boot option 3:  \n---"));
  EXPECT_THAT(log, HasSubstr("     Description        =  Disk  , Lenght = 0004 \n"));
  EXPECT_THAT(log, HasSubstr("PCI(1F|2)\\;\nUSB(1,0)\\;\nSCSI(4, 1)\\;\nDP on handle: ATA(Slave, 0)\\;\n"));
  EXPECT_THAT(log, Not(HasSubstr("BootPriority"))) << "of legacy options only";
  BBS_TABLE entry{};
  entry.BootPriority = 7;
  BOOT_OPTION& legacy = AddOption();
  legacy.BbsEntry = &entry;
  DumpBootOption(legacy, 0);
  const std::string legacyLog = TakeLog();
  EXPECT_THAT(legacyLog, HasSubstr("     Description        =    , Lenght = 0000 \n"));
  EXPECT_THAT(legacyLog, HasSubstr("BootPriority       =  0007"));
  EXPECT_THAT(legacyLog, testing::EndsWith("0x00000000;\nNo DP on handle\n"));
}

TEST_F(Dumps, ABrokenPathStopsItsDumpOnly) {
  BOOT_OPTION& option = AddOption(u"x", {1, 1, 0, 0, 0x7F, 0xFF, 4, 0});
  DumpBootOption(option, 0);
  EXPECT_THAT(TakeLog(), testing::EndsWith("CAN'T CONVERT!\nNo DP on handle\n"));
}

TEST_F(Dumps, TheBbsTableShowsEntriesInUse) {
  std::vector<BBS_TABLE> table(kBbsTableEntries);
  for (BBS_TABLE& entry : table) {
    entry.BootPriority = kBbsEmpty;
  }
  Fw.WriteLegacy(0xE0000, std::string("WDC XYZ\0", 8));
  table[5] = SataDisk(3, 0xE000);
  table[5].Bus = 0xFFFFFFFF;
  table[5].StatusFlags = 0x900;
  table[255].BootPriority = kBbsSetAside;
  table[255].IBV1 = static_cast<UINT32>(reinterpret_cast<UINTN>(Fw.NewHandle(Path())));
  DumpBbsTable(table.data());
  EXPECT_EQ(TakeLog(),
            "\nBBS_TABLE dump start\n"
            "#05: 3 FF/1F/02 1 6 2 0900 handle: 0 0, WDC XYZ\n"
            "Handle=0, HandleProtocol status: EFI_INVALID_PARAMETER, DevicePath: 0\n"
            "#255: 65532 00/00/00 0 0 0 0000 handle: 20000020 0, \n"
            "\nBBS_TABLE dump end\n");
}

TEST_F(Dumps, ALoadOptionShowsStateAndMembers) {
  OptionImage member;
  member.Description = u"Member";
  member.Attributes = 0;
  member.Optional = fake::kFirmware;
  OptionImage header;
  header.Optional = fake::Join({fake::kGroup, fake::Member(member.Bytes())});
  EXPECT_EQ(DumpOf(header.Bytes()),
            "Disk\nPCI(2|0)\\;\nOption is active\n"
            "nested option:\nMember\nPCI(2|0)\\;\nOption is inactive\n");
}

TEST_F(Dumps, TheFirstWordThatIsNoMarkerEndsTheRecords) {
  OptionImage option;
  option.Optional = {'R', 'E', 0x1B, 'K', 1, 2};
  EXPECT_THAT(DumpOf(option.Bytes()),
              testing::EndsWith("Option is active\ndoesn't look like a valid sig (RE.K), quitting\n"));
  option.Optional = {0, 0, 0x41, 0x4F};
  EXPECT_THAT(DumpOf(option.Bytes()), testing::EndsWith("doesn't look like a valid sig (..AO), quitting\n"));
}

TEST_F(Dumps, RecordsThatRunPastTheEndAreNamed) {
  for (const UINT32 length : {0U, 7U, 100U, 0xFFFFFFFFU}) {
    OptionImage option;
    option.Optional = {0, 0, 0x4E, 0x4F};
    fake::Append32(option.Optional, length);
    fake::Append(option.Optional, Data(8, 0));
    EXPECT_THAT(DumpOf(option.Bytes()), testing::EndsWith("Option is active\nfail buffer check\n")) << length;
  }
  OptionImage option;
  option.Optional = {0, 0, 0x42};
  EXPECT_THAT(DumpOf(option.Bytes()), testing::EndsWith("fail buffer check\n"));
  EXPECT_EQ(DumpOf({1, 2, 3}), "fail buffer check\n");
}

TEST_F(Dumps, MembersInMembersEnd) {
  OptionImage image;
  for (int depth = 0; depth < 200; ++depth) {
    OptionImage outer;
    outer.Optional = fake::Join({fake::kGroup, fake::Member(image.Bytes())});
    image = outer;
  }
  const std::string log = DumpOf(image.Bytes());
  EXPECT_THAT(log, testing::EndsWith("fail buffer check\n"));
  EXPECT_LT(log.size(), 1000U);
}

TEST_F(Dumps, AForeignLegacyOptionShowsItsTableEntry) {
  Fw.WriteLegacy(0xE0100, std::string("ST1000\0", 7));
  BBS_TABLE entry = SataDisk(2, 0xE010);
  entry.Bus = 0x10;
  OptionImage option;
  option.Paths = Path().Node(5, 1, {2, 0, 0, 0, 0}).Bytes();
  option.Optional.resize(sizeof(entry));
  std::memcpy(option.Optional.data(), &entry, sizeof(entry));
  fake::Append16(option.Optional, 9);
  EXPECT_THAT(DumpOf(option.Bytes()),
              testing::EndsWith("Option is active\nTiano format legacy option\n"
                                "Legacy boot option, attached BBS info is as follows:\n"
                                "   NO  Prio bb/dd/ff cl/sc Type Stat Bseg:Boff Mseg:Moff Dseg:Doff\n"
                                "   09: 0002 10/1f/02 01/06 0002 0000 0000:0000 0000:0000 e010:0000\n"
                                "   MFG Str:  \n   DESC Str: ST1000\n"));
  option.Optional.push_back(0);
  EXPECT_THAT(DumpOf(option.Bytes()), Not(HasSubstr("Tiano"))) << "72 bytes are something else";
  option.Optional.resize(71);
  option.Paths = Path().Node(4, 1, Data(38, 0)).Bytes();
  EXPECT_THAT(DumpOf(option.Bytes()), Not(HasSubstr("Tiano"))) << "not behind a BBS node";
}

}  // namespace
}  // namespace bds

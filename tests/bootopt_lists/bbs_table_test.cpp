// Access to the CSM's table through protocols that may be missing or answer nonsense.
#include "bootopt/bbs_table.h"

#include "platform/legacy_bios_ext.h"
#include "tests/support/boot_lists_fixture.h"

namespace bds {
namespace {

struct Csm : EFI_LEGACY_BIOS_PROTOCOL {
  EFI_STATUS Status = EFI_SUCCESS;
  UINT16 Count = 0;
  BBS_TABLE* Table = nullptr;

  Csm() : EFI_LEGACY_BIOS_PROTOCOL{} {
    GetBbsInfo = [](EFI_LEGACY_BIOS_PROTOCOL* self, UINT16* hddCount, HDD_INFO** hddInfo, UINT16* bbsCount,
                    BBS_TABLE** table) EFIAPI -> EFI_STATUS {
      const auto& csm = *static_cast<Csm*>(self);
      *hddCount = 8;
      *hddInfo = nullptr;
      *bbsCount = csm.Count;
      *table = csm.Table;
      return csm.Status;
    };
  }
};

struct Extension : LEGACY_BIOS_EXT_PROTOCOL {
  EFI_STATUS Status = EFI_SUCCESS;
  std::vector<UINT8> Deleted;

  Extension() : LEGACY_BIOS_EXT_PROTOCOL{} {
    LEGACY_BIOS_EXT_PROTOCOL::DeleteBbsEntry = [](LEGACY_BIOS_EXT_PROTOCOL* self, UINT8 index) EFIAPI -> EFI_STATUS {
      static_cast<Extension*>(self)->Deleted.push_back(index);
      return static_cast<Extension*>(self)->Status;
    };
  }
};

class BbsTable : public fake::BootListsTest {
 protected:
  BBS_TABLE table_[kBbsTableEntries] = {};
};

TEST_F(BbsTable, InfoIsTheTableAsItIsNow) {
  BbsInfo info;
  EXPECT_EQ(GetBbsInfo(info), EFI_NOT_FOUND) << "no CSM";
  Csm csm;
  Fw.Install(Fw.NewHandle(), static_cast<EFI_LEGACY_BIOS_PROTOCOL*>(&csm));
  EXPECT_EQ(GetBbsInfo(info), EFI_NOT_FOUND) << "no table";
  csm.Table = table_;
  for (const auto& [count, shown] : {std::pair<UINT16, UINT16>{0, 0}, {7, 7}, {256, 256}, {257, 256}, {0xFFFF, 256}}) {
    csm.Count = count;
    ASSERT_EQ(GetBbsInfo(info), EFI_SUCCESS);
    EXPECT_EQ(info.BbsCount, shown);
    EXPECT_EQ(info.Table, table_);
    EXPECT_EQ(info.HddCount, 8);
  }
  csm.Status = EFI_DEVICE_ERROR;
  EXPECT_EQ(GetBbsInfo(info), EFI_DEVICE_ERROR);
  EXPECT_EQ(info.Table, nullptr) << "nothing of a failed answer is kept";
}

TEST_F(BbsTable, TheHandleIsPutTogetherFromBothHalves) {
  BBS_TABLE entry{};
  EXPECT_EQ(BbsHandle(entry), nullptr);
  entry.IBV1 = 0x89ABCDEF;
  entry.IBV2 = 0x01234567;
  EXPECT_EQ(BbsHandle(entry), reinterpret_cast<EFI_HANDLE>(0x0123456789ABCDEF));
}

TEST_F(BbsTable, TheInstanceCountsTheNeighboursBefore) {
  const UINT8 functions[] = {2, 2, 5, 2, 2, 2};
  const UINT8 expected[] = {0, 1, 0, 0, 1, 2};
  for (UINT16 i = 0; i < 6; ++i) {
    table_[i].Function = functions[i];
  }
  for (UINT16 i = 0; i < 6; ++i) {
    EXPECT_EQ(BbsInstanceNumber(table_, i), expected[i]) << i;
  }
  for (const auto change : {+[](BBS_TABLE& e) { e.Bus = 1; }, +[](BBS_TABLE& e) { e.Device = 1; },
                            +[](BBS_TABLE& e) { e.Class = 1; }, +[](BBS_TABLE& e) { e.SubClass = 1; }}) {
    BBS_TABLE pair[2] = {};
    change(pair[1]);
    EXPECT_EQ(BbsInstanceNumber(pair, 1), 0);
  }
}

TEST_F(BbsTable, StringsOutsideLegacyMemoryAreAbsent) {
  Fw.WriteLegacy(0xE0000, std::string("WDC\0", 4));
  BBS_TABLE entry{};
  EXPECT_TRUE(BbsDescription(entry).empty());
  entry.DescStringSegment = 0x00FF;
  EXPECT_TRUE(BbsDescription(entry).empty()) << "the first page";
  entry.DescStringSegment = 0xE000;
  EXPECT_STREQ(CopyBbsText(BbsDescription(entry)).Text, "WDC");
  EXPECT_TRUE(BbsManufacturer(entry).empty());
  Fw.WriteLegacy(0xE0000, std::string(1000, 'x'));
  entry.MfgStringSegment = 0xE000;
  EXPECT_EQ(std::string(CopyBbsText(BbsManufacturer(entry)).Text), std::string(255, 'x')) << "no NUL in sight";
}

TEST_F(BbsTable, OnlyALegacyOptionsEntryIsDeleted) {
  Extension extension;
  Fw.Install(Fw.NewHandle(), static_cast<LEGACY_BIOS_EXT_PROTOCOL*>(&extension));
  BOOT_OPTION& uefi = AddOption(nullptr, fake::Path().Node(4, 1, fake::Data(38, 0)).Bytes());
  uefi.BbsIndex = 3;
  DeleteBbsEntry(uefi);
  EXPECT_TRUE(extension.Deleted.empty());
  EXPECT_EQ(TakeLog(), "");
  BOOT_OPTION& legacy = AddOption(nullptr, fake::Path().Node(5, 1, {2, 0, 0, 0, 0}).Bytes());
  legacy.BbsIndex = 0x1A5;
  DeleteBbsEntry(legacy);
  EXPECT_EQ(extension.Deleted, std::vector<UINT8>{0xA5});
  EXPECT_EQ(TakeLog(), "DeleteBbsEntry: Deleting the BbsIndex: 421 entry from the BbsTable\n");
  extension.Status = EFI_NOT_FOUND;
  DeleteBbsEntry(legacy);
  EXPECT_EQ(TakeLog(),
            "DeleteBbsEntry: Deleting the BbsIndex: 421 entry from the BbsTable\n"
            "DeleteBbsEntry: Unable to delete the BbsIndex: 421 entry from the BbsTable Status = EFI_NOT_FOUND\n");
}

}  // namespace
}  // namespace bds

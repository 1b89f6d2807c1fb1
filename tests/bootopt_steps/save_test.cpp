// Boot#### images, BootOrder and the legacy device order, byte for byte, and what a refusing store leaves behind.
#include <gtest/gtest.h>

#include "bootopt/legacy_dev_order.h"
#include "bootopt/load_option_image.h"
#include "bootopt/steps.h"
#include "bootopt/vendor_nodes.h"
#include "osopt/default_order.h"
#include "osopt/steps.h"
#include "platform/setup_variable.h"
#include "support/variables.h"
#include "tests/support/boot_server.h"

namespace {

using namespace bdstest;

Blob Image(UINT32 attributes, const std::u16string& description, const Blob& path, const Blob& data = {}) {
  return LittleEndian(attributes) + LittleEndian(static_cast<UINT16>(path.size())) + Utf16(description) + path + data;
}
Blob Order(std::initializer_list<UINT16> numbers) {
  Blob order;
  for (const UINT16 number : numbers) {
    order = order + LittleEndian(number);
  }
  return order;
}
void SetData(bds::BOOT_OPTION& option, const Blob& data) {
  option.OptionalData.reset(static_cast<std::byte*>(bds::AllocateCopyPool(data.size(), data.data())));
  option.OptionalDataSize = data.size();
}

// The same bytes written out by hand, so that a wrong helper cannot hide a wrong layout.
TEST(Saving, GroupWithOneMemberGoldenBytes) {
  FakeServer firmware;
  AddOption(Bbs(2) + End(), true, 5, 256, u"H").GroupHeader = TRUE;
  SetData(AddOption(Bbs(2) + End(), true, 5, 512, u"M"), B({0x11, 0x22}));
  bds::SaveBootOptions();
  const Blob expected = B({
      0x01, 0x00, 0x00, 0x00,                                // Attributes
      0x0D, 0x00,                                            // FilePathListLength
      'H',  0x00, 0x00, 0x00,                                // Description
      0x05, 0x01, 0x09, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00,  // BBS node
      0x7F, 0xFF, 0x04, 0x00,                                // end node
      0x00, 0x00, 0x47, 0x4F,                                // group marker
      0x00, 0x00, 0x4E, 0x4F,                                // member marker
      0x25, 0x00, 0x00, 0x00,                                // record length: 37
      0x01, 0x00, 0x00, 0x00, 0x0D, 0x00,                    // member: attributes, path length
      'M',  0x00, 0x00, 0x00,                                //
      0x05, 0x01, 0x09, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00,  //
      0x7F, 0xFF, 0x04, 0x00,                                //
      0x00, 0x00, 0x42, 0x4F,                                // firmware marker
      0x11, 0x22,                                            // member's data
  });
  const auto stored = firmware.Variable(u"Boot0005");
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->Data, expected);
}

TEST(Saving, OnlyFirmwareOptionsHaveMembers) {
  FakeServer firmware;
  AddOption(PciRoot() + End(), false, 5, 256, u"a");
  AddOption(PciRoot() + End(), false, 5, 512, u"b");
  bds::SaveBootOptions();
  EXPECT_EQ(firmware.Variable(u"Boot0005")->Data, Image(1, u"b", PciRoot() + End()));
  EXPECT_EQ(firmware.Variable(u"BootOrder")->Data, Order({5}));
}

TEST(Saving, SkippedOptionsStayInTheList) {
  FakeServer firmware;
  AddOption({}, false, 1, 256);
  AddOption(PciRoot() + End(), false, bds::kNoBootOptionNumber, 512);
  AddOption(PciRoot() + End(), false, 3, 768).FilePathListLength = 0;
  AddOption(Node(3, 10, Blob(0xFFF8)) + Node(3, 10, Blob(8)) + End(), false, 4, 1024);  // longer than 16 bits say
  AddOption(PciRoot() + End(), false, 5, 2000);
  bds::SaveBootOptions();
  EXPECT_EQ(bds::BootOptionList.Count, 4u);
  EXPECT_EQ(firmware.Variable(u"BootOrder")->Data, Order({5}));
}

struct RefusedCase {
  const char* Name;
  std::optional<Blob> Stored;  // what Boot0002 holds before
  Blob Order;                  // the order afterwards
};

TEST(Saving, ARefusedWriteDropsOnlyWhatTheStoreDoesNotHold) {
  const Blob path = Bbs(2) + End();
  const Blob mask = HardwareVendor(bds::kOrphanMaskGuid) + End();
  const RefusedCase cases[] = {
      {"nothing stored", std::nullopt, Order({1, 3})},
      {"the same option", Image(1, u"two", path), Order({1, 2, 3})},
      {"the same option, hidden then", Image(9, u"two", path), Order({1, 2, 3})},
      {"the same option, masked then", Image(1, u"two", mask + path), Order({1, 2, 3})},
      {"another name", Image(1, u"too", path), Order({1, 3})},
      {"another path", Image(1, u"two", Bbs(3) + End()), Order({1, 3})},
      {"other data", Image(1, u"two", path, B({1})), Order({1, 3})},
      {"no load option", B({1, 2, 3}), Order({1, 3})},
  };
  for (const RefusedCase& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    if (row.Stored) {
      firmware.SetVariable(u"Boot0002", gEfiGlobalVariableGuid, 7, *row.Stored);
    }
    firmware.RefuseWrite = [](const std::u16string& name) {
      return name == u"Boot0002" ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
    };
    AddOption(path, false, 1, 256, u"one");
    AddOption(path, false, 2, 512, u"two");
    AddOption(path, false, 3, 768, u"three");
    bds::SaveBootOptions();
    EXPECT_EQ(firmware.Variable(u"BootOrder")->Data, row.Order);
    EXPECT_EQ(bds::BootOptionList.Count, 0u);
  }
}

TEST(Saving, WithoutMemoryNothingIsWritten) {
  int writes = 0;
  for (int successes = 0; writes == 0 && successes < 100; ++successes) {
    FakeServer firmware;
    AddOption(PciRoot() + End(), true, 1, 256);
    AddOption(PciRoot() + End(), false, 2, 512);
    firmware.FailAllocationAfter(successes);
    bds::SaveBootOptions();
    writes = firmware.Writes;
  }
  EXPECT_EQ(writes, 3) << "all, once the memory is there";
}

TEST(Saving, ARefusedOptionThatWasNumberedAnewKeepsItsOldNumberWhoeverWantsIt) {
  for (const UINT16 other : {UINT16{4}, UINT16{9}}) {
    FakeServer firmware;
    const Blob path = PciRoot() + End();
    firmware.SetVariable(u"Boot0009", gEfiGlobalVariableGuid, 7, Image(1, u"mine", path));
    firmware.RefuseWrite = [](const std::u16string& name) {
      return name == u"Boot0002" ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
    };
    AddOption(path, false, 2, 256, u"mine").StoredNumber = 9;
    AddOption(path, false, other, 512, u"another");
    bds::SaveBootOptions();
    EXPECT_EQ(firmware.Variable(u"BootOrder")->Data, other == 9 ? Order({9}) : Order({9, 4}));
    EXPECT_EQ(firmware.Variable(u"Boot0009")->Data, Image(1, u"mine", path));
  }
}

TEST(LegacyDevOrder, GoldenBytes) {
  FakeServer firmware;
  firmware.SetVariable(kSetupName, kSetupGuid, 7, Blob(kSetupSize));
  AddOption(Bbs(2) + End(), true, 5, 256).GroupHeader = TRUE;  // headers stand for no device
  AddOption(Bbs(2) + End(), true, 5, 512).BbsIndex = 3;
  auto& disabled = AddOption(Bbs(2) + End(), true, 5, 768);
  disabled.BbsIndex = 5;
  disabled.Attributes = 0;
  AddOption(PciRoot() + End(), true, 6, 800);
  AddOption(Bbs(2) + End(), true, 6, 850);  // an orphan that could not be masked
  AddOption(HardwareVendor(bds::kOrphanMaskGuid) + End() + Bbs(3) + End(), false, 7, 900);
  AddOption(Bbs(0x80) + End(), true, 8, 1024).BbsIndex = 0x0104;
  bds::SaveLegacyDevOrder();
  const Blob expected = B({
      0x02, 0x00, 0x00, 0x00,  // hard disks
      0x06, 0x00,              // length: itself and two entries
      0x03, 0x00,              //
      0x05, 0xFF,              // disabled
      0x80, 0x00, 0x00, 0x00,  // boot entry vectors
      0x04, 0x00,              //
      0x04, 0x01,              //
  });
  EXPECT_EQ(firmware.Variable(u"LegacyDevOrder", bds::kLegacyDevOrderGuid), (StoredVariable{7, expected}));
  EXPECT_EQ(firmware.Variable(u"OldLegacyDevOrder", bds::kLegacyDevOrderGuid), (StoredVariable{3, expected}));

  bds::PoolBuffer records;
  ASSERT_EQ(bds::BuildLegacyDevOrder(bds::BootOptionList, bds::DisabledDevices::AsEnabled, records), EFI_SUCCESS);
  EXPECT_EQ(Blob(records.Bytes().begin(), records.Bytes().end()),
            B({2, 0, 0, 0, 6, 0, 3, 0, 5, 0, 0x80, 0, 0, 0, 4, 0, 4, 0}));
}

TEST(DefaultOrder, RanksByDeviceTypeAndRecordsBoth) {
  FakeServer firmware;
  UINT16 number = 0;
  // The last to be tried comes first in the list.
  for (const int type : {0x77, 0xFF, 4, 0x80, 5, 6, 1, 2, 3}) {
    AddOption(Bbs(static_cast<UINT16>(type)) + End(), true, number, number).BbsIndex =
        static_cast<UINT16>(number + 0x10);
    ++number;
  }
  AddOption(HardDrive(2, 7) + End(), false, 9);  // reads as a hard disk
  AddOption({}, false, 10);
  AddOption(Bbs(2) + End(), true, 11).GroupHeader = TRUE;
  auto& member = AddOption(Bbs(2) + End(), true, 11);
  member.BbsIndex = 0x30;
  member.Attributes = 0;
  AddOption(Bbs(3) + End(), false, 12).Attributes = LOAD_OPTION_ACTIVE | LOAD_OPTION_HIDDEN;
  AddOption(Bbs(3) + End(), false);  // without a number
  bds::SetDefaultKuiBootOrder();
  EXPECT_EQ(firmware.Variable(bds::kDefaultBootOrderName, bds::kDefaultBootOrderGuid),
            (StoredVariable{7, B({8, 0, 7, 0, 9, 0, 11, 0, 6, 0, 5, 0, 4, 0, 3, 0, 2, 0, 1, 0, 0, 0, 10, 0})}));
  const std::vector<unsigned> types{3, 2, 1, 6, 5, 0x80, 4, 0xFF, 0x77};
  Blob expected;
  for (unsigned i = 0; i < types.size(); ++i) {
    expected = expected + B({types[i], 0, 0, 0, 4, 0, 0x18 - i, 0});
    // The group's disabled member counts as enabled, in the record of its own number.
    if (types[i] == 2) expected = expected + B({2, 0, 0, 0, 4, 0, 0x30, 0});
  }
  EXPECT_EQ(firmware.Variable(bds::kDefaultLegacyDevOrderName, bds::kDefaultLegacyDevOrderGuid),
            (StoredVariable{7, expected}));
}

TEST(LegacyDevOrder, EveryOptionAloneFillsTheBufferExactly) {
  FakeServer firmware;
  for (UINT16 number = 1; number <= 20; ++number) {
    AddOption(Bbs(2) + End(), true, number, number).BbsIndex = number;
  }
  bds::PoolBuffer records;
  ASSERT_EQ(bds::BuildLegacyDevOrder(bds::BootOptionList, bds::DisabledDevices::Marked, records), EFI_SUCCESS);
  EXPECT_EQ(records.Size, 20u * 8);
}

TEST(LegacyDevOrder, ConflictingAttributesAreReplaced) {
  FakeServer firmware;  // no Setup: attributes 3
  firmware.SetVariable(u"LegacyDevOrder", bds::kLegacyDevOrderGuid, 7, B({1}));
  AddOption(Bbs(2) + End(), true, 1, 256).BbsIndex = 1;
  bds::SaveLegacyDevOrder();
  EXPECT_EQ(firmware.Variable(u"LegacyDevOrder", bds::kLegacyDevOrderGuid),
            (StoredVariable{3, B({2, 0, 0, 0, 4, 0, 1, 0})}));
}

TEST(SetVariableReplacing, ActsOnlyOnAConflict) {
  constexpr EFI_GUID kGuid{1, 2, 3, {4}};
  struct Case {
    const char* Name;
    EFI_STATUS First;   // the answer to the first write; success: the store decides
    EFI_STATUS Delete;  // the answer to the second write
    EFI_STATUS Expected;
    int Writes;
    UINT32 StoredAttributes;
  };
  constexpr Case kCases[] = {
      {"conflict", EFI_SUCCESS, EFI_SUCCESS, EFI_SUCCESS, 3, 3},
      {"conflict, the delete fails", EFI_SUCCESS, EFI_WRITE_PROTECTED, EFI_INVALID_PARAMETER, 2, 7},
      {"another failure", EFI_OUT_OF_RESOURCES, EFI_SUCCESS, EFI_OUT_OF_RESOURCES, 1, 7},
  };
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    firmware.SetVariable(u"V", kGuid, 7, B({1}));
    firmware.RefuseWrite = [&](const std::u16string&) {
      return firmware.Writes == 1 ? row.First : firmware.Writes == 2 ? row.Delete : EFI_SUCCESS;
    };
    const Blob data = B({2});
    EXPECT_EQ(bds::SetVariableReplacing(u"V", kGuid, 3, data), row.Expected);
    EXPECT_EQ(firmware.Writes, row.Writes);
    EXPECT_EQ(firmware.Variable(u"V", kGuid)->Attributes, row.StoredAttributes);
  }
}

}  // namespace

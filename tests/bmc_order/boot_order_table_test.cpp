// The boot order table: built, sent, read back, refused. The simulator's own reading of the format is the judge.
#include <algorithm>
#include <numeric>

#include "bmc/bot_build.h"
#include "bmc/bot_format.h"
#include "bmc/bot_transfer.h"
#include "bmc/steps.h"
#include "sim/server/boot_order_table.h"
#include "tests/support/bmc_fixture.h"

namespace test {
namespace {

constexpr std::size_t kLengthAt = 7;

Bytes WithGoodSum(Bytes table) {
  table[4] = static_cast<std::uint8_t>(table[4] - std::accumulate(table.begin(), table.end(), 0));
  return table;
}

// A table of this length whose tail is one EFI name record.
Bytes TableOf(std::size_t length) {
  Bytes table{'_', 'B', 'O', '_', 0, 0, 0x95, 0, 0, 0, 0, 0, 1, 0x08, 0x08, 1, 3, 0xFF, 0};
  table.resize(std::max(length, table.size()), 0x20);
  table[kLengthAt] = static_cast<std::uint8_t>(length & 0xFF);
  table[kLengthAt + 1] = static_cast<std::uint8_t>(length >> 8);
  return WithGoodSum(table);
}

// As the BMC marks a table that its user changed.
Bytes Marked(Bytes table) {
  table[10] |= bds::kBotChanged;
  return WithGoodSum(table);
}

class BootOrderTableTest : public BmcFixture {
 protected:
  BootOrderTableTest() {
    PublishIpmi();
    SetSetup({{kSetupStrictGroupOrder, 1}, {kSetupUefiMode, 1}});
  }
  bds::IpmiTransport& Transport() { return *bmc().Transport().Protocol(); }
  Bytes& Held() { return bmc().State().bootOrderTable; }
  // Cuts off what fills the last block.
  Bytes HeldTable() {
    Bytes table = Held();
    table.resize(table.size() < 9 ? 0 : static_cast<std::size_t>(table[kLengthAt] | table[kLengthAt + 1] << 8));
    return table;
  }
  EFI_STATUS Write(const Bytes& table) { return bds::WriteBMCBOT(Transport(), std::as_bytes(std::span(table))); }
  EFI_STATUS Read(Bytes& table, UINT16 room = 0xFFFF) {
    table.resize(room);
    const EFI_STATUS status = bds::ReadBMCBOT(Transport(), reinterpret_cast<std::byte*>(table.data()), room);
    table.resize(room);
    return status;
  }
};

TEST_F(BootOrderTableTest, WhatIsSentIsReadBack) {
  for (const std::uint8_t block : std::initializer_list<std::uint8_t>{1, 32, 35, 126}) {
    for (const std::size_t length : {19, 34, 35, 36, 70, 255, 254}) {
      SCOPED_TRACE(testing::Message() << int{block} << " " << length);
      NextBoot();
      bmc().State().botBlockSize = block;
      const Bytes table = TableOf(length);
      EXPECT_EQ(Write(table), EFI_SUCCESS);
      EXPECT_EQ(bmc().State().setInProgress, 0);
      Bytes back;
      EXPECT_EQ(Read(back), EFI_SUCCESS);
      ASSERT_EQ(back.size(), length + bds::kBotTail);
      EXPECT_TRUE(std::all_of(back.begin() + static_cast<std::ptrdiff_t>(length), back.end(),
                              [](std::uint8_t byte) { return byte == 0; }));
      back.resize(length);
      EXPECT_EQ(back, table);
    }
  }
}

TEST_F(BootOrderTableTest, WhatCannotBeSent) {
  Bytes noSignature = TableOf(40);
  noSignature[0] = 'x';
  Bytes wrongSum = TableOf(40);
  ++wrongSum[20];
  Bytes longer = TableOf(40);
  longer[kLengthAt] = 41;
  const struct {
    const char* name;
    Bytes table;
    std::uint8_t block;
    EFI_STATUS status;
    bool sent;
  } cases[] = {
      {"no table", {}, 32, EFI_INVALID_PARAMETER, false},
      {"no signature", WithGoodSum(noSignature), 32, EFI_INVALID_PARAMETER, false},
      {"longer than its bytes", WithGoodSum(longer), 32, EFI_INVALID_PARAMETER, false},
      {"a wrong sum", wrongSum, 32, EFI_CRC_ERROR, false},
      {"no bytes a block", TableOf(40), 0, EFI_OUT_OF_RESOURCES, false},
      {"a block too big", TableOf(40), 129, EFI_OUT_OF_RESOURCES, false},
      {"more blocks than numbers", TableOf(256), 1, EFI_OUT_OF_RESOURCES, false},
      {"a block that fits no request", TableOf(40), 127, EFI_SUCCESS, false},
      {"the same", TableOf(40), 128, EFI_SUCCESS, false},
      {"the largest block", TableOf(40), 126, EFI_SUCCESS, true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    NextBoot();
    Held().clear();
    bmc().State().botBlockSize = row.block;
    EXPECT_EQ(Write(row.table), row.status);
    EXPECT_EQ(!Held().empty(), row.sent);
    EXPECT_EQ(bmc().State().setInProgress, 0);
  }
}

TEST_F(BootOrderTableTest, WhatTheBmcMayHold) {
  Bytes noSignature = TableOf(40);
  noSignature[2] = 'x';
  Bytes wrongSum = TableOf(40);
  ++wrongSum[30];
  Bytes bytesBehind = TableOf(40);
  bytesBehind.resize(60);
  bytesBehind[50] = 1;
  const struct {
    const char* name;
    Bytes table;
    UINT16 room;
    EFI_STATUS status;
    UINT16 size;
  } cases[] = {
      {"none", {}, 1024, EFI_NOT_FOUND, 1024},
      {"no signature", WithGoodSum(noSignature), 1024, EFI_NOT_FOUND, 1024},
      {"a length shorter than a header", TableOf(12), 1024, EFI_NOT_FOUND, 1024},
      {"a length of more blocks than numbers", TableOf(0xFFFF), 0xFFFF, EFI_NOT_FOUND, 0xFFFF},
      {"a wrong sum", wrongSum, 1024, EFI_CRC_ERROR, 0},
      {"bytes behind the table", bytesBehind, 1024, EFI_CRC_ERROR, 0},
      {"a buffer too small", TableOf(40), 75, EFI_BUFFER_TOO_SMALL, 76},
      {"a buffer just large enough", TableOf(40), 76, EFI_SUCCESS, 76},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    NextBoot();
    Held() = row.table;
    Bytes back;
    EXPECT_EQ(Read(back, row.room), row.status);
    EXPECT_EQ(back.size(), row.size);
  }
}

// The step: the table of the BMC, else that of NVRAM.
TEST_F(BootOrderTableTest, TheCopyGoesToABmcWithoutATable) {
  const Bytes table = TableOf(50);
  Bytes wrongSum = table;
  ++wrongSum[20];
  Bytes longer = table;
  ++longer[kLengthAt];
  Bytes onlySumOfAll = table;
  ++onlySumOfAll[20];
  onlySumOfAll.push_back(0xFF);
  const struct {
    const char* name;
    Bytes copy;
    Bytes sent;  // empty: the copy is deleted instead
  } cases[] = {
      {"good", table, table},
      {"marked as changed by an earlier boot", Marked(table), table},
      {"a wrong sum", wrongSum, {}},
      {"a good sum, longer than its bytes", WithGoodSum(longer), {}},
      {"a good sum only with what is behind it", onlySumOfAll, {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    NextBoot();
    Held().clear();
    SetVariable(bds::kBotCopyName, bds::kBotVariablesGuid, kAttributes3, row.copy);
    bds::BootOrderTableEntryPoint();
    EXPECT_EQ(HeldTable(), row.sent);
    EXPECT_EQ(Variable(bds::kBotCopyName, bds::kBotVariablesGuid).has_value(), !row.sent.empty());
    EXPECT_EQ(Logged("BOT:WriteBMCBOT Completed \n"), !row.sent.empty());
  }
}

// Whichever allocation fails, the user's change stays at the BMC.
TEST_F(BootOrderTableTest, WithoutMemoryTheCopyReplacesNothing) {
  const Bytes changed = Marked(TableOf(1000));
  int failed = 0;
  for (; failed < 100; ++failed) {
    SCOPED_TRACE(failed);
    NextBoot();
    Held() = changed;
    SetVariable(bds::kBotCopyName, bds::kBotVariablesGuid, kAttributes3, TableOf(50));
    FailAllocationAfter(failed);
    bds::BootOrderTableEntryPoint();
    EXPECT_EQ(HeldTable(), changed);
    const bds::PoolPtr<std::byte> next(static_cast<std::byte*>(bds::AllocatePool(1)));
    machine.Faults().SetCallHook({});
    if (!next) {
      break;  // the step has no such allocation any more
    }
  }
  EXPECT_GT(failed, 3);
  EXPECT_LT(failed, 100);
}

TEST_F(BootOrderTableTest, AChangedTableIsKeptAndMarksTheBoot) {
  Bytes table = TableOf(50);
  Held() = table;
  bds::BootOrderTableEntryPoint();
  EXPECT_EQ(bds::gPolicyEngine.BotUpdatedOldWay, 0);
  EXPECT_FALSE(Variable(bds::kBotChangedName, bds::kBotVariablesGuid));
  table = Marked(table);
  Held() = table;
  bds::BootOrderTableEntryPoint();
  EXPECT_EQ(bds::gPolicyEngine.BotUpdatedOldWay, 1);
  table.resize(table.size() + bds::kBotTail);
  EXPECT_EQ(Variable(bds::kBotChangedName, bds::kBotVariablesGuid), table);
  EXPECT_EQ(Variable(bds::kBotCopyName, bds::kBotVariablesGuid), table);
  // The same table again writes nothing.
  const std::uint64_t writes = NonVolatileWrites();
  bds::BootOrderTableEntryPoint();
  EXPECT_EQ(NonVolatileWrites(), writes);
}

// A header and its member share a number, which stands for what the header is.
TEST_F(BootOrderTableTest, AMemberAloneNamesNoGroup) {
  for (const bool active : {true, false}) {
    SCOPED_TRACE(active);
    NextBoot();
    sim::DevicePath path;
    path.File(u"a");
    for (const bool isHeader : {true, false}) {
      bds::BOOT_OPTION* option = bds::CreateBootOption(bds::BootOptionList);
      option->BootOptionNumber = 5;
      option->GroupHeader = isHeader ? TRUE : FALSE;
      option->Attributes = active || !isHeader ? LOAD_OPTION_ACTIVE : 0;
      option->FilePathList.reset(
          static_cast<EFI_DEVICE_PATH_PROTOCOL*>(bds::AllocateCopyPool(path.Size(), path.Bytes().data())));
      option->FilePathListLength = path.Size();
    }
    bds::PoolBuffer built;
    EXPECT_EQ(bds::CreateSmBotData(built), EFI_SUCCESS);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(built.Data.get());
    const auto seen = sim::BootOrderTable::Parse({bytes, built.Size});
    ASSERT_TRUE(seen && seen->sumIsGood && seen->damage.empty());
    EXPECT_EQ(seen->Groups(), active ? Bytes{bds::kBotEfi} : Bytes{});
    EXPECT_EQ(seen->names.size(), active ? 1U : 0U);
    while (bds::BootOptionList.First != nullptr) {
      bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
    }
  }
}

TEST_F(BootOrderTableTest, DumpShowsTwelveItems) {
  const struct {
    std::uint8_t items;
    bool overflow;
  } cases[] = {{11, false}, {12, false}, {13, true}};
  for (const auto& row : cases) {
    Bytes table = TableOf(19);
    table.resize(11);
    table.insert(table.end(), {0x08, row.items});
    table.resize(table.size() + row.items, 0x42);
    table.insert(table.end(), {0x10, 1, 0x0A, 0x00, 0x77, 0, 0xFF, 0});
    table[kLengthAt] = static_cast<std::uint8_t>(table.size());
    TakeLog();
    bds::DumpBootOrderTable(std::as_bytes(std::span(table)), table.size());
    const std::string log = TakeLog();
    EXPECT_EQ(std::ranges::count(log, '\n'), row.overflow ? 5 : 4);
    EXPECT_EQ(log.find("Data overflow\n") != std::string::npos, row.overflow);
    EXPECT_NE(log.find("EFI: #000a \n?: 77: \nEnd. \n"), std::string::npos) << log;
    bds::DumpBootOrderTable(std::as_bytes(std::span(table)), table.size() - 1);
    EXPECT_EQ(TakeLog(), "");
  }
}

// Cut anywhere, changed anywhere: nothing is read past the end, and the simulator's reading agrees on the groups.
TEST_F(BootOrderTableTest, DamagedTablesAreWalkedWithinTheirBytes) {
  const Bytes whole = TableOf(60);
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const std::uint8_t value : {std::uint8_t{0}, std::uint8_t{0x10}, std::uint8_t{0xFF}}) {
      Bytes table(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(at + 1));
      table[at] = value;
      table.shrink_to_fit();
      bds::BOT_HEADER header;
      const bool readable = bds::ReadBotHeader(std::as_bytes(std::span(table)), header);
      bds::BotEntries entries(std::as_bytes(std::span(table)));
      std::size_t taken = 0;
      for (bds::BotEntry entry; entries.Next(entry);) {
        taken += 2 + entry.Items.size();
      }
      EXPECT_LE(taken + sizeof(bds::BOT_HEADER), std::max(table.size(), sizeof(bds::BOT_HEADER)));
      const auto seen = sim::BootOrderTable::Parse(table);
      EXPECT_TRUE(!readable || (seen && seen->length == header.Length));
    }
  }
}

}  // namespace
}  // namespace test

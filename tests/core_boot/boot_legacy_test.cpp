// Booting a legacy option: the exchange of priorities, and when nothing may be changed.
#include <gmock/gmock.h>

#include "core/boot.h"
#include "platform/legacy_bios.h"
#include "tests/support/driver_fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr UINT16 kNone = 0xFFFF;
constexpr UINT16 kAside = 0xFFFC;

// A CSM with a table of few entries, which refuses every boot.
struct FakeCsm {
  EFI_LEGACY_BIOS_PROTOCOL Protocol{};  // first, so that the services find the record behind it
  BBS_TABLE Table[256];
  UINT16 Count = 0;
  int Boots = 0;
  UINT16 BootedType = 0;

  FakeCsm() {
    std::memset(Table, 0xFF, sizeof(Table));
    Protocol.GetBbsInfo = GetBbsInfo;
    Protocol.LegacyBoot = LegacyBoot;
  }
  void Add(UINT16 priority, UINT16 type) {
    Table[Count].BootPriority = priority;
    Table[Count].DeviceType = type;
    ++Count;
  }
  std::vector<UINT16> Priorities() const {
    std::vector<UINT16> priorities;
    for (UINT16 i = 0; i < Count; ++i) {
      priorities.push_back(UINT16{Table[i].BootPriority});  // a copy: entries are packed
    }
    return priorities;
  }
  static EFI_STATUS EFIAPI GetBbsInfo(EFI_LEGACY_BIOS_PROTOCOL* self, UINT16* hddCount, HDD_INFO** hddInfo,
                                      UINT16* count, BBS_TABLE** table) {
    auto& csm = *reinterpret_cast<FakeCsm*>(self);
    *hddCount = 0;
    *hddInfo = nullptr;
    *count = csm.Count;
    *table = csm.Table;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI LegacyBoot(EFI_LEGACY_BIOS_PROTOCOL* self, BBS_BBS_DEVICE_PATH* path, UINT32 size,
                                      VOID* options) {
    auto& csm = *reinterpret_cast<FakeCsm*>(self);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(options, nullptr);
    csm.BootedType = path->DeviceType;
    ++csm.Boots;
    return EFI_DEVICE_ERROR;
  }
};

class BootLegacyTest : public test::DriverTest {
 protected:
  EFI_STATUS Boot(UINT16 type, UINT16 number = 5) {
    sim::DevicePath path = sim::DevicePath().Bbs(type, 0, "disk");
    return bds::BootLegacyOption(path.Get(), number);
  }
  FakeCsm csm;
};

TEST_F(BootLegacyTest, TheChosenEntryTradesPlacesWithTheFirst) {
  const struct {
    const char* What;
    std::vector<std::pair<UINT16, UINT16>> Entries;  // priority and type
    EFI_STATUS Status;
    std::vector<UINT16> Expected;
  } cases[] = {
      {"two disks of 3 and 1 behind a CD-ROM of 0", {{0, 3}, {3, 2}, {1, 2}}, EFI_DEVICE_ERROR, {1, 3, 0}},
      {"the disk is first already", {{2, 3}, {0, 2}, {1, 2}}, EFI_DEVICE_ERROR, {2, 0, 1}},
      {"the first of equals", {{0, 3}, {4, 2}, {4, 2}}, EFI_DEVICE_ERROR, {4, 0, 4}},
      {"nobody is first", {{7, 2}, {5, 2}}, EFI_DEVICE_ERROR, {7, 0}},
      {"two are first: the first of them moves", {{0, 3}, {0, 1}, {9, 2}}, EFI_DEVICE_ERROR, {9, 0, 0}},
      {"empty entries and those set aside do not count",
       {{kNone, 2}, {kAside, 2}, {6, 2}, {0, 1}},
       EFI_DEVICE_ERROR,
       {kNone, kAside, 0, 6}},
      {"only such entries", {{kNone, 2}, {kAside, 2}, {0, 1}}, EFI_NOT_FOUND, {kNone, kAside, 0}},
      {"no entry of the type", {{0, 3}, {1, 1}}, EFI_NOT_FOUND, {0, 1}},
      {"an empty table", {}, EFI_NOT_FOUND, {}},
  };
  Install(&csm.Protocol);
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    csm.Count = 0;
    csm.Boots = 0;
    for (const auto& [priority, type] : row.Entries) {
      csm.Add(priority, type);
    }
    EXPECT_EQ(Boot(2), row.Status);
    EXPECT_THAT(csm.Priorities(), ElementsAreArray(row.Expected));
    EXPECT_EQ(csm.Boots, row.Status == EFI_NOT_FOUND ? 0 : 1);
  }
}

TEST_F(BootLegacyTest, BootCurrentNamesTheOptionUnlessItHasNoNumber) {
  Install(&csm.Protocol);
  csm.Add(1, 2);
  EXPECT_EQ(Boot(2, 0xFFFF), EFI_DEVICE_ERROR);
  EXPECT_EQ(Find(u"BootCurrent"), nullptr);
  EXPECT_EQ(Boot(2, 0x12), EFI_DEVICE_ERROR);
  ExpectVariable(u"BootCurrent", 6, test::Numbers({0x12}));
  EXPECT_EQ(csm.BootedType, 2);
}

TEST_F(BootLegacyTest, WithoutACsmNothingHappens) { EXPECT_EQ(Boot(2), EFI_NOT_FOUND); }

TEST_F(BootLegacyTest, ANodeTooShortForATypeIsRefused) {
  Install(&csm.Protocol);
  csm.Add(1, 2);
  for (const std::size_t body : {std::size_t{0}, std::size_t{1}, std::size_t{3}}) {
    sim::DevicePath path;
    path.AppendRaw(BBS_DEVICE_PATH, BBS_BBS_DP, test::Data(body));
    const EFI_STATUS expected = body < 2 ? EFI_INVALID_PARAMETER : EFI_NOT_FOUND;
    EXPECT_EQ(bds::BootLegacyOption(path.Get(), 1), expected) << body;
  }
  EXPECT_THAT(csm.Priorities(), ElementsAre(1));
}

}  // namespace

// Booting a legacy option: the exchange of priorities, and when nothing may be changed.
#include <gmock/gmock.h>

#include "core/boot.h"
#include "sim/csm/csm.h"
#include "tests/support/driver_fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr UINT16 kNone = 0xFFFF;
constexpr UINT16 kAside = 0xFFFC;

// A CSM that refuses every boot.
class BootLegacyTest : public test::DriverTest {
 protected:
  void SetTable(const std::vector<std::pair<UINT16, UINT16>>& entries) {  // priority and type
    if (csm == nullptr) {
      csm = &machine.Attach<sim::Csm>(sim::CsmDescription{});
      csm->bootStatus = EFI_DEVICE_ERROR;
    }
    for (UINT16 i = 0; i < sim::Csm::kEntries; ++i) {
      csm->Entry(i).BootPriority = i < entries.size() ? entries[i].first : kNone;
      csm->Entry(i).DeviceType = i < entries.size() ? entries[i].second : UINT16{0};
    }
    size = entries.size();
  }
  std::vector<UINT16> Priorities() {
    std::vector<UINT16> priorities;
    for (std::size_t i = 0; i < size; ++i) {
      priorities.push_back(UINT16{csm->Entry(i).BootPriority});  // a copy: entries are packed
    }
    return priorities;
  }
  EFI_STATUS Boot(UINT16 type, UINT16 number = 5) {
    sim::DevicePath path = sim::DevicePath().Bbs(type, 0, "disk");
    return bds::BootLegacyOption(path.Get(), number);
  }
  sim::Csm* csm = nullptr;
  std::size_t size = 0;
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
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    SetTable(row.Entries);
    const std::size_t before = csm->Attempts().size();
    EXPECT_EQ(Boot(2), row.Status);
    EXPECT_THAT(Priorities(), ElementsAreArray(row.Expected));
    EXPECT_EQ(csm->Attempts().size() - before, row.Status == EFI_NOT_FOUND ? 0U : 1U);
  }
}

TEST_F(BootLegacyTest, BootCurrentNamesTheOptionUnlessItHasNoNumber) {
  SetTable({{1, 2}});
  EXPECT_EQ(Boot(2, 0xFFFF), EFI_DEVICE_ERROR);
  EXPECT_EQ(Find(u"BootCurrent"), nullptr);
  EXPECT_EQ(Boot(2, 0x12), EFI_DEVICE_ERROR);
  ExpectVariable(u"BootCurrent", 6, test::Numbers({0x12}));
  EXPECT_EQ(csm->Attempts().back().index, 0);
}

TEST_F(BootLegacyTest, WithoutACsmNothingHappens) { EXPECT_EQ(Boot(2), EFI_NOT_FOUND); }

TEST_F(BootLegacyTest, ANodeTooShortForATypeIsRefused) {
  SetTable({{1, 2}});
  for (const std::size_t body : {std::size_t{0}, std::size_t{1}, std::size_t{3}}) {
    sim::DevicePath path;
    path.AppendRaw(BBS_DEVICE_PATH, BBS_BBS_DP, test::Data(body));
    const EFI_STATUS expected = body < 2 ? EFI_INVALID_PARAMETER : EFI_NOT_FOUND;
    EXPECT_EQ(bds::BootLegacyOption(path.Get(), 1), expected) << body;
  }
  EXPECT_THAT(Priorities(), ElementsAre(1));
}

}  // namespace

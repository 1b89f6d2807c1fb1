// The check and the parse of Boot#### images: each rule broken alone, every length cut, groups that lie.
#include "bootopt/load_option.h"

#include <random>

#include "support/device_path.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/option_image.h"

namespace bds {
namespace {

using fake::Data;
using fake::Join;
using fake::kFirmware;
using fake::kGroup;
using fake::Member;
using fake::OptionImage;
using fake::OptionsOf;
using fake::Path;

Bytes AsSpan(const Data& data) { return std::as_bytes(std::span(data)); }
Data AsData(Bytes bytes) {
  const auto* first = reinterpret_cast<const UINT8*>(bytes.data());
  return {first, first + bytes.size()};
}

class LoadOption : public fake::BootListsTest {
 protected:
  BOOT_OPTION* Parse(const Data& image, UINT16 number = 5) {
    LoadOptionView view;
    return ViewLoadOption(AsSpan(image), view) ? ParseLoadOption(BootOptionList, number, view, priority_) : nullptr;
  }
  UINT32 priority_ = 256;
};

// Attributes, FilePathListLength, "Hi", a PCI node and the end, two bytes of optional data.
const Data kGolden = {0x09, 0, 0, 0, 10, 0, 'H', 0, 'i', 0, 0, 0, 1, 1, 6, 0, 2, 0x1F, 0x7F, 0xFF, 4, 0, 0xDE, 0xAD};

TEST_F(LoadOption, TakesAnImageApart) {
  LoadOptionView view;
  ASSERT_TRUE(ViewLoadOption(AsSpan(kGolden), view));
  EXPECT_EQ(view.Attributes, 9U);
  EXPECT_EQ(AsData(view.Description), (Data{'H', 0, 'i', 0, 0, 0}));
  EXPECT_EQ(AsData(view.FilePathList), (Data{1, 1, 6, 0, 2, 0x1F, 0x7F, 0xFF, 4, 0}));
  EXPECT_EQ(AsData(view.OptionalData), (Data{0xDE, 0xAD}));
  BOOT_OPTION* option = Parse(kGolden);
  ASSERT_NE(option, nullptr);
  EXPECT_EQ(option->Attributes, 9U);
  EXPECT_EQ(std::u16string(option->Description.get()), u"Hi");
  EXPECT_EQ(option->FilePathListLength, 10U);
  EXPECT_EQ(option->OptionalDataSize, 2U);
  EXPECT_EQ(option->BootOptionNumber, 5);
  EXPECT_EQ(option->Priority, 256U);
  EXPECT_EQ(option->FwBootOption | option->GroupHeader, FALSE);
  EXPECT_EQ(option->Tag, kUnassigned);
}

TEST_F(LoadOption, EveryCutOfTheStructureIsMalformed) {
  LoadOptionView view;
  for (UINTN size = 0; size <= kGolden.size(); ++size) {
    // Copied, so that a read past the end is seen.
    const Data cut(kGolden.begin(), kGolden.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(ViewLoadOption(AsSpan(cut), view), size >= kGolden.size() - 2) << size;
  }
}

struct ImageCase {
  const char* Name;
  Data Image;
  bool WellFormed;
};
Data WithPathLength(UINT16 length) {
  Data image = kGolden;
  image[4] = static_cast<UINT8>(length);
  image[5] = static_cast<UINT8>(length >> 8);
  return image;
}
Data WithPaths(const Data& paths) {
  OptionImage image;
  image.Paths = paths;
  return image.Bytes();
}
const ImageCase kImages[] = {
    {"path length 0", WithPathLength(0), false},
    {"path length 3", WithPathLength(3), false},
    {"path length one too small", WithPathLength(9), false},
    {"path length one too large", WithPathLength(11), false},
    {"path length of all that follows", WithPathLength(18), false},
    {"path length 0xFFFF", WithPathLength(0xFFFF), false},
    {"empty description", {1, 0, 0, 0, 4, 0, 0, 0, 0x7F, 0xFF, 4, 0}, true},
    {"room of one byte for the description", {1, 0, 0, 0, 4, 0, 0, 0x7F, 0xFF, 4, 0}, false},
    {"no room for the description", {1, 0, 0, 0, 4, 0, 0x7F, 0xFF, 4, 0}, false},
    {"description without NUL", {1, 0, 0, 0, 4, 0, 'A', 0, 0x7F, 0xFF, 4, 0}, false},
    {"a NUL only at an odd place", {1, 0, 0, 0, 4, 0, 'A', 0, 0, 'B', 0x7F, 0xFF, 4, 0}, false},
    {"only an end node", WithPaths({0x7F, 0xFF, 4, 0}), true},
    {"two paths", WithPaths(Join({Path().Node(1, 1, {0, 2}).Bytes(), Path().Node(3, 18, {0, 0}).Bytes()})), true},
    {"two instances", WithPaths(Path().Node(1, 1, {}).Node(0x7F, 1, {}).Node(1, 1, {}).Bytes()), true},
    {"node type 0", WithPaths(Path().Node(0, 1, {}).Bytes()), false},
    {"node type 6", WithPaths(Path().Node(6, 1, {}).Bytes()), false},
    {"node type 6 in a second path", WithPaths(Join({Path().Bytes(), Path().Node(6, 1, {}).Bytes()})), true},
    {"node length 0", WithPaths({1, 1, 0, 0, 0x7F, 0xFF, 4, 0}), false},
    {"node length 3", WithPaths({1, 1, 3, 0, 0x7F, 0xFF, 4, 0}), false},
    {"node length 0 in a second path", WithPaths({0x7F, 0xFF, 4, 0, 1, 1, 0, 0, 0x7F, 0xFF, 4, 0}), false},
    {"node over the end", WithPaths({1, 1, 9, 0, 0x7F, 0xFF, 4, 0}), false},
    {"node that swallows the end node", WithPaths({1, 1, 8, 0, 0x7F, 0xFF, 4, 0}), false},
    {"last node is no end node", WithPaths({0x7F, 0xFF, 4, 0, 1, 1, 4, 0}), false},
    {"last node ends an instance only", WithPaths({0x7F, 0xFF, 4, 0, 0x7F, 1, 4, 0}), false},
    {"last end node of length 5", WithPaths({0x7F, 0xFF, 4, 0, 0x7F, 0xFF, 5, 0, 0}), false},
    {"three bytes behind the end node", WithPaths({0x7F, 0xFF, 4, 0, 0, 0, 0}), false},
};

TEST_F(LoadOption, EachRuleBrokenAloneMakesAnImageMalformed) {
  for (const ImageCase& image : kImages) {
    LoadOptionView view;
    EXPECT_EQ(ViewLoadOption(AsSpan(image.Image), view), image.WellFormed) << image.Name;
    EXPECT_EQ(Parse(image.Image) != nullptr, image.WellFormed) << image.Name;
  }
}

struct MarkerCase {
  const char* Name;
  Data Optional;
  bool Firmware;
  bool Header;
  UINTN Options;
  Data Kept;
};

TEST_F(LoadOption, MarkersGroupsAndWhatIsLeftOfThem) {
  OptionImage plain;
  plain.Optional = Join({kFirmware, {7}});
  const Data member = Member(plain.Bytes());
  const auto lying = [&](UINT32 length) {
    Data record{0, 0, 0x4E, 0x4F};
    fake::Append32(record, length);
    return Join({record, plain.Bytes()});
  };
  const auto size = static_cast<UINT32>(member.size());
  Data malformed = plain.Bytes();
  malformed[4] = 3;  // a path too short to be one
  const MarkerCase cases[] = {
      {"nothing", {}, false, false, 1, {}},
      {"three bytes", {0, 0, 0x42}, false, false, 1, {0, 0, 0x42}},
      {"foreign data", {1, 2, 3, 4, 5}, false, false, 1, {1, 2, 3, 4, 5}},
      {"firmware marker alone", kFirmware, true, false, 1, {}},
      {"firmware marker and data", Join({kFirmware, {9}}), true, false, 1, {9}},
      {"two firmware markers", Join({kFirmware, kFirmware}), true, false, 1, kFirmware},
      {"group without members", kGroup, true, true, 1, {}},
      {"group with data", Join({kGroup, {1, 2}}), true, true, 1, {1, 2}},
      {"group with a member", Join({kGroup, member}), true, true, 2, {}},
      {"group with three members and data", Join({kGroup, member, member, member, {5}}), true, true, 4, {5}},
      {"member behind the firmware marker", Join({kFirmware, member}), true, false, 1, member},
      {"member without group", member, false, false, 1, member},
      {"record of eight bytes",
       Join({kGroup, {0, 0, 0x4E, 0x4F, 8, 0, 0, 0}}),
       true,
       true,
       1,
       {0, 0, 0x4E, 0x4F, 8, 0, 0, 0}},
      {"record length 0", Join({kGroup, lying(0)}), true, true, 1, lying(0)},
      {"record length 7", Join({kGroup, lying(7)}), true, true, 1, lying(7)},
      {"record length one too large", Join({kGroup, lying(size + 1)}), true, true, 1, lying(size + 1)},
      {"record length all ones", Join({kGroup, lying(0xFFFFFFFF)}), true, true, 1, lying(0xFFFFFFFF)},
      {"a good member before a lying one", Join({kGroup, member, lying(size + 1)}), true, true, 2, lying(size + 1)},
      {"member with a malformed image", Join({kGroup, member, Member(malformed), member}), true, true, 2,
       Join({Member(malformed), member})},
  };
  for (const MarkerCase& marker : cases) {
    OptionImage image;
    image.Optional = marker.Optional;
    BOOT_OPTION* option = Parse(image.Bytes());
    ASSERT_NE(option, nullptr) << marker.Name;
    EXPECT_EQ(option->FwBootOption != FALSE, marker.Firmware) << marker.Name;
    EXPECT_EQ(option->GroupHeader != FALSE, marker.Header) << marker.Name;
    EXPECT_EQ(AsData({option->OptionalData.get(), option->OptionalDataSize}), marker.Kept) << marker.Name;
    const auto options = OptionsOf(BootOptionList);
    ASSERT_EQ(options.size(), marker.Options) << marker.Name;
    for (UINTN i = 1; i < options.size(); ++i) {
      EXPECT_EQ(options[i]->BootOptionNumber, 5) << marker.Name;
      EXPECT_EQ(options[i]->FwBootOption, TRUE) << "from its own marker";
      EXPECT_EQ(options[i]->OptionalDataSize, 1U);
    }
    while (BootOptionList.First != nullptr) {
      DeleteBootOption(BootOptionList, BootOptionList.First);
    }
  }
}

TEST_F(LoadOption, AHeaderWithThreeMembersAndTheNextOptionStand256Apart) {
  OptionImage member;
  member.Description = u"Member";
  OptionImage header;
  header.Optional = Join({kGroup, Member(member.Bytes()), Member(member.Bytes()), Member(member.Bytes())});
  ASSERT_NE(Parse(header.Bytes(), 2), nullptr);
  ASSERT_NE(Parse(member.Bytes(), 3), nullptr);
  std::vector<std::pair<UINT16, UINT32>> seen;
  for (const BOOT_OPTION* option : OptionsOf(BootOptionList)) {
    seen.emplace_back(option->BootOptionNumber, option->Priority);
  }
  EXPECT_EQ(seen, (std::vector<std::pair<UINT16, UINT32>>{{2, 256}, {2, 512}, {2, 768}, {2, 1024}, {3, 1280}}));
  EXPECT_EQ(OptionsOf(BootOptionList).at(0)->GroupHeader, TRUE);
}

TEST_F(LoadOption, GroupsInGroupsEndAtABoundAndLoseNothing) {
  OptionImage image;
  for (int depth = 0; depth < 300; ++depth) {
    OptionImage outer;
    outer.Optional = Join({kGroup, Member(image.Bytes())});
    image = outer;
  }
  ASSERT_NE(Parse(image.Bytes()), nullptr);
  const auto options = OptionsOf(BootOptionList);
  EXPECT_EQ(options.size(), UINTN{kMaxGroupDepth} + 1);
  const BOOT_OPTION* deepest = options.back();
  Bytes kept{deepest->OptionalData.get(), deepest->OptionalDataSize};
  Bytes inner;
  UINTN recordSize = 0;
  EXPECT_TRUE(ViewMemberRecord(kept, inner, recordSize)) << "the deeper groups are still there as bytes";
  EXPECT_EQ(recordSize, kept.size());
}

TEST_F(LoadOption, AnExhaustedPoolLeavesNoPartOfAnOption) {
  OptionImage header;
  header.Optional = Join({kGroup, Member(OptionImage().Bytes()), {1, 2, 3}});
  // Header and member take four and three blocks, the optional data one.
  for (int successes = 0; successes < 3; ++successes) {
    Fw.FailAllocationAfter(successes);
    EXPECT_EQ(Parse(header.Bytes()), nullptr) << successes;
    EXPECT_EQ(BootOptionList.Count, 0U);
    EXPECT_EQ(Fw.PoolBlocks(), 0U);
  }
  // A member that finds no room stays in its header's optional data.
  for (int successes = 3; successes < 6; ++successes) {
    Fw.FailAllocationAfter(successes);
    BOOT_OPTION* option = Parse(header.Bytes());
    ASSERT_NE(option, nullptr);
    EXPECT_EQ(BootOptionList.Count, 1U) << successes;
    EXPECT_EQ(option->OptionalDataSize, header.Optional.size() - kGroup.size());
    DeleteBootOption(BootOptionList, option);
  }
  // Without its optional data the group is not the one that was loaded.
  Fw.FailAllocationAfter(6);
  EXPECT_EQ(Parse(header.Bytes()), nullptr);
  EXPECT_EQ(BootOptionList.Count, 0U);
  EXPECT_EQ(Fw.PoolBlocks(), 0U);
}

// Random damage to good images: nothing may be read outside, and what is loaded is consistent.
TEST_F(LoadOption, DamagedImagesAreRefusedOrConsistent) {
  std::mt19937 random(44);
  OptionImage header;
  header.Optional = Join({kGroup, Member(OptionImage().Bytes()), Member(kGolden), {1, 2, 3}});
  UINTN accepted = 0;
  for (int round = 0; round < 20000; ++round) {
    Data image = header.Bytes();
    for (unsigned changes = 1 + static_cast<unsigned>(random() % 3); changes != 0; --changes) {
      image[random() % image.size()] = static_cast<UINT8>(random() % 4 == 0 ? 0xFF : random());
    }
    if (random() % 3 == 0) {
      image.resize(random() % (image.size() + 1));
    }
    const Data exact(image);
    if (Parse(exact) == nullptr) {
      ASSERT_EQ(BootOptionList.Count, 0U);
      continue;
    }
    ++accepted;
    for (const BOOT_OPTION* option : OptionsOf(BootOptionList)) {
      ASSERT_NE(
          DevicePathSize({reinterpret_cast<const std::byte*>(option->FilePathList.get()), option->FilePathListLength}),
          0U);
    }
    while (BootOptionList.First != nullptr) {
      DeleteBootOption(BootOptionList, BootOptionList.First);
    }
    TakeLog();
    priority_ = 256;
  }
  EXPECT_GT(accepted, 1000U);
  EXPECT_LT(accepted, 19000U);
}

}  // namespace
}  // namespace bds

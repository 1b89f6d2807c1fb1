// The step that loads the options: what it reads, deletes and leaves alone.
#include "bootopt/steps.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/option_image.h"

namespace bds {
namespace {

using fake::Data;
using fake::OptionImage;
using fake::OptionsOf;

class ReadOptions : public fake::BootListsTest {
 protected:
  void SetOption(const std::u16string& name, const std::u16string& description) {
    OptionImage image;
    image.Description = description;
    Fw.Put(name, image.Bytes());
  }
  void SetOrder(std::initializer_list<UINT16> numbers) {
    Data order;
    for (const UINT16 number : numbers) {
      fake::Append16(order, number);
    }
    Fw.Put(u"BootOrder", order);
  }
  std::vector<std::u16string> Loaded() const {
    std::vector<std::u16string> names;
    for (const BOOT_OPTION* option : OptionsOf(BootOptionList)) {
      names.emplace_back(option->Description.get());
    }
    return names;
  }
};
using Names = std::vector<std::u16string>;

TEST_F(ReadOptions, AShortBootOrderHoldsNoNumber) {
  SetOption(u"Boot0000", u"A");
  Fw.Put(u"BootOrder", {0});
  EXPECT_EQ(ReadBootOptions(), EFI_SUCCESS);
  EXPECT_TRUE(Loaded().empty());
  EXPECT_EQ(TakeLog(), "MaxBootOption:0\n");
}

TEST_F(ReadOptions, FollowsTheOrderAndIgnoresItsOddByte) {
  SetOption(u"Boot0001", u"One");
  SetOption(u"Boot00AB", u"Upper");
  SetOption(u"Boot00cd", u"Lower");
  SetOption(u"Boot0009", u"Not in the order");
  SetOrder({0xCD, 0x77, 0xAB, 1});
  Fw.Put(u"BootOrder", {0xCD, 0, 0x77, 0, 0xAB, 0, 1, 0, 9});
  const auto writes = Fw.store.NonVolatileWrites();
  EXPECT_EQ(ReadBootOptions(), EFI_SUCCESS);
  EXPECT_EQ(Loaded(), (Names{u"Lower", u"Upper", u"One"}));
  EXPECT_EQ(OptionsOf(BootOptionList).at(2)->Priority, 768U) << "a missing variable takes no place";
  EXPECT_EQ(TakeLog(), "MaxBootOption:205\n");
  EXPECT_EQ(Fw.store.NonVolatileWrites(), writes);
}

TEST_F(ReadOptions, ANumberListedTwiceYieldsTwoOptions) {
  SetOption(u"Boot0003", u"Twice");
  SetOrder({3, 3});
  EXPECT_EQ(ReadBootOptions(), EFI_SUCCESS);
  const auto options = OptionsOf(BootOptionList);
  ASSERT_EQ(options.size(), 2U);
  EXPECT_EQ(options[0]->BootOptionNumber, options[1]->BootOptionNumber);
  EXPECT_LT(options[0]->Priority, options[1]->Priority);
}

TEST_F(ReadOptions, MalformedVariablesAreDeletedUnderTheNameTheyHave) {
  SetOption(u"Boot0001", u"Good");
  Fw.Put(u"Boot0002", {1, 0, 0, 0, 4, 0, 'A', 0, 0x7F, 0xFF, 4, 0});
  Fw.Put(u"Boot00ee", {1});
  SetOrder({2, 0xEE, 1});
  EXPECT_EQ(ReadBootOptions(), EFI_SUCCESS);
  EXPECT_EQ(Loaded(), Names{u"Good"});
  EXPECT_EQ(Fw.Deleted(), (Names{u"Boot0002", u"Boot00ee"}));
  EXPECT_EQ(TakeLog(), "MaxBootOption:1\n") << "silently, and the largest number is a loaded one";
}

TEST_F(ReadOptions, AVariableThatCannotBeReadIsLeftAlone) {
  SetOption(u"Boot0001", u"First");
  SetOption(u"Boot0002", u"Second, which is longer");
  SetOrder({1, 2});
  // The order, the first variable and its option take five blocks; the sixth is the larger read buffer.
  Fw.FailAllocationAfter(5);
  EXPECT_EQ(ReadBootOptions(), EFI_SUCCESS);
  EXPECT_EQ(Loaded(), Names{u"First"});
  EXPECT_TRUE(Fw.Deleted().empty());
}

TEST_F(ReadOptions, LongAndShortVariablesDoNotLeakIntoOneAnother) {
  SetOption(u"Boot0001", u"A very long description that leaves bytes behind in the buffer");
  SetOption(u"Boot0002", u"S");
  SetOrder({1, 2});
  EXPECT_EQ(ReadBootOptions(), EFI_SUCCESS);
  EXPECT_EQ(OptionsOf(BootOptionList).at(1)->OptionalDataSize, 0U);
  EXPECT_EQ(Loaded().at(1), u"S");
}

}  // namespace
}  // namespace bds

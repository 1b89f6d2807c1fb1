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

class Dumps : public fake::BootListsTest {
 protected:
  std::string DumpOf(const Data& image) {
    DumpLoadOption(std::as_bytes(std::span(image)), false);
    return TakeLog();
  }
};

TEST_F(Dumps, ABrokenPathStopsItsDumpOnly) {
  BOOT_OPTION& option = AddOption(u"x", {1, 1, 0, 0, 0x7F, 0xFF, 4, 0});
  DumpBootOption(option, 0);
  EXPECT_THAT(TakeLog(), testing::EndsWith("CAN'T CONVERT!\nNo DP on handle\n"));
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

}  // namespace
}  // namespace bds

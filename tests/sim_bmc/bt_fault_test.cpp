// Faults in words.
#include "sim/bmc/bt_fault.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

TEST(BmcFaultWords, WrongWordsNameThemselvesAndWhatIsKnown) {
  for (const char* words : {"", "@1", "bad", "bad-checksum:", "bad-checksum:0", "bad-checksum:-1", "bad-checksum:3x2",
                            "bad-checksum@0", "bad-checksum@x", "late", "late:", "late:x3", "late:5x", "late:99999999",
                            "lying-length:256", "no-answer:99999999999999999999"}) {
    std::string error;
    EXPECT_FALSE(BmcFault::Parse(words, error)) << words;
    EXPECT_NE(error.find(std::string("\"") + words + "\""), std::string::npos) << error;
    EXPECT_NE(error.find("bad-checksum[:COUNT]"), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace sim

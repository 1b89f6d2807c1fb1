// The BMC's end of the file transfer, frame by frame.
#include "sim/bmc/file_protocol.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

Frame Request(std::uint8_t opcode, const std::vector<std::uint8_t>& arguments) {
  return MakeResponse(opcode, arguments);  // both directions are framed alike
}
Frame Named(std::uint8_t opcode, const std::string& name) {
  return Request(opcode, std::vector<std::uint8_t>(name.begin(), name.end()));
}

class FileProtocol : public testing::Test {
 protected:
  Frame Ask(const Frame& request, Refusals refuse = {}) {
    changed = false;
    return server.Answer(request, refuse, changed);
  }
  FileStore store;
  FileServer server{store};
  bool changed = false;
};

TEST_F(FileProtocol, WhatCannotBeDoneIsRefusedWithAnotherLength) {
  ASSERT_EQ(Ask(Named(6, "new")).size(), 5U);
  const struct {
    const char* what;
    Frame request;
  } cases[] = {
      {"open of a missing file", Named(12, "nowhere")},
      {"create outside the folder", Named(6, "../etc")},
      {"create of a hidden name", Named(6, ".x")},
      {"read of an unknown handle", Request(7, {9, 0})},
      {"write to an unknown handle", Request(8, {9, 0, 1})},
      {"write of nothing", Request(8, {1, 0})},
      {"write of 60 bytes", Request(8, std::vector<std::uint8_t>(62, 1))},
      {"close of an unknown handle", Request(9, {9, 0})},
      {"close without a handle", Request(18, {})},
      {"unknown opcode", Request(99, {1, 0})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(Ask(c.request)[0], 3);
    EXPECT_FALSE(changed);
  }
  EXPECT_EQ(store.Names(), std::vector<std::string>{"new"});
}

TEST_F(FileProtocol, RenameAnswersWithItsStatus) {
  store.Write("old", {1, 2});
  store.Write("target", {3});
  const auto rename = [](const std::string& from, const std::string& to, int lie = 0) {
    std::vector<std::uint8_t> arguments{static_cast<std::uint8_t>(static_cast<int>(from.size()) + lie),
                                        static_cast<std::uint8_t>(to.size())};
    arguments.insert(arguments.end(), from.begin(), from.end());
    arguments.insert(arguments.end(), to.begin(), to.end());
    return Request(16, arguments);
  };
  EXPECT_EQ(Ask(rename("missing", "x")), (Frame{3, 16, 1, 0xEC}));
  EXPECT_EQ(Ask(rename("old", "target", 1)), (Frame{3, 16, 1, 0xEC}));
  EXPECT_EQ(Ask(rename("old", "a/b")), (Frame{3, 16, 1, 0xEC}));
  EXPECT_FALSE(changed);
  EXPECT_EQ(Ask(rename("old", "target")), (Frame{3, 16, 0, 0xED}));
  EXPECT_TRUE(changed);
  EXPECT_EQ(store.Read("target"), (FileBytes{1, 2}));
  EXPECT_FALSE(store.Exists("old"));
  EXPECT_FALSE(store.Write("big", FileBytes(FileStore::kMaxFileSize + 1)));
}

TEST_F(FileProtocol, HandlesRunOutAndComeBack) {
  store.Write("f", {});
  for (std::size_t i = 0; i < FileServer::kMaxOpenFiles; ++i) {
    ASSERT_EQ(Ask(Named(12, "f"))[0], 4);
  }
  EXPECT_EQ(Ask(Named(12, "f"))[0], 3);
  EXPECT_EQ(Ask(Request(9, {1, 0}))[0], 2);
  EXPECT_EQ(Ask(Named(12, "f"))[0], 4);
}

}  // namespace
}  // namespace sim

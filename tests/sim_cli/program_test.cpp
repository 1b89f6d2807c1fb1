// The built program, run as a user runs it: exit statuses, and what it writes where.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace sim {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

struct Ended {
  int status = -1;
  std::string text;  // both outputs
};

class Program : public testing::Test {
 protected:
  void SetUp() override {
    std::string place = (fs::temp_directory_path() / "bds-sim-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(place.data()), nullptr);
    folder_ = place;
  }
  void TearDown() override { fs::remove_all(folder_); }

  Ended Run(const std::string& arguments, const char* errors = "2>&1") const {
    const std::string command =
        "cd '" + folder_.string() + "' && '" BDS_SIM_PROGRAM "' " + arguments + " " + errors + " </dev/null";
    Ended ended;
    std::FILE* stream = popen(command.c_str(), "r");
    if (stream == nullptr) {
      return ended;
    }
    char buffer[4096];
    for (std::size_t size = 0; (size = std::fread(buffer, 1, sizeof(buffer), stream)) != 0;) {
      ended.text.append(buffer, size);
    }
    const int status = pclose(stream);
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ended;
  }
  void Write(const std::string& name, std::string_view text) const {
    fs::create_directories((folder_ / name).parent_path());
    std::ofstream(folder_ / name, std::ios::binary) << text;
  }
  std::string Read(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(folder_ / name, std::ios::binary).rdbuf();
    return text.str();
  }
  // A server with one legacy disk that its CSM boots.
  void WriteLegacyServer() const {
    Write("legacy.toml", R"(name = "legacy one"
[setup]
uefi_mode = 0
[csm]
[[csm.entry]]
index = 30
bus = 0
device = 5
function = 0
subclass = 4
description = "DISK A"
[[root_bridge]]
[[root_bridge.function]]
kind = "raid"
device = 5
)");
  }
  // Nothing to boot at all, not even the shell.
  void WriteEmptyServer() const {
    Write("empty.toml", "name = \"empty one\"\n[firmware]\nshell_present = false\n[[root_bridge]]\n");
  }

  fs::path folder_;
};

struct WrongCase {
  const char* arguments;
  const char* part;
};

TEST_F(Program, WhatIsWrongIsSaidAndGivesTwo) {
  WriteEmptyServer();
  Write("bad.toml", "name = \"x\"\nnmae = 1\n");
  Write("state/nvram/Boot0001", "no variable");
  Write("bmc-file/bmc", "");
  Write("bmc-state/bmc/parameters.toml", "set_in_progress = \"never\"\n");
  const WrongCase cases[] = {
      {"", "subcommand"},
      {"boot", "SERVER.toml"},
      {"fly empty.toml", "subcommand"},
      {"boot empty.toml --no-such-option", "--no-such-option"},
      {"boot empty.toml --boots 0", "--boots"},
      {"boot empty.toml --loader-status EFI_NO_SUCH", "EFI_NO_SUCH"},
      {"boot empty.toml --execute --loader-status EFI_SUCCESS", "--execute"},
      {"boot empty.toml --fault 'call nothing'", "call nothing"},
      {"boot empty.toml --fault no-such-fault", "call SERVICE N STATUS [COUNT]"},
      {"boot empty.toml --fault 'power moon 1'", "bmc-exchange or pci"},
      {"boot empty.toml --fault 'call SetVariabel 1 EFI_NOT_FOUND'", "a boot or runtime service"},
      {"boot empty.toml --json no/such/folder/json", "the JSON report cannot be written"},
      {"boot empty.toml --image state", "state: cannot be read"},
      {"boot empty.toml --state bad.toml", "bad.toml/nvram: cannot be made"},
      {"boot state", "bds-sim: state: cannot be read"},
      {"bmc bad.toml show", "bad.toml: is no folder"},
      {"bmc bmc-file show", "bmc-file/bmc: is no folder"},
      {"boot empty.toml --state bmc-file", "bmc-file/bmc: is no folder"},
      {"run no-such-folder -- true", "expected a state folder"},
      {"run state -- true", "Boot0001"},
      {"bmc new put name state", "state: cannot be read"},
      {"boot empty.toml --keys '{nokey}'", "nokey"},
      {"boot empty.toml --log no/such/folder/log", "log"},
      {"boot empty.toml --image no-such.efi", "no-such.efi"},
      {"boot missing.toml", "missing.toml"},
      {"boot bad.toml", "bad.toml:2: nmae: unknown key"},
      {"describe bad.toml", "bad.toml:2: nmae: unknown key"},
      {"boot empty.toml --state state", "Boot0001"},
      {"vars state", "Boot0001"},
      {"vars no-such-folder", "no-such-folder"},
      {"bmc bmc-state show", "parameters.toml"},
      {"bmc new bootdev tape", "tape"},
      {"bmc new bootdev pxe --instance 16", "16"},
      {"bmc new get nothing", "nothing"},
      {"bmc new put ../evil empty.toml", "../evil"},
      {"bmc new put name no-such-file", "no-such-file"},
  };
  for (const WrongCase& each : cases) {
    const Ended ended = Run(each.arguments);
    EXPECT_EQ(ended.status, 2) << each.arguments << "\n" << ended.text;
    EXPECT_THAT(ended.text, HasSubstr(each.part)) << each.arguments;
  }
  EXPECT_EQ(Read("state/nvram/Boot0001"), "no variable");
}

TEST_F(Program, JsonOnStandardOutputIsAlone) {
  WriteEmptyServer();
  const Ended ended = Run("boot empty.toml --json -", "2>/dev/null");
  EXPECT_EQ(ended.status, 3);
  const auto report = nlohmann::json::parse(ended.text, nullptr, false);
  ASSERT_FALSE(report.is_discarded()) << ended.text;
  EXPECT_EQ(report["boots"][0]["started"], false);
  EXPECT_TRUE(report["boots"][0]["booted"].is_null());
}

std::size_t LinesWith(const std::string& text, std::string_view part) {
  std::istringstream lines(text);
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line);) {
    count += line.starts_with("BMC@") && line.find(part) != std::string::npos ? 1 : 0;
  }
  return count;
}

// What the JSON counts is what the log tells line by line.
TEST_F(Program, TheBmcsTrafficIsInTheLogAndCountedInTheJson) {
  WriteEmptyServer();
  constexpr std::pair<const char*, const char*> kLines[] = {
      {"exchanges", " > "}, {"retries", "sent again"}, {"timeouts", "timeout: "}, {"ipmi_requests", "IPMI "}};
  struct Case {
    const char* fault;
    const char* counted;  // what the fault must have caused
  };
  for (const Case& each : {Case{"bad-checksum:2@10", "retries"}, Case{"no-answer:always", "timeouts"},
                           Case{"h2b-stuck:always", "timeouts"}, Case{"refuse-open@1", "exchanges"}}) {
    Run(std::string("boot empty.toml --log boot.log --json r.json --resets 0 --fault ") + each.fault);
    const std::string log = Read("boot.log");
    auto bmc = nlohmann::json::parse(Read("r.json"))["boots"][0]["starts"][0]["bmc"];
    EXPECT_GT(bmc[each.counted], 0) << each.fault;
    EXPECT_GT(bmc["seconds_in_steps"], 0) << each.fault;
    bmc["exchanges"] = bmc["exchanges"].get<unsigned>() + bmc["ipmi_requests"].get<unsigned>();  // " > " is in both
    for (const auto& [count, part] : kLines) {
      EXPECT_EQ(bmc[count], LinesWith(log, part)) << each.fault << " " << count << "\n" << log;
    }
  }
}

TEST_F(Program, VariablesAreListedWithTheBrokenOnesNamed) {
  WriteLegacyServer();
  ASSERT_EQ(Run("boot legacy.toml --state st").status, 0);
  Write("st/nvram/Bo\x1Bot-8be4df61-93ca-11d2-aa0d-00e098032b8c", std::string_view("\7\0\0\0\x1B[2J", 8));
  Write("st/nvram/Short-8be4df61-93ca-11d2-aa0d-00e098032b8c", "\7");
  const Ended ended = Run("vars st");
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.text, HasSubstr("BootOrder  NV BS RT"));
  EXPECT_THAT(ended.text, HasSubstr("Timeout"));
  EXPECT_THAT(ended.text, HasSubstr("DISK A"));
  EXPECT_THAT(ended.text, HasSubstr("Bo\\x1Bot  NV BS RT, 4 bytes"));
  EXPECT_THAT(ended.text, HasSubstr("expected four attribute bytes"));
  EXPECT_THAT(ended.text, Not(HasSubstr("\x1B")));
}

TEST_F(Program, PoliciesReachTheBmc) {
  Write("first.xml", "<first/>");
  Write("other.xml", "<other/>");
  Write("one.toml", "[bmc]\npolicy = \"first.xml\"\n[nvram]\nboot_flow = 6\n");
  EXPECT_EQ(Run("boot one.toml --state st --quiet --log log").status, 0);
  EXPECT_THAT(Read("log"), HasSubstr("F6 requested"));
  EXPECT_EQ(Run("bmc st get ConfigPolicy.xml").text, "<first/>");
  EXPECT_EQ(Run("boot one.toml --state st --quiet --policy other.xml").status, 0);
  EXPECT_EQ(Run("bmc st get ConfigPolicy.xml").text, "<other/>");
  EXPECT_EQ(Run("boot one.toml --state st --quiet --once").status, 2);
  EXPECT_EQ(Run("boot one.toml --state st --quiet --policy missing.xml --once").status, 2);
}

}  // namespace
}  // namespace sim

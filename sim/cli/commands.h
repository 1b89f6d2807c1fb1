// The commands of bds-sim and the exit statuses that they share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

enum ExitStatus : int {
  kExitStarted = 0,         // an option was started; of the other commands: done
  kExitPolicyWarnings = 1,  // a policy does not become what its author meant
  kExitWrong = 2,           // the command line, the description or the state is wrong
  kExitNothing = 3,         // no option was started
  kExitBrokeDown = 4,       // the driver crashed, or waited for what can never come
};

struct BootArguments {
  std::filesystem::path description;
  std::filesystem::path state;      // empty: nothing is kept
  std::filesystem::path image;      // empty: the driver linked in
  std::filesystem::path log;        // empty: none
  std::filesystem::path variables;  // folder for those at the end; empty: none
  std::string json;                 // a file, "-" for standard output, empty: none
  std::uint64_t debugMask = 0x80000046;
  std::vector<std::string> trace;  // "calls", "pci"
  bool execute = false;
  std::optional<EFI_STATUS> loaderStatus;
  std::optional<EFI_STATUS> legacyStatus;
  unsigned boots = 1;
  unsigned resets = 4;
  std::vector<std::string> faults;
  std::filesystem::path policy;  // given to the BMC before the first boot; empty: none
  bool once = false;             // that policy is for one boot
  std::string keys;              // as ParseKeys wants them
  bool quiet = false;
};
int RunBoot(const BootArguments& arguments);

struct DescribeArguments {
  std::filesystem::path description;
};
int RunDescribe(const DescribeArguments& arguments);

struct VarsArguments {
  enum class Action { List, Order, Add, Delete, Activate, Deactivate, Next, Setup };
  Action action = Action::List;
  std::filesystem::path state;
  std::vector<std::string> words;  // option numbers, or Setup's FIELD=VALUE
  std::string name;                // Add: of the option
  std::string path;                // Add: its device path as text
  std::string data;                // Add: optional data in hexadecimal
  std::string number;              // Add: empty: the lowest that is free
  bool inactive = false;
  bool last = false;  // Add: behind the order, not in front of it
};
int RunVars(const VarsArguments& arguments);

struct RunArguments {
  std::filesystem::path state;
  std::vector<std::string> command;  // the program and its arguments
};
// The program's exit status; 128 + n when a signal ended it.
int RunProgram(const RunArguments& arguments);

struct BmcArguments {
  enum class Action { Show, Files, BootDevice, Get, Put, Remove };
  Action action = Action::Show;
  std::filesystem::path state;
  std::vector<std::string> words;  // BootDevice: as SetBootFlags wants them
  std::string file;                // the BMC's name of it
  std::filesystem::path host;      // Get, Put: the file on this machine; empty for Get: standard output
};
int RunBmc(const BmcArguments& arguments);

struct ExplainArguments {
  std::filesystem::path description;
  std::filesystem::path state;   // copied, not changed; empty: a new server
  std::filesystem::path policy;  // given to the BMC first; empty: none
};
int RunExplain(const ExplainArguments& arguments);

struct PolicyArguments {
  enum class Action { Check, Show };
  Action action = Action::Check;
  std::vector<std::filesystem::path> files;  // Show: a state folder may stand for the policy that it keeps
};
int RunPolicy(const PolicyArguments& arguments);

}  // namespace sim

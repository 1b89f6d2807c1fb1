#include "sim/cli/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "sim/cli/bmc_order_command.h"
#include "sim/cli/bmc_report.h"
#include "sim/cli/commands.h"
#include "sim/cli/terminal.h"
#include "sim/firmware/fault_script.h"
#include "sim/server/server.h"

namespace sim {
namespace {

constexpr const char* kFooter = R"(Examples:
  bds-sim boot rack.toml                              boot once, keep nothing
  bds-sim boot rack.toml --state st --log boot.log    keep NVRAM and BMC in st/, the debug text in boot.log
  bds-sim boot rack.toml --state st --image bds.efi   the same with the driver's EFI image
  bds-sim boot rack.toml --boots 3 --json -           three boots, the report as JSON on standard output
  bds-sim bmc st bootdev pxe --persistent --efi       ask for network boots, as ipmitool would
  bds-sim vars st                                     what is in NVRAM now
  bds-sim vars st order 0002 0000                     another boot order
  bds-sim run st -- efibootmgr -v -o 0002,0000        the same through efibootmgr
  bds-sim policy check fleet.xml                      what the driver makes of a boot policy
  bds-sim explain rack.toml --policy fleet.xml        why each boot option stands where it stands

Exit status: 0 an option was started (other commands: done), 1 a policy has warnings, 2 the command line, the
description or the state is wrong, or a policy is refused, 3 no option was started, 4 the driver crashed or waited for
what can never come.
Run "bds-sim COMMAND --help" for a command's options. NO_COLOR=1 turns colours off.)";

constexpr const char* kBootFooter = R"(Faults (each with its own --fault, for every start; a power cut befalls once):
  "call SERVICE N STATUS [COUNT]"   the N-th call of a service answers the status: "call SetVariable 3 EFI_DEVICE_ERROR"
  "power KIND N"                    the power goes after write N of a kind: nvram, bmc, bmc-exchange, pci
  "ipmi REQUEST N ANSWER [COUNT]"   the N-th request to the BMC (get-7d, set-00, oem) gets silence, damage or a code (c0)
  "NAME[:VALUE][xCOUNT][@FIRST]"    of the BMC's file interface: "bad-checksum:3", "late:6000@2", "no-answer:always"
Keys: characters as they are, and {enter} {esc} {tab} {backspace} {up} {down} {left} {right} {home} {end} {insert}
  {del} {pgup} {pgdn} {f1} to {f12}, {{} for a brace. When standard input is a terminal, its keys follow them.
With several boots the exit status is that of the last one; a crash ends the run.)";

struct Arguments {
  BootArguments boot;
  DescribeArguments describe;
  VarsArguments vars;
  RunArguments run;
  BmcArguments bmc;
  ExplainArguments explain;
  PolicyArguments policy;
  std::vector<std::string> bootWords;
  bool persistent = false;
  bool efi = false;
  std::optional<unsigned> instance;
};

// An option whose text must be a status.
void AddStatus(CLI::App& command, const std::string& name, std::optional<EFI_STATUS>& status, const std::string& help) {
  const auto take = [&status](const std::string& text) {
    status = StatusFromName(text);
    if (!status) {
      throw CLI::ValidationError("\"" + text + "\": expected a status, such as EFI_NOT_FOUND or 0x800000000000000E");
    }
  };
  command.add_option_function<std::string>(name, take, help)->type_name("STATUS");
}

void AddBoot(CLI::App& app, BootArguments& boot, int& status) {
  CLI::App& command = *app.add_subcommand("boot", "Boot a described server");
  command.add_option("SERVER.toml", boot.description, "The server's description")->required();
  command.add_option("--state", boot.state, "Keep NVRAM (nvram/) and the BMC's side (bmc/) here")->type_name("DIR");
  command.add_option("--image", boot.image, "Run this EFI image instead of the driver linked in")->type_name("FILE");
  command.add_option("--log", boot.log, "Write the driver's debug text there")->type_name("FILE");
  command.add_option("--debug-mask", boot.debugMask, "Debug levels to print (default 0x80000046)")->type_name("N");
  command.add_option("--variables", boot.variables, "Write all variables at the end, volatile ones too, there")
      ->type_name("DIR");
  command.add_option("--json", boot.json, "Write the result as JSON there; - for standard output")->type_name("FILE");
  command
      .add_flag("--trace{calls}", boot.trace,
                "Log the driver's calls that have an effect, in lines that begin with FW; with pci behind it, its "
                "accesses to network controllers' registers")
      ->check(CLI::IsMember({"calls", "pci"}));
  CLI::Option* execute =
      command.add_flag("--execute", boot.execute,
                       "Run loaders and drivers found on the server's media for real; no sandbox for hostile code");
  AddStatus(command, "--loader-status", boot.loaderStatus,
            "Loaders are not run and answer this; without either option a started loader ends the boot");
  command.get_option("--loader-status")->excludes(execute);
  AddStatus(command, "--legacy-status", boot.legacyStatus, "Legacy boots fail with this status");
  command.add_option("--boots", boot.boots, "Boot so many times (default 1)")
      ->type_name("N")
      ->check(CLI::Range(1U, 100000U));
  command.add_option("--resets", boot.resets, "Carry out so many resets per boot (default 4)")
      ->type_name("N")
      ->check(CLI::Range(0U, 1000U));
  command.add_option("--fault", boot.faults, "Let something go wrong, see below")
      ->type_name("WORDS")
      ->expected(1)
      ->take_all();
  CLI::Option* policy =
      command.add_option("--policy", boot.policy, "Give the BMC this boot policy first")->type_name("FILE");
  command.add_flag("--once", boot.once, "The policy is for one boot")->needs(policy);
  command.add_option("--keys", boot.keys, "Keys typed at the console")->type_name("TEXT");
  command.add_flag("--quiet", boot.quiet, "One line per boot, no console");
  command.footer(kBootFooter);
  command.callback([&boot, &status] { status = RunBoot(boot); });
}

void AddDescribe(CLI::App& app, DescribeArguments& describe, int& status) {
  CLI::App& command = *app.add_subcommand("describe", "Print a server's devices with their device paths");
  command.add_option("SERVER.toml", describe.description, "The server's description")->required();
  command.callback([&describe, &status] { status = RunDescribe(describe); });
}

// The folder stands in front of the action, which the library's usage line does not say.
class FolderFirst : public CLI::Formatter {
 public:
  explicit FolderFirst(std::string command) : command_("bds-sim " + std::move(command)) {}
  std::string make_usage(const CLI::App* app, std::string name) const override {
    if (name.size() > command_.size()) {
      name.insert(command_.size(), " DIR");
    }
    return CLI::Formatter::make_usage(app, name);
  }

 private:
  std::string command_;
};

template <typename Action, typename Arguments>
CLI::App& AddAction(CLI::App& parent, Arguments& arguments, int& status, Action action, int (*run)(const Arguments&),
                    const std::string& name, const std::string& help) {
  CLI::App& command = *parent.add_subcommand(name, help);
  command.callback([&arguments, &status, action, run] {
    arguments.action = action;
    status = run(arguments);
  });
  return command;
}

void AddVars(CLI::App& app, VarsArguments& vars, int& status) {
  using Action = VarsArguments::Action;
  CLI::App& command = *app.add_subcommand("vars", "List the variables of a state folder, decoded, or change them");
  command.formatter(std::make_shared<FolderFirst>("vars"));
  command.add_option("DIR", vars.state, "The state folder, or a folder of variables")->required();
  command.require_subcommand(0, 1);
  command.callback([&command, &vars, &status] {
    if (command.get_subcommands().empty()) {
      status = RunVars(vars);
    }
  });
  struct Row {
    Action action;
    const char* name;
    const char* help;
    const char* words;
    const char* wordsHelp;
  };
  constexpr Row kRows[] = {
      {Action::Order, "order", "Set BootOrder", "NUMBER", "The options in their order, such as 0002 0000; or none"},
      {Action::Delete, "delete", "Delete options, and take them out of BootOrder", "NUMBER", "Such as 0002"},
      {Action::Activate, "activate", "Make options active", "NUMBER", "Such as 0002"},
      {Action::Deactivate, "deactivate", "Make options inactive", "NUMBER", "Such as 0002"},
      {Action::Next, "next", "Set BootNext", "NUMBER", "The option; or none"},
      {Action::Setup, "setup", "Set bytes of the Setup record", "FIELD=VALUE",
       "A field as in a description's [setup], or a byte's offset: uefi_mode=0, 161=0"},
  };
  for (const Row& row : kRows) {
    AddAction(command, vars, status, row.action, RunVars, row.name, row.help)
        .add_option(row.words, vars.words, row.wordsHelp)
        ->required();
  }
  CLI::App& add = AddAction(command, vars, status, Action::Add, RunVars, "add", "Add an option, first in BootOrder");
  add.add_option("NAME", vars.name, "Its name")->required();
  add.add_option("PATH", vars.path, "Its device path as text")->required();
  add.add_option("--data", vars.data, "Optional data")->type_name("HEX");
  add.add_option("--number", vars.number, "Its number (default: the lowest that is free)")->type_name("NUMBER");
  add.add_flag("--inactive", vars.inactive, "Not active");
  add.add_flag("--last", vars.last, "Last in BootOrder");
}

void AddRun(CLI::App& app, RunArguments& run, int& status) {
  CLI::App& command = *app.add_subcommand("run", "Run efibootmgr or the like on the variables of a state folder");
  command.add_option("DIR", run.state, "The state folder")->required();
  command.add_option("COMMAND", run.command, "Behind --, the program and its arguments")->required();
  command.footer(
      "Example: bds-sim run st -- efibootmgr -o 0002,0000\n"
      "The exit status is the program's; 128 + n when signal n ended it.");
  command.callback([&run, &status] { status = RunProgram(run); });
}

// The options become the words that the boot flags are set from.
std::vector<std::string> BootWords(const Arguments& arguments) {
  std::vector<std::string> words = arguments.bootWords;
  if (arguments.persistent) {
    words.emplace_back("persistent");
  }
  if (arguments.efi) {
    words.emplace_back("efi");
  }
  if (arguments.instance) {
    words.push_back("instance=" + std::to_string(*arguments.instance));
  }
  return words;
}

void AddBootDevice(CLI::App& bmc, Arguments& arguments, int& status) {
  CLI::App& command = *bmc.add_subcommand("bootdev", "Ask for the device of the next boot");
  command
      .add_option("DEVICE", arguments.bootWords,
                  "none, pxe, disk, safe, diag, cdrom, bios or floppy; persistent, efi and instance=N may follow")
      ->required();
  command.add_flag("--persistent", arguments.persistent, "For all boots from now on");
  command.add_flag("--efi", arguments.efi, "A UEFI boot");
  command.add_option("--instance", arguments.instance, "Which of several such devices, 0 to 15")->type_name("N");
  command.callback([&arguments, &status] {
    arguments.bmc.action = BmcArguments::Action::BootDevice;
    arguments.bmc.words = BootWords(arguments);
    status = RunBmc(arguments.bmc);
  });
}

void AddBmc(CLI::App& app, Arguments& arguments, int& status) {
  using Action = BmcArguments::Action;
  BmcArguments& bmc = arguments.bmc;
  CLI::App& command = *app.add_subcommand("bmc", "Look at and set the BMC's side of a state folder");
  command.formatter(std::make_shared<FolderFirst>("bmc"));
  command.add_option("DIR", bmc.state, "The state folder")->required();
  command.require_subcommand(1);
  AddAction(command, bmc, status, Action::Show, RunBmc, "show", "Boot flags and the other boot option parameters");
  AddAction(command, bmc, status, Action::Files, RunBmc, "files", "List the BMC's files");
  AddBootDevice(command, arguments, status);
  AddBmcPolicy(command, bmc.state, status);
  AddBmcReport(command, bmc.state, status);
  AddBmcOrder(command, bmc.state, status);
  CLI::App& get =
      AddAction(command, bmc, status, Action::Get, RunBmc, "get", "Copy a file of the BMC's to this machine");
  get.add_option("NAME", bmc.file, "Its name on the BMC")->required();
  get.add_option("FILE", bmc.host, "Where to; standard output when not given");
  CLI::App& put = AddAction(command, bmc, status, Action::Put, RunBmc, "put", "Copy a file to the BMC");
  put.add_option("NAME", bmc.file, "Its name on the BMC")->required();
  put.add_option("FILE", bmc.host, "The file")->required();
  CLI::App& remove = AddAction(command, bmc, status, Action::Remove, RunBmc, "remove", "Remove a file of the BMC's");
  remove.add_option("NAME", bmc.file, "Its name on the BMC")->required();
}

void AddExplain(CLI::App& app, ExplainArguments& explain, int& status) {
  CLI::App& command = *app.add_subcommand("explain", "Boot a copy of a server and tell why its options stand where");
  command.add_option("SERVER.toml", explain.description, "The server's description")->required();
  command.add_option("--state", explain.state, "The state folder; it stays as it is")->type_name("DIR");
  command.add_option("--policy", explain.policy, "Give the BMC this boot policy first")->type_name("FILE");
  command.callback([&explain, &status] { status = RunExplain(explain); });
}

void AddPolicyAction(CLI::App& command, PolicyArguments& policy, int& status, PolicyArguments::Action action,
                     const std::string& name, const std::string& files, const std::string& help) {
  CLI::App& subcommand = *command.add_subcommand(name, help);
  subcommand.add_option(files, policy.files, "What to look at")->required();
  subcommand.callback([&policy, &status, action] {
    policy.action = action;
    status = RunPolicy(policy);
  });
}

void AddPolicy(CLI::App& app, PolicyArguments& policy, int& status) {
  using Action = PolicyArguments::Action;
  CLI::App& command = *app.add_subcommand("policy", "Check and decode boot policies, without a server");
  command.require_subcommand(1);
  AddPolicyAction(command, policy, status, Action::Check, "check", "FILE",
                  "Say what the driver makes of each policy: exit status 0 nothing to say, 1 warnings, 2 refused");
  AddPolicyAction(command, policy, status, Action::Show, "show", "FILE|STATE",
                  "Decode the record of each policy, or the one that a state folder keeps");
}

// The command line with "--trace pci" as one word: a flag takes no word behind it, so that the description may stand
// there. Another program's words, behind --, stay as they are.
std::vector<std::string> JoinedWords(int argc, char** argv) {
  std::vector<std::string> words(argv + 1, argv + argc);
  const auto end = std::ranges::find(words, "--");
  const auto trace = std::adjacent_find(words.begin(), end, [](const std::string& flag, const std::string& what) {
    return flag == "--trace" && (what == "pci" || what == "calls");
  });
  if (trace != end) {
    *trace += "=" + *(trace + 1);
    words.erase(trace + 1);
    return words;
  }
  return words;
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  CLI::App app("Boots a simulated rack server through the boot device selection driver.", "bds-sim");
  app.require_subcommand(1);
  app.set_version_flag("--version", "bds-sim " BDS_VERSION);
  app.footer(kFooter);
  Arguments arguments;
  int status = kExitStarted;
  AddBoot(app, arguments.boot, status);
  AddDescribe(app, arguments.describe, status);
  AddVars(app, arguments.vars, status);
  AddRun(app, arguments.run, status);
  AddBmc(app, arguments, status);
  AddExplain(app, arguments.explain, status);
  AddPolicy(app, arguments.policy, status);
  try {
    std::vector<std::string> words = JoinedWords(argc, argv);
    std::ranges::reverse(words);  // as the library takes them
    app.parse(words);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitStarted : kExitWrong;
  } catch (const std::exception& error) {  // of a description, a state or a host file
    return Fail(error.what());
  }
  return status;
}

}  // namespace sim

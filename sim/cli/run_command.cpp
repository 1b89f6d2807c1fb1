// bds-sim run: a program of Linux's, such as efibootmgr, on the variables of a state folder. It works on a copy with a
// library preloaded that gives its writes efivarfs's meaning; what it left is read back whole before anything of the
// state changes.
#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>

#include "sim/cli/commands.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/state_variables.h"
#include "sim/cli/terminal.h"
#include "sim/server/host_file.h"
#include "sim/server/server.h"

namespace sim {
namespace {

namespace fs = std::filesystem;
constexpr const char* kLibrary = "libbds_efivarfs.so";
constexpr int kSignalled = 128;
constexpr int kNotStarted = 127;

fs::path Library() {
  const fs::path library = fs::read_symlink("/proc/self/exe").parent_path() / kLibrary;
  if (!fs::exists(library)) {
    throw StateError(fmt::format("{}: is missing; it belongs beside bds-sim", library.string()));
  }
  return library;
}

// A copy of the variables that goes with this object.
class WorkingCopy {
 public:
  explicit WorkingCopy(const VariableStore& store) {
    std::string place = (fs::canonical(fs::temp_directory_path()) / "bds-sim-run-XXXXXX").string();
    if (mkdtemp(place.data()) == nullptr) {
      throw StateError("no temporary folder for a copy of the variables can be made");
    }
    place_ = place;
    EfivarsFolder folder(Variables());
    if (!folder.Save(store) || !std::ofstream(Record())) {
      throw StateError("no copy of the variables can be made: " + folder.Error());
    }
    for (const auto& entry : fs::directory_iterator(Variables())) {
      fs::permissions(entry.path(), fs::perms::owner_write, fs::perm_options::add);
    }
    before_ = Contents();
  }
  ~WorkingCopy() {
    std::error_code ignored;
    fs::remove_all(place_, ignored);
  }
  WorkingCopy(const WorkingCopy&) = delete;
  WorkingCopy& operator=(const WorkingCopy&) = delete;

  fs::path Variables() const { return place_ / "nvram"; }
  fs::path Record() const { return place_ / "writes"; }

  // The first file that was there before and was changed otherwise than by the writes on record, so that nobody knows
  // where the variable in it ends; empty: none.
  std::string Unbelievable() const {
    std::map<std::string, std::size_t> recorded;
    std::ifstream record(Record());
    std::size_t size = 0;
    for (std::string name; record >> size >> std::ws && std::getline(record, name);) {
      recorded[name] = size;
    }
    for (const auto& [name, bytes] : Contents()) {
      const auto before = before_.find(name);
      const auto written = recorded.find(name);
      const bool known = written != recorded.end() && written->second == bytes.size();
      if (before != before_.end() && before->second != bytes && !known) {
        return name;
      }
    }
    return {};
  }

 private:
  std::map<std::string, std::string> Contents() const {
    std::map<std::string, std::string> contents;
    for (const auto& entry : fs::directory_iterator(Variables())) {
      contents[entry.path().filename().string()] = ReadHostFile(entry.path()).value_or("");
    }
    return contents;
  }

  fs::path place_;
  std::map<std::string, std::string> before_;
};

// Ctrl-C is the program's to act on.
class InterruptsIgnored {
 public:
  InterruptsIgnored() : before_(std::signal(SIGINT, SIG_IGN)) {}
  ~InterruptsIgnored() { std::signal(SIGINT, before_); }
  InterruptsIgnored(const InterruptsIgnored&) = delete;
  InterruptsIgnored& operator=(const InterruptsIgnored&) = delete;

 private:
  void (*before_)(int);
};

int Start(const std::vector<std::string>& command, const WorkingCopy& copy) {
  const char* preloaded = std::getenv("LD_PRELOAD");
  const std::string library = Library().string() + (preloaded != nullptr ? std::string(":") + preloaded : "");
  setenv("LD_PRELOAD", library.c_str(), 1);
  setenv("EFIVARFS_PATH", (copy.Variables().string() + "/").c_str(), 1);
  setenv("LIBEFIVAR_OPS", "efivarfs", 1);
  setenv("BDS_SIM_WRITES", copy.Record().c_str(), 1);
  std::vector<char*> words;
  for (const std::string& word : command) {
    words.push_back(const_cast<char*>(word.c_str()));
  }
  words.push_back(nullptr);
  const InterruptsIgnored interrupts;
  posix_spawnattr_t attributes;
  sigset_t asBefore;
  sigemptyset(&asBefore);
  sigaddset(&asBefore, SIGINT);
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &asBefore);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = 0;
  const int error = posix_spawnp(&child, words.front(), nullptr, &attributes, words.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    fmt::print(stderr, "bds-sim: {}: {}\n", PrintableText(command.front()), std::strerror(error));
    return kNotStarted;
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
}

}  // namespace

int RunProgram(const RunArguments& arguments) {
  StateVariables variables(arguments.state);
  const WorkingCopy copy(variables.Store());
  const int status = Start(arguments.command, copy);
  const std::string unbelievable = copy.Unbelievable();
  if (!unbelievable.empty()) {
    return Fail(
        fmt::format("{}: was written in a way that does not tell where the variable ends (a statically linked "
                    "program, or a copying of whole files); nothing was taken over",
                    PrintableText(unbelievable)));
  }
  VariableStore left(kAnyServersLimits);
  EfivarsFolder folder(copy.Variables());
  if (!folder.Load(left)) {
    return Fail(fmt::format("{}; nothing was taken over", PrintableText(folder.Error())));
  }
  const std::vector<std::string> changes = variables.TakeOver(left);
  if (!changes.empty()) {
    std::fflush(stdout);
    fmt::print(stderr, "bds-sim: NVRAM now has {}\n", fmt::join(changes, ", "));
  }
  return status;
}

}  // namespace sim

// bds-sim bmc: the BMC's side of a state folder, looked at and changed between boots.
#include <fmt/format.h>

#include <fstream>

#include "bmc/ipmi_variables.h"
#include "sim/bmc/bmc.h"
#include "sim/bmc/boot_flag_words.h"
#include "sim/cli/commands.h"
#include "sim/cli/load_option_text.h"
#include "sim/cli/mac_variables.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/state_variables.h"
#include "sim/cli/terminal.h"
#include "sim/cli/variable_decoder.h"
#include "sim/server/host_file.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

std::string HexBytes(std::span<const std::uint8_t> bytes) { return fmt::format("{:02x}", fmt::join(bytes, " ")); }

// What the driver keeps of earlier requests: the variable, and what the next boot makes of it.
struct KeptVariable {
  const CHAR16* name;
  const char* title;
  const char* meaning;
};
constexpr KeptVariable kKept[] = {
    {bds::kIpmiBootFlagsName, "kept in NVRAM",
     "persistent: each boot follows it until the BMC asks for something else"},
    {bds::kSavedBootOrderName, "order before", "the next boot puts it back"},
};

class BmcFolder {
 public:
  explicit BmcFolder(const fs::path& state)
      : state_(state), folder_(state / "bmc"), parameters_(Bmc::ParametersOf(folder_)), files_(Bmc::FilesOf(folder_)) {}

  int Show() const;
  int ListFiles() const;
  int SetBootDevice(const std::vector<std::string>& words) const;
  int Get(const std::string& name, const fs::path& host) const;
  int Put(const std::string& name, const fs::path& host);
  int Remove(const std::string& name);

 private:
  void ShowKept() const;

  fs::path state_;
  fs::path folder_;
  fs::path parameters_;
  FileStore files_;
};

void BmcFolder::ShowKept() const {
  std::error_code ignored;
  if (!fs::is_directory(state_ / "nvram", ignored)) {
    fmt::print("kept in NVRAM     none\n");
    return;
  }
  const StateVariables variables(state_);
  for (const KeptVariable& kept : kKept) {
    const Variable* variable = variables.Find(kept.name, bds::kIpmiVariablesGuid);
    const std::string text = variable == nullptr ? "none" : DecodeVariable(*variable).front();
    const std::string meaning = variable == nullptr ? "" : fmt::format("  ({})", kept.meaning);
    fmt::print("{:<18}{}{}\n", kept.title, text, meaning);
  }
}

int BmcFolder::Show() const {
  std::string error;
  const auto state = BmcState::Load(parameters_, error);
  if (!state) {
    return Fail(error);
  }
  constexpr const char* kProgress[] = {"complete", "in progress", "commit", "reserved"};
  fmt::print("boot flags        {}  (bytes {})\n", BootFlagsText(*state), HexBytes(state->bootFlags));
  ShowKept();
  fmt::print("handled by BIOS   {}\n", (state->acknowledge & 1) != 0 ? "no" : "yes");
  fmt::print("set in progress   {}\n", kProgress[state->setInProgress & 3]);
  fmt::print("valid bit         {}\n", (state->validBitClearing & 0x08) != 0 ? "stays" : "ends after 60 s");
  fmt::print("boot order table  {} bytes\n", state->bootOrderTable.size());
  const auto* table = reinterpret_cast<const std::byte*>(state->bootOrderTable.data());
  for (const std::string& line : HexText({table, state->bootOrderTable.size()}, 256)) {
    fmt::print("  {}\n", line);
  }
  fmt::print("stale requests    {}\n", state->oneTimeStaleRequests);
  fmt::print("files             {}\n", files_.Names().size());
  return kExitStarted;
}

int BmcFolder::ListFiles() const {
  for (const std::string& name : files_.Names()) {
    const auto bytes = files_.Read(name);
    const auto summary = bytes ? MacDatabaseSummary(std::as_bytes(std::span(*bytes))) : std::nullopt;
    fmt::print("{:>8}  {}{}\n", bytes ? fmt::format("{}", bytes->size()) : "too big", PrintableText(name),
               summary ? "  (" + *summary + ")" : "");
  }
  return kExitStarted;
}

int BmcFolder::SetBootDevice(const std::vector<std::string>& words) const {
  std::string error;
  auto state = BmcState::Load(parameters_, error);
  if (!state || !SetBootFlags(*state, words, error)) {
    return Fail(error);
  }
  std::error_code ignored;  // Save then says what is wrong
  fs::create_directories(folder_, ignored);
  if (!state->Save(parameters_, error)) {
    return Fail(error);
  }
  fmt::print("boot flags        {}\n", BootFlagsText(*state));
  return kExitStarted;
}

int BmcFolder::Get(const std::string& name, const fs::path& host) const {
  const auto bytes = files_.Read(name);
  if (!bytes) {
    return Fail(fmt::format("the BMC has no file \"{}\"", PrintableText(name)));
  }
  if (host.empty()) {
    std::fwrite(bytes->data(), 1, bytes->size(), stdout);
    return kExitStarted;
  }
  std::ofstream stream(host, std::ios::binary | std::ios::trunc);
  stream.write(reinterpret_cast<const char*>(bytes->data()), static_cast<std::streamsize>(bytes->size()));
  return stream.flush() ? int{kExitStarted} : Fail(fmt::format("{}: cannot be written", host.string()));
}

int BmcFolder::Put(const std::string& name, const fs::path& host) {
  const auto text = ReadHostFile(host);
  if (!text) {
    return Fail(fmt::format("{}: cannot be read", host.string()));
  }
  const FileBytes bytes{text->begin(), text->end()};
  if (!files_.Write(name, bytes)) {
    return Fail(
        fmt::format("\"{}\" cannot be kept: expected a name of up to {} letters, digits, '.', '_' and '-', and "
                    "up to {} bytes",
                    PrintableText(name), FileStore::kMaxNameLength, FileStore::kMaxFileSize));
  }
  return kExitStarted;
}

int BmcFolder::Remove(const std::string& name) {
  const bool removed = files_.Remove(name);
  return removed ? int{kExitStarted} : Fail(fmt::format("the BMC has no file \"{}\"", PrintableText(name)));
}

}  // namespace

int RunBmc(const BmcArguments& arguments) {
  std::error_code ignored;
  for (const fs::path& place : {arguments.state, arguments.state / "bmc"}) {
    if (fs::exists(place, ignored) && !fs::is_directory(place, ignored)) {
      return Fail(fmt::format("{}: is no folder", place.string()));
    }
  }
  BmcFolder bmc(arguments.state);
  switch (arguments.action) {
    case BmcArguments::Action::Show:
      return bmc.Show();
    case BmcArguments::Action::Files:
      return bmc.ListFiles();
    case BmcArguments::Action::BootDevice:
      return bmc.SetBootDevice(arguments.words);
    case BmcArguments::Action::Get:
      return bmc.Get(arguments.file, arguments.host);
    case BmcArguments::Action::Put:
      return bmc.Put(arguments.file, arguments.host);
    case BmcArguments::Action::Remove:
      return bmc.Remove(arguments.file);
  }
  return kExitWrong;
}

}  // namespace sim

// bds-sim vars: the variables of a state folder, listed or changed. The list reads the files by itself, so that one
// damaged file hides no other.
#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>

#include "sim/cli/commands.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/state_variables.h"
#include "sim/cli/terminal.h"
#include "sim/cli/variable_decoder.h"
#include "sim/cli/vars_edit.h"
#include "sim/firmware/guid_text.h"
#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

namespace fs = std::filesystem;
constexpr std::size_t kMaxFile = 1024 * 1024;
constexpr std::size_t kAttributesSize = 4;

// The variable in that file; nothing, with the reason, when there is none in it.
std::optional<Variable> ReadVariableFile(const fs::path& file, std::string& error) {
  const auto name = ParseVariableFileName(file.filename().string(), error);
  if (!name) {
    return std::nullopt;
  }
  std::ifstream stream(file, std::ios::binary);
  std::vector<char> bytes(kMaxFile + 1);
  stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  const auto size = static_cast<std::size_t>(std::max<std::streamsize>(stream.gcount(), 0));
  if (!stream.eof() || size > kMaxFile) {
    error = size > kMaxFile ? fmt::format("more than {} bytes", kMaxFile) : "it cannot be read";
    return std::nullopt;
  }
  if (size < kAttributesSize) {
    error = fmt::format("{} bytes, expected four attribute bytes and the data", size);
    return std::nullopt;
  }
  Variable variable{name->name, name->guid, 0, {}};
  std::memcpy(&variable.attributes, bytes.data(), kAttributesSize);
  const auto* data = reinterpret_cast<const std::byte*>(bytes.data());
  variable.data.assign(data + kAttributesSize, data + size);
  return variable;
}

std::vector<fs::path> SortedFiles(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      files.push_back(entry.path());
    }
  }
  std::ranges::sort(files);
  return files;
}

// Well-known GUIDs go without saying.
std::string GuidSuffix(const EFI_GUID& guid) { return guid == gEfiGlobalVariableGuid ? "" : "  " + GuidText(guid); }

int ListVariables(const fs::path& state) {
  const fs::path folder = VariablesOf(state);
  if (!fs::is_directory(folder)) {
    return Fail(fmt::format("{}: expected a state folder with nvram/ in it", folder.string()));
  }
  const Style style = OutputStyle();
  int status = kExitStarted;
  for (const fs::path& file : SortedFiles(folder)) {
    std::string error;
    const auto variable = ReadVariableFile(file, error);
    if (!variable) {
      status = Fail(fmt::format("{}: {}", PrintableText(file.string()), PrintableText(error)));
      continue;
    }
    fmt::print("{}  {}, {} bytes{}\n", style.Strong(PrintableText(variable->name)),
               VariableAttributesText(variable->attributes), variable->data.size(), GuidSuffix(variable->guid));
    for (const std::string& line : DecodeVariable(*variable)) {
      fmt::print("  {}\n", line);
    }
  }
  return status;
}

}  // namespace

int RunVars(const VarsArguments& arguments) {
  if (arguments.action == VarsArguments::Action::List) {
    return ListVariables(arguments.state);
  }
  StateVariables variables(arguments.state);
  fmt::print("{}\n", EditVariables(variables, arguments));
  return kExitStarted;
}

}  // namespace sim

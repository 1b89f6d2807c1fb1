// bds-sim policy: a boot policy looked at without a server. check tells its author what the driver makes of it, show
// decodes the record that comes out, or the one that a server keeps.
#include <fmt/format.h>

#include <fstream>
#include <iterator>

#include "sim/cli/commands.h"
#include "sim/cli/policy_show.h"
#include "sim/cli/printable_text.h"
#include "sim/cli/terminal.h"
#include "sim/policy/policy_reading.h"
#include "sim/policy/policy_text.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

struct KindWord {
  FindingKind kind;
  const char* word;
};
constexpr KindWord kKindWords[] = {
    {FindingKind::Note, "note"}, {FindingKind::Warning, "warning"}, {FindingKind::Refusal, "error"}};

const char* WordOf(FindingKind kind) {
  for (const KindWord& row : kKindWords) {
    if (row.kind == kind) {
      return row.word;
    }
  }
  return "";
}

int Worse(int a, int b) { return a > b ? a : b; }

int Check(const fs::path& file) {
  const PolicyReading reading = ReadPolicy(ReadPolicyFile(file));
  int status = kExitStarted;
  for (const PolicyFinding& finding : reading.findings) {
    fmt::print("{}:{}:{}: {}: {}\n", PrintableText(file.string()), finding.line, finding.column, WordOf(finding.kind),
               PrintableText(finding.text));
    if (finding.kind == FindingKind::Warning) {
      status = Worse(status, kExitPolicyWarnings);
    }
  }
  if (reading.refused) {
    return kExitWrong;
  }
  if (status == kExitStarted) {
    const std::size_t count = reading.targets.size();
    fmt::print("{}: {} target{}, nothing to object to\n", PrintableText(file.string()), count, count == 1 ? "" : "s");
  }
  return status;
}

void PrintLines(const std::vector<std::string>& lines, const char* indent) {
  for (const std::string& line : lines) {
    fmt::print("{}{}\n", indent, PrintableText(line));
  }
}

}  // namespace

int ShowPolicyFile(const fs::path& file) {
  const PolicyReading reading = ReadPolicy(ReadPolicyFile(file));
  if (reading.refused) {
    return Worse(Check(file), kExitWrong);
  }
  PrintLines(DescribePolicyHeader(reading.header), "");
  for (std::size_t index = 0; index < reading.targets.size(); ++index) {
    const std::vector<std::string> lines = DescribePolicyTarget(reading.targets[index]);
    fmt::print("target {}: {}\n", index + 1, PrintableText(lines.front()));
    PrintLines({lines.begin() + 1, lines.end()}, "  ");
    if (index < reading.loaders.size()) {
      for (const LoaderText& loader : reading.loaders[index]) {
        fmt::print("  {} {}\n", PrintableText(loader.name), PrintableText(loader.value));
      }
    }
  }
  return kExitStarted;
}

namespace {

// The variable in which a managed server keeps the policy that it read last: four attribute bytes, then the record.
int ShowKept(const fs::path& state) {
  const fs::path file = state / "nvram" / "FlexBootOrder-9dae27e6-9cc9-4972-bcdb-824573a2c2f6";
  std::ifstream stream(file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  constexpr std::size_t kAttributes = 4;
  if (bytes.size() < kAttributes) {
    return Fail(
        fmt::format("{}: the server keeps no policy (no variable FlexBootOrder)", PrintableText(state.string())));
  }
  PrintLines(DescribePolicyRecord(std::as_bytes(std::span(bytes)).subspan(kAttributes)), "");
  return kExitStarted;
}

}  // namespace

int RunPolicy(const PolicyArguments& arguments) {
  int status = kExitStarted;
  for (const fs::path& file : arguments.files) {
    if (arguments.action == PolicyArguments::Action::Check) {
      status = Worse(status, Check(file));
    } else {
      status = Worse(status, fs::is_directory(file) ? ShowKept(file) : ShowPolicyFile(file));
    }
  }
  return status;
}

}  // namespace sim

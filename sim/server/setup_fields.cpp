#include "sim/server/setup_fields.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/setup_variable.h"

namespace sim {
namespace {

constexpr SetupField kFields[] = {
    {"driver_health", kSetupDriverHealthCheck, 1, "0: controllers' health is not asked for"},
    {"health_in_quiet_boot", kSetupHealthInQuietBoot, 1, "nonzero: health messages show in a quiet boot"},
    {"option_rom_policy", kSetupOptionRomPolicy, kSetupOptionRomPolicySize,
     "switch, network, serial bus, storage, display, other: 0 none, 2 or 3 legacy, else UEFI"},
    {"strict_group_order", kSetupStrictGroupOrder, 1, "0: strict"},
    {"efi_boot_options", kSetupEfiBootOptionsEnable, 1, "0 off, 1 on, 2 on because of a policy file"},
    {"uefi_mode", kSetupUefiMode, 1, "nonzero: UEFI boot mode"},
    {"stbu_mode", kSetupStbuMode, 1, "nonzero: STBU mode"},
};

}  // namespace

std::span<const SetupField> SetupFields() { return kFields; }

const SetupField* FindSetupField(std::string_view name) {
  const auto found = std::ranges::find(kFields, name, [](const SetupField& field) { return field.name; });
  return found == std::end(kFields) ? nullptr : found;
}

std::string SetupFieldText(const SetupField& field, std::span<const std::uint8_t> setup) {
  if (setup.size() < field.offset + field.size) {
    return "beyond the record's end";
  }
  return fmt::format("{}", fmt::join(setup.subspan(field.offset, field.size), " "));
}

std::vector<std::string> SetupDifferences(std::span<const std::uint8_t> setup,
                                          std::span<const std::uint8_t> described) {
  std::vector<std::string> differences;
  for (const SetupField& field : kFields) {
    const std::string held = SetupFieldText(field, setup);
    const std::string wanted = SetupFieldText(field, described);
    if (held != wanted) {
      differences.push_back(fmt::format("{} {}, described {}", field.name, held, wanted));
    }
  }
  return differences;
}

}  // namespace sim

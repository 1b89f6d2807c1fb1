#include "sim/server/installed_options.h"

#include <fmt/format.h>

#include "platform/uefi_base.h"
#include "sim/bus/utf_text.h"

namespace sim {
namespace {

constexpr std::uint32_t kKept =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

template <typename T>
void Put(std::vector<std::byte>& bytes, const T* values, std::size_t count) {
  const auto* first = reinterpret_cast<const std::byte*>(values);
  bytes.insert(bytes.end(), first, first + count * sizeof(T));
}

// UEFI 2.10, 3.1.3: attributes, length of the paths, name with its NUL, the path.
std::vector<std::byte> LoadOptionBytes(const InstalledOption& option) {
  const std::uint32_t attributes = option.active ? LOAD_OPTION_ACTIVE : 0;
  const auto pathLength = static_cast<std::uint16_t>(option.path.size());
  const std::u16string name = Utf16OfText(option.name);
  std::vector<std::byte> bytes;
  Put(bytes, &attributes, 1);
  Put(bytes, &pathLength, 1);
  Put(bytes, name.c_str(), name.size() + 1);
  Put(bytes, option.path.data(), option.path.size());
  return bytes;
}

}  // namespace

bool InstallOptions(VariableStore& store, const std::vector<InstalledOption>& options) {
  std::vector<std::uint16_t> order;
  for (const InstalledOption& option : options) {
    const std::u16string name = Utf16OfText(fmt::format("Boot{:04X}", option.number));
    if (EFI_ERROR(store.Set(name, gEfiGlobalVariableGuid, kKept, LoadOptionBytes(option)))) {
      return false;
    }
    order.push_back(option.number);
  }
  return order.empty() ||
         !EFI_ERROR(store.Set(u"BootOrder", gEfiGlobalVariableGuid, kKept, std::as_bytes(std::span(order))));
}

}  // namespace sim

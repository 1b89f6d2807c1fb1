#include "sim/cli/vars_edit.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "platform/setup_variable.h"
#include "sim/cli/printable_text.h"
#include "sim/firmware/services/device_path_text.h"
#include "sim/firmware/variables/variable_name_text.h"
#include "sim/server/server.h"
#include "sim/server/setup_fields.h"

namespace sim {
namespace {

using Numbers = std::vector<std::uint16_t>;
constexpr std::uint32_t kBootAttributes =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

[[noreturn]] void Wrong(const std::string& text, std::string_view expected) {
  throw StateError(fmt::format("\"{}\": expected {}", PrintableText(text), expected));
}

template <typename Value>
std::optional<Value> Parse(std::string_view text, int base) {
  Value value = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  return code == std::errc{} && !text.empty() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// "0003", "3" or "Boot0003".
std::uint16_t OptionNumber(const std::string& text) {
  const std::string_view digits = std::string_view(text).substr(text.starts_with("Boot") ? 4 : 0);
  const auto number = digits.size() > 4 ? std::nullopt : Parse<std::uint16_t>(digits, 16);
  if (!number) {
    Wrong(text, "an option's number, such as 0003");
  }
  return *number;
}

std::uint16_t ExistingNumber(const StateVariables& variables, const std::string& text) {
  const std::uint16_t number = OptionNumber(text);
  if (variables.Option(number) == nullptr) {
    throw StateError(fmt::format("Boot{:04X}: no such variable", number));
  }
  return number;
}

// Words of numbers, each separated by commas, as efibootmgr takes them.
Numbers NumbersOf(const StateVariables& variables, const std::vector<std::string>& words) {
  Numbers numbers;
  for (const std::string& word : words) {
    for (std::size_t at = 0; at <= word.size();) {
      const std::size_t end = std::min(word.find(',', at), word.size());
      const std::uint16_t number = ExistingNumber(variables, word.substr(at, end - at));
      if (std::ranges::find(numbers, number) != numbers.end()) {
        Wrong(word, "each number once");
      }
      numbers.push_back(number);
      at = end + 1;
    }
  }
  return numbers;
}

std::string OrderText(const StateVariables& variables) {
  std::string text = "BootOrder";
  for (const std::uint16_t number : variables.Order()) {
    text += fmt::format(" {:04X}", number);
  }
  return text + (variables.Order().empty() ? " none" : "");
}

std::string SetOrder(StateVariables& variables, const VarsArguments& arguments) {
  const bool none = arguments.words == std::vector<std::string>{"none"};
  variables.SetOrder(none ? Numbers{} : NumbersOf(variables, arguments.words));
  return OrderText(variables);
}

std::vector<std::byte> HexBytes(const std::string& text) {
  std::vector<std::byte> bytes;
  for (std::size_t at = 0; at < text.size(); at += 2) {
    const auto value =
        at + 1 < text.size() ? Parse<std::uint8_t>(std::string_view(text).substr(at, 2), 16) : std::nullopt;
    if (!value) {
      Wrong(text, "bytes of two hexadecimal digits each");
    }
    bytes.push_back(std::byte{*value});
  }
  return bytes;
}

// A load option (UEFI 2.10, 3.1.3).
std::vector<std::byte> OptionImage(const VarsArguments& arguments) {
  const auto name = Utf16FromUtf8(arguments.name);
  const auto wide = Utf16FromUtf8(arguments.path);
  const auto path = wide ? DevicePathFromText(*wide) : std::nullopt;
  if (!name || name->empty()) {
    Wrong(arguments.name, "a name in UTF-8");
  }
  if (!path || path->size() > 0xFFFF) {
    Wrong(arguments.path, "a device path as text, such as HD(1,GPT,...)/\\EFI\\debian\\shimx64.efi");
  }
  const std::vector<std::byte> data = HexBytes(arguments.data);
  const std::uint32_t attributes = arguments.inactive ? 0 : LOAD_OPTION_ACTIVE;
  const auto length = static_cast<std::uint16_t>(path->size());
  std::vector<std::byte> image;
  const auto add = [&image](const void* from, std::size_t size) {
    const auto* bytes = static_cast<const std::byte*>(from);
    image.insert(image.end(), bytes, bytes + size);
  };
  add(&attributes, sizeof(attributes));
  add(&length, sizeof(length));
  add(name->c_str(), (name->size() + 1) * sizeof(char16_t));
  add(path->data(), path->size());
  add(data.data(), data.size());
  return image;
}

std::uint16_t NewNumber(const StateVariables& variables, const VarsArguments& arguments) {
  if (!arguments.number.empty()) {
    const std::uint16_t number = OptionNumber(arguments.number);
    if (variables.Option(number) != nullptr) {
      throw StateError(fmt::format("Boot{:04X}: is there already", number));
    }
    return number;
  }
  for (std::uint32_t number = 0; number <= 0xFFFF; ++number) {
    if (variables.Option(static_cast<std::uint16_t>(number)) == nullptr) {
      return static_cast<std::uint16_t>(number);
    }
  }
  throw StateError("no number is free");
}

std::string Add(StateVariables& variables, const VarsArguments& arguments) {
  std::vector<std::byte> image = OptionImage(arguments);
  const std::uint16_t number = NewNumber(variables, arguments);
  Numbers order = variables.Order();
  std::erase(order, number);
  order.insert(arguments.last ? order.end() : order.begin(), number);
  variables.Set(OptionVariable(number), gEfiGlobalVariableGuid, kBootAttributes, std::move(image));
  variables.SetOrder(order);
  return fmt::format("Boot{:04X} added; {}", number, OrderText(variables));
}

std::string Delete(StateVariables& variables, const VarsArguments& arguments) {
  Numbers order = variables.Order();
  const Numbers numbers = NumbersOf(variables, arguments.words);
  for (const std::uint16_t number : numbers) {
    std::erase(order, number);
  }
  // First the order, so that it never names an option that is gone.
  variables.SetOrder(order);
  for (const std::uint16_t number : numbers) {
    variables.Delete(std::u16string(variables.Option(number)->name));
  }
  return OrderText(variables);
}

std::string Switch(StateVariables& variables, const VarsArguments& arguments, bool active) {
  std::string text;
  for (const std::uint16_t number : NumbersOf(variables, arguments.words)) {
    const Variable option = *variables.Option(number);
    auto view = ParseLoadOption(option.data);
    if (!view) {
      throw StateError(fmt::format("Boot{:04X}: is no load option", number));
    }
    const std::uint32_t attributes =
        active ? view->attributes | LOAD_OPTION_ACTIVE : view->attributes & ~std::uint32_t{LOAD_OPTION_ACTIVE};
    std::vector<std::byte> image = option.data;
    std::memcpy(image.data(), &attributes, sizeof(attributes));
    variables.Set(option.name, gEfiGlobalVariableGuid, option.attributes, std::move(image));
    text += fmt::format("{}Boot{:04X} {}", text.empty() ? "" : ", ", number, active ? "active" : "inactive");
  }
  return text;
}

std::string SetNext(StateVariables& variables, const VarsArguments& arguments) {
  if (arguments.words == std::vector<std::string>{"none"}) {
    variables.Delete(u"BootNext");
    return "BootNext none";
  }
  const Numbers numbers = NumbersOf(variables, arguments.words);
  if (numbers.size() != 1) {
    throw StateError("BootNext: expected one number, or \"none\"");
  }
  const auto bytes = std::as_bytes(std::span(numbers));
  variables.Set(u"BootNext", gEfiGlobalVariableGuid, kBootAttributes, {bytes.begin(), bytes.end()});
  return fmt::format("BootNext {:04X}", numbers.front());
}

std::string FieldNames() {
  std::string names;
  for (const SetupField& field : SetupFields()) {
    names += fmt::format("{}{}", names.empty() ? "" : ", ", field.name);
  }
  return names;
}

// "uefi_mode=0", "option_rom_policy=0,2,1,2,2,1", or a byte by its offset: "161=0".
void SetSetupBytes(std::vector<std::byte>& setup, const std::string& word) {
  const std::size_t equals = std::min(word.find('='), word.size());
  const std::string name = word.substr(0, equals);
  const auto byte = Parse<std::size_t>(name, 10);
  const SetupField* known = FindSetupField(name);
  if ((!byte && known == nullptr) || equals == word.size()) {
    Wrong(word, "FIELD=VALUE, the field a byte's offset or one of " + FieldNames());
  }
  const SetupField field = known != nullptr ? *known : SetupField{"", *byte, 1, ""};
  if (field.offset + field.size > setup.size()) {
    throw StateError(fmt::format("{}: beyond the end of Setup's {} bytes", PrintableText(word), setup.size()));
  }
  std::string_view rest = std::string_view(word).substr(equals + 1);
  for (std::size_t i = 0; i < field.size; ++i) {
    const std::size_t end = std::min(rest.find(','), rest.size());
    const auto value = Parse<std::uint8_t>(rest.substr(0, end), 10);
    const bool last = i + 1 == field.size;
    if (!value || last != (end == rest.size())) {
      Wrong(word, fmt::format("{} number{} from 0 to 255", field.size, last && i == 0 ? "" : "s with commas between"));
    }
    setup[field.offset + i] = std::byte{*value};
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

std::string SetSetup(StateVariables& variables, const VarsArguments& arguments) {
  const Variable* variable = variables.Find(kSetupName, kSetupGuid);
  if (variable == nullptr) {
    throw StateError("Setup: no such variable; the first boot makes it");
  }
  std::vector<std::byte> setup = variable->data;
  for (const std::string& word : arguments.words) {
    SetSetupBytes(setup, word);
  }
  variables.Set(kSetupName, kSetupGuid, variable->attributes, std::move(setup));
  return fmt::format("Setup {}", fmt::join(arguments.words, " "));
}

}  // namespace

std::string EditVariables(StateVariables& variables, const VarsArguments& arguments) {
  using Action = VarsArguments::Action;
  switch (arguments.action) {
    case Action::Order:
      return SetOrder(variables, arguments);
    case Action::Add:
      return Add(variables, arguments);
    case Action::Delete:
      return Delete(variables, arguments);
    case Action::Activate:
      return Switch(variables, arguments, true);
    case Action::Deactivate:
      return Switch(variables, arguments, false);
    case Action::Next:
      return SetNext(variables, arguments);
    case Action::Setup:
      return SetSetup(variables, arguments);
    case Action::List:
      break;
  }
  return {};
}

}  // namespace sim

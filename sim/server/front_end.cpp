#include "sim/server/front_end.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <cstring>

#include "platform/loaded_image.h"
#include "platform/simple_text_in.h"
#include "platform/simple_text_out.h"

namespace sim {
namespace {

constexpr UINT32 kVolatile = EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

std::u16string Wide(const std::string& text) { return {text.begin(), text.end()}; }

std::vector<std::byte> ReadVariable(Machine& machine, const std::u16string& name) {
  UINTN size = 0;
  auto* read = machine.RuntimeServices()->GetVariable;
  if (read(name.c_str(), &gEfiGlobalVariableGuid, nullptr, &size, nullptr) != EFI_BUFFER_TOO_SMALL) {
    return {};
  }
  std::vector<std::byte> data(size);
  if (EFI_ERROR(read(name.c_str(), &gEfiGlobalVariableGuid, nullptr, &size, data.data()))) {
    data.clear();
  }
  return data;
}

std::vector<std::uint16_t> Numbers(const std::vector<std::byte>& data) {
  std::vector<std::uint16_t> numbers(data.size() / 2);
  if (!numbers.empty()) {
    std::memcpy(numbers.data(), data.data(), numbers.size() * 2);
  }
  return numbers;
}

}  // namespace

struct FrontEnd::Calls {
  static FrontEnd& Self() { return *Machine::Current().Get<FrontEnd>(); }
  static EFI_STATUS EFIAPI Run() { return Self().Run(); }
  static EFI_STATUS EFIAPI ShowMessage(const CHAR16* text) {
    if (text == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    Self().messages_.emplace_back(text);
    Self().Print(std::u16string(text) + u"\r\n");
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI LeaveQuietBoot() {
    Self().leftQuietBoot_ = true;
    return EFI_SUCCESS;
  }
};

FrontEnd::FrontEnd(Machine& machine, FrontEndKind kind) : machine_(machine), kind_(kind) {
  protocol_.Run = Calls::Run;
  protocol_.ShowMessage = Calls::ShowMessage;
  protocol_.LeaveQuietBoot = Calls::LeaveQuietBoot;
  if (kind_ != FrontEndKind::Absent) {
    EFI_HANDLE handle = nullptr;
    static_cast<void>(machine_.Install(handle, &protocol_));
  }
}

EFI_STATUS FrontEnd::Run() {
  ++runs_;
  machine_.Counts().Add("frontend.Run");
  switch (kind_) {
    case FrontEndKind::Boots:
      return BootInOrder();
    case FrontEndKind::Menu:
      return Menu();
    default:
      return EFI_SUCCESS;
  }
}

void FrontEnd::Print(std::u16string_view text) {
  auto* out = machine_.SystemTable()->ConOut;
  if (out != nullptr) {
    static_cast<void>(out->OutputString(out, std::u16string(text).c_str()));
  }
}

std::vector<std::uint16_t> FrontEnd::BootOrder() { return Numbers(ReadVariable(machine_, u"BootOrder")); }

std::optional<LoadOption> FrontEnd::ReadOption(std::uint16_t number) {
  return ParseLoadOption(ReadVariable(machine_, Wide(fmt::format("Boot{:04X}", number))));
}

// BootNext is consumed before it is tried (UEFI 2.10, 3.1.1); inactive options are skipped.
EFI_STATUS FrontEnd::BootInOrder() {
  EFI_STATUS status = EFI_NOT_FOUND;
  order_ = Numbers(ReadVariable(machine_, u"BootNext"));
  if (!order_.empty()) {
    static_cast<void>(machine_.RuntimeServices()->SetVariable(u"BootNext", &gEfiGlobalVariableGuid, 0, 0, nullptr));
    status = BootOption(order_.front());
  }
  order_ = BootOrder();
  for (const std::uint16_t number : order_) {
    if (Keep(number) && option_.Active()) {
      status = BootOption(number);
    }
  }
  return status;
}

// What is used while something is booted is kept in this object: the stack is abandoned when the boot ends there.
bool FrontEnd::Keep(std::uint16_t number) {
  auto option = ReadOption(number);
  if (!option || option->paths.empty()) {
    return false;
  }
  option_ = std::move(*option);
  path_ = option_.paths.front();
  return true;
}

EFI_STATUS FrontEnd::BootOption(std::uint16_t number) {
  if (!Keep(number)) {
    return EFI_NOT_FOUND;
  }
  static_cast<void>(machine_.RuntimeServices()->SetVariable(u"BootCurrent", &gEfiGlobalVariableGuid, kVolatile,
                                                            sizeof(number), &number));
  machine_.Events().SignalGroup(gEfiEventReadyToBootGuid);
  if (option_.Legacy()) {
    return BootLegacy(option_);
  }
  EFI_HANDLE image = nullptr;
  EFI_BOOT_SERVICES* services = machine_.BootServices();
  // The front end runs on behalf of the image that called it.
  const EFI_HANDLE parent = machine_.CurrentOwner();
  EFI_STATUS status = services->LoadImage(TRUE, parent, path_.Get(), nullptr, 0, &image);
  if (EFI_ERROR(status)) {
    path_.File(u"\\EFI\\BOOT\\BOOTX64.EFI");
    status = services->LoadImage(TRUE, parent, path_.Get(), nullptr, 0, &image);
  }
  if (EFI_ERROR(status)) {
    return status;
  }
  auto* loaded = machine_.Handles().Get<EFI_LOADED_IMAGE_PROTOCOL>(image);
  if (loaded != nullptr && !option_.optionalData.empty()) {
    loaded->LoadOptions = option_.optionalData.data();
    loaded->LoadOptionsSize = static_cast<UINT32>(option_.optionalData.size());
  }
  return services->StartImage(image, nullptr, nullptr);
}

// The entry whose description is the option's name, else the first of its device type, gets priority 0.
EFI_STATUS FrontEnd::BootLegacy(const LoadOption& option) {
  Csm* csm = machine_.Get<Csm>();
  EFI_LEGACY_BIOS_PROTOCOL* bios = nullptr;
  void* found = nullptr;
  if (csm == nullptr ||
      EFI_ERROR(machine_.Handles().LocateProtocol(&ProtocolGuid<EFI_LEGACY_BIOS_PROTOCOL>, nullptr, &found))) {
    return EFI_NOT_FOUND;
  }
  bios = static_cast<EFI_LEGACY_BIOS_PROTOCOL*>(found);
  auto* node = reinterpret_cast<BBS_BBS_DEVICE_PATH*>(path_.Get());
  int chosen = -1;
  for (std::size_t i = 0; i < csm->Count(); ++i) {
    const BBS_TABLE& entry = csm->Entry(i);
    if (entry.BootPriority == 0xFFFF || entry.BootPriority == 0xFFFC || entry.DeviceType != node->DeviceType) {
      continue;
    }
    const auto text = machine_.Legacy().Text(LegacyMemory::Linear(entry.DescStringSegment, entry.DescStringOffset), 64);
    if (text && Wide(*text) == option.name) {
      chosen = static_cast<int>(i);
      break;
    }
    chosen = chosen < 0 ? static_cast<int>(i) : chosen;
  }
  if (chosen < 0) {
    return EFI_NOT_FOUND;
  }
  for (std::size_t i = 0; i < csm->Count(); ++i) {
    BBS_TABLE& entry = csm->Entry(i);
    entry.BootPriority = entry.BootPriority == 0 ? UINT16{1} : UINT16{entry.BootPriority};
  }
  csm->Entry(static_cast<std::size_t>(chosen)).BootPriority = 0;
  return bios->LegacyBoot(bios, node, 0, nullptr);
}

void FrontEnd::ShowMenu() {
  std::u16string text = u"\r\nBoot menu\r\n";
  for (std::size_t i = 0; i < order_.size() && i < 9; ++i) {
    const auto option = ReadOption(order_[i]);
    text += Wide(fmt::format("  {}  ", i + 1)) + (option ? option->name : u"(unreadable)") + u"\r\n";
  }
  Print(text + u"  enter: boot in order, escape: leave\r\n");
}

EFI_STATUS FrontEnd::Menu() {
  for (;;) {
    order_ = BootOrder();
    ShowMenu();
    auto* in = machine_.SystemTable()->ConIn;
    UINTN index = 0;
    EFI_INPUT_KEY key{};
    if (in == nullptr || EFI_ERROR(machine_.BootServices()->WaitForEvent(1, &in->WaitForKey, &index)) ||
        EFI_ERROR(in->ReadKeyStroke(in, &key))) {
      return EFI_DEVICE_ERROR;
    }
    constexpr UINT16 kEscape = 0x17;
    if (key.ScanCode == kEscape) {
      return EFI_SUCCESS;
    }
    if (key.UnicodeChar == u'\r' || key.UnicodeChar == u'\n') {
      static_cast<void>(BootInOrder());
    } else if (key.UnicodeChar >= u'1' && key.UnicodeChar <= u'9' &&
               static_cast<std::size_t>(key.UnicodeChar - u'1') < order_.size()) {
      static_cast<void>(BootOption(order_[key.UnicodeChar - u'1']));
    }
  }
}

}  // namespace sim

#include "sim/server/scripted_health.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/pci_io.h"
#include "sim/bus/utf_text.h"

namespace sim {
namespace {

constexpr std::uint16_t kLanguageName = 1;
constexpr std::uint16_t kMessage = 2;
constexpr EFI_GUID kPackageList{0x0B6C2D1A, 0x7E4F, 0x4F0B, {0x9C, 0x11, 0x52, 0x8A, 0x30, 0xE6, 0x77, 0x01}};

std::u16string NameOf(const HealthDescription& health) {
  const std::string name = fmt::format("Scripted Health Driver {:02X}:{:02X}.{}", health.bus, health.device,
                                       static_cast<unsigned>(health.function));
  return {name.begin(), name.end()};
}

// The path begins with all nodes of the other one.
bool LiesBelow(const EFI_DEVICE_PATH_PROTOCOL* path, const DevicePath& parent) {
  const DevicePath copy = DevicePath::Copy(path);
  const auto nodes = parent.Bytes().first(parent.Size() - sizeof(EFI_DEVICE_PATH_PROTOCOL));
  return copy.Size() > nodes.size() && std::ranges::equal(copy.Bytes().first(nodes.size()), nodes);
}

}  // namespace

struct ScriptedHealth::Interfaces {
  struct Health {
    EFI_DRIVER_HEALTH_PROTOCOL protocol{};
    ScriptedHealth* driver = nullptr;
  } health;
  struct Configuration {
    EFI_DRIVER_CONFIGURATION2_PROTOCOL protocol{};
    ScriptedHealth* driver = nullptr;
  } configuration;
};

struct ScriptedHealth::Calls {
  static ScriptedHealth& From(EFI_DRIVER_HEALTH_PROTOCOL* self) {
    return *reinterpret_cast<Interfaces::Health*>(self)->driver;
  }
  static ScriptedHealth& From(EFI_DRIVER_CONFIGURATION2_PROTOCOL* self) {
    return *reinterpret_cast<Interfaces::Configuration*>(self)->driver;
  }

  static EFI_STATUS EFIAPI GetHealthStatus(EFI_DRIVER_HEALTH_PROTOCOL* self, EFI_HANDLE controller, EFI_HANDLE child,
                                           EFI_DRIVER_HEALTH_STATUS* status, EFI_DRIVER_HEALTH_HII_MESSAGE** messages,
                                           EFI_HII_HANDLE* form) {
    ScriptedHealth& driver = From(self);
    if (status == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    return driver.Manages(controller, child) ? driver.Answer(status, messages, form) : EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI Repair(EFI_DRIVER_HEALTH_PROTOCOL* self, EFI_HANDLE controller, EFI_HANDLE child,
                                  EFI_DRIVER_HEALTH_REPAIR_NOTIFY notify) {
    ScriptedHealth& driver = From(self);
    if (!driver.Manages(controller, child)) {
      return EFI_UNSUPPORTED;
    }
    driver.Owner().Counts().Add("health.repair");
    if (notify != nullptr) {
      static_cast<void>(notify(1, 1));
    }
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI SetOptions(EFI_DRIVER_CONFIGURATION2_PROTOCOL* self, EFI_HANDLE controller, EFI_HANDLE child,
                                      const CHAR8* language, EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED* action) {
    ScriptedHealth& driver = From(self);
    if (language == nullptr || action == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    if (!driver.Manages(controller, child)) {
      return EFI_UNSUPPORTED;
    }
    driver.Owner().Counts().Add("health.set_options");
    *action = EfiDriverConfigurationActionNone;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI OptionsValid(EFI_DRIVER_CONFIGURATION2_PROTOCOL* self, EFI_HANDLE controller,
                                        EFI_HANDLE child) {
    return From(self).Manages(controller, child) ? EFI_SUCCESS : EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI ForceDefaults(EFI_DRIVER_CONFIGURATION2_PROTOCOL* self, EFI_HANDLE controller,
                                         EFI_HANDLE child, UINT32, EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED* action) {
    if (action == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *action = EfiDriverConfigurationActionNone;
    return From(self).Manages(controller, child) ? EFI_SUCCESS : EFI_UNSUPPORTED;
  }
};

ScriptedHealth::ScriptedHealth(Machine& machine, HealthDescription health, DevicePath rootBridge, HiiDatabase* hii)
    : SimDriver(machine, NameOf(health)),
      health_(std::move(health)),
      rootBridge_(std::move(rootBridge)),
      interfaces_(std::make_unique<Interfaces>()) {
  if (hii != nullptr) {
    HiiStringPackage strings{.language = "en-US", .languageName = kLanguageName, .strings = {}, .nextId = kMessage};
    strings.strings[kLanguageName] = u"English";
    if (!health_.message.empty()) {
      strings.strings[kMessage] = Utf16OfText(health_.message);
      strings.nextId = kMessage + 1;
    }
    static_cast<void>(
        hii->Add({.guid = kPackageList, .strings = {std::move(strings)}, .others = {}}, Handle(), package_));
  }
  static char languages[] = "eng;en-US";
  interfaces_->health = {{Calls::GetHealthStatus, Calls::Repair}, this};
  interfaces_->configuration = {{Calls::SetOptions, Calls::OptionsValid, Calls::ForceDefaults, languages}, this};
  EFI_HANDLE handle = Handle();
  static_cast<void>(machine.Install(handle, &interfaces_->health.protocol));
  static_cast<void>(machine.Install(handle, &interfaces_->configuration.protocol));
}

ScriptedHealth::~ScriptedHealth() = default;

// UEFI 2.10, 11.10.1: no controller stands for all that the driver manages, and the child does not count then. The
// driver has no children of its own.
bool ScriptedHealth::Manages(EFI_HANDLE controller, EFI_HANDLE child) const {
  if (controller == nullptr) {
    return true;
  }
  auto* pci = Owner().Handles().Get<EFI_PCI_IO_PROTOCOL>(controller);
  UINTN segment = 0;
  UINTN bus = 0;
  UINTN device = 0;
  UINTN function = 0;
  return child == nullptr && pci != nullptr && !EFI_ERROR(pci->GetLocation(pci, &segment, &bus, &device, &function)) &&
         bus == health_.bus && device == health_.device && function == health_.function &&
         LiesBelow(Owner().Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(controller), rootBridge_);
}

EFI_STATUS ScriptedHealth::Answer(EFI_DRIVER_HEALTH_STATUS* status, EFI_DRIVER_HEALTH_HII_MESSAGE** messages,
                                  EFI_HII_HANDLE* form) {
  EFI_DRIVER_HEALTH_HII_MESSAGE* list = nullptr;
  if (messages != nullptr && !health_.message.empty() && package_ != nullptr) {
    list = MakeMessages();
    if (list == nullptr) {
      return EFI_OUT_OF_RESOURCES;
    }
  }
  Owner().Counts().Add("health.questions");
  *status = static_cast<EFI_DRIVER_HEALTH_STATUS>(health_.statuses[next_]);
  next_ = std::min(next_ + 1, health_.statuses.size() - 1);
  if (messages != nullptr) {
    *messages = list;
  }
  if (form != nullptr) {
    *form = package_;
  }
  return EFI_SUCCESS;
}

// The caller frees it.
EFI_DRIVER_HEALTH_HII_MESSAGE* ScriptedHealth::MakeMessages() {
  constexpr std::size_t kCount = 2;  // with the null entry behind the message
  auto* list = static_cast<EFI_DRIVER_HEALTH_HII_MESSAGE*>(Owner().Pool().Allocate(
      EfiBootServicesData, kCount * sizeof(EFI_DRIVER_HEALTH_HII_MESSAGE), Owner().CurrentOwner()));
  if (list != nullptr) {
    list[0] = {package_, kMessage, 0};
    list[1] = {};
  }
  return list;
}

FormBrowser::FormBrowser(Machine& machine, const HiiDatabase& hii)
    : machine_(machine), hii_(hii), interface_{{SendForm, BrowserCallback}, this} {
  EFI_HANDLE handle = nullptr;
  static_cast<void>(machine_.Install(handle, &interface_.protocol));
}

EFI_STATUS EFIAPI FormBrowser::SendForm(const EFI_FORM_BROWSER2_PROTOCOL* self, EFI_HII_HANDLE* handles, UINTN count,
                                        const EFI_GUID*, UINT16, const EFI_SCREEN_DESCRIPTOR*,
                                        EFI_BROWSER_ACTION_REQUEST* action) {
  FormBrowser& browser = *reinterpret_cast<const Interface*>(self)->browser;
  if (handles == nullptr || count == 0) {
    return EFI_INVALID_PARAMETER;
  }
  std::u16string name;
  if (!std::any_of(handles, handles + count, [&](EFI_HII_HANDLE handle) {
        return browser.hii_.Find(handle, "en-US", kLanguageName, name) == EFI_SUCCESS;
      })) {
    return EFI_NOT_FOUND;
  }
  browser.machine_.Counts().Add("form_browser.send_form");
  if (action != nullptr) {
    *action = 0;  // EFI_BROWSER_ACTION_REQUEST_NONE
  }
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI FormBrowser::BrowserCallback(const EFI_FORM_BROWSER2_PROTOCOL*, UINTN*, CHAR16*, BOOLEAN,
                                               const EFI_GUID*, const CHAR16*) {
  return EFI_UNSUPPORTED;
}

}  // namespace sim

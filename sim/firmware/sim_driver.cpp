#include "sim/firmware/sim_driver.h"

#include <string_view>

namespace sim {

// The protocol tables and the way back from each to the driver behind it.
struct SimDriver::Tables {
  struct Binding {
    EFI_DRIVER_BINDING_PROTOCOL protocol{};
    SimDriver* driver = nullptr;
  } binding;
  struct Name2 {
    EFI_COMPONENT_NAME2_PROTOCOL protocol{};
    SimDriver* driver = nullptr;
  } name2;
  struct Name {
    EFI_COMPONENT_NAME_PROTOCOL protocol{};
    SimDriver* driver = nullptr;
  } name;
};

struct SimDriverCalls {
  using Tables = SimDriver::Tables;

  static SimDriver& Driver(EFI_DRIVER_BINDING_PROTOCOL* self) {
    return *reinterpret_cast<Tables::Binding*>(self)->driver;
  }
  static EFI_STATUS EFIAPI Supported(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller,
                                     EFI_DEVICE_PATH_PROTOCOL* remaining) {
    return Driver(self).Supported(controller, remaining);
  }
  // What a driver allocates is the firmware's, whoever asked for the connection.
  static EFI_STATUS EFIAPI Start(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller,
                                 EFI_DEVICE_PATH_PROTOCOL* remaining) {
    SimDriver& driver = Driver(self);
    driver.machine_.PushOwner(driver.handle_);
    const EFI_STATUS status = driver.Start(controller, remaining);
    driver.machine_.PopOwner();
    return status;
  }
  static EFI_STATUS EFIAPI Stop(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller, UINTN count,
                                EFI_HANDLE* children) {
    if (count != 0 && children == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    SimDriver& driver = Driver(self);
    const AcrossCalls kept(driver.machine_.Held(), std::vector<EFI_HANDLE>(children, children + count));
    return driver.Stop(controller, *kept);
  }

  static EFI_STATUS GiveName(SimDriver& driver, const std::u16string& name, CHAR16** out) {
    if (name.empty()) {
      return EFI_UNSUPPORTED;
    }
    *out = const_cast<CHAR16*>(driver.KeepName(name));
    return EFI_SUCCESS;
  }
  template <typename Table>
  static EFI_STATUS DriverName(void* self, const char* language, std::string_view known, CHAR16** out) {
    if (language == nullptr || out == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    SimDriver& driver = *static_cast<Table*>(self)->driver;
    return known == language ? GiveName(driver, driver.name_, out) : EFI_UNSUPPORTED;
  }
  // UEFI 2.10, 11.5: only a driver that manages the controller has a name for it.
  template <typename Table>
  static EFI_STATUS ControllerName(void* self, EFI_HANDLE controller, EFI_HANDLE child, const char* language,
                                   std::string_view known, CHAR16** out) {
    SimDriver& driver = *static_cast<Table*>(self)->driver;
    if (language == nullptr || out == nullptr || !driver.machine_.Handles().Exists(controller) ||
        (child != nullptr && !driver.machine_.Handles().Exists(child))) {
      return EFI_INVALID_PARAMETER;
    }
    return known == language ? GiveName(driver, driver.ControllerName(controller, child), out) : EFI_UNSUPPORTED;
  }

  static EFI_STATUS EFIAPI DriverName2(EFI_COMPONENT_NAME2_PROTOCOL* self, const CHAR8* language, CHAR16** out) {
    return DriverName<Tables::Name2>(self, language, "en-US", out);
  }
  static EFI_STATUS EFIAPI ControllerName2(EFI_COMPONENT_NAME2_PROTOCOL* self, EFI_HANDLE controller, EFI_HANDLE child,
                                           const CHAR8* language, CHAR16** out) {
    return ControllerName<Tables::Name2>(self, controller, child, language, "en-US", out);
  }
  static EFI_STATUS EFIAPI DriverName1(EFI_COMPONENT_NAME_PROTOCOL* self, const CHAR8* language, CHAR16** out) {
    return DriverName<Tables::Name>(self, language, "eng", out);
  }
  static EFI_STATUS EFIAPI ControllerName1(EFI_COMPONENT_NAME_PROTOCOL* self, EFI_HANDLE controller, EFI_HANDLE child,
                                           const CHAR8* language, CHAR16** out) {
    return ControllerName<Tables::Name>(self, controller, child, language, "eng", out);
  }
};

SimDriver::SimDriver(Machine& machine, std::u16string name, UINT32 version, const EFI_GUID* mark)
    : machine_(machine), name_(std::move(name)), tables_(std::make_unique<Tables>()) {
  static char english2[] = "en-US";
  static char english1[] = "eng";
  tables_->binding = {
      {SimDriverCalls::Supported, SimDriverCalls::Start, SimDriverCalls::Stop, version, nullptr, nullptr}, this};
  tables_->name2 = {{SimDriverCalls::DriverName2, SimDriverCalls::ControllerName2, english2}, this};
  tables_->name = {{SimDriverCalls::DriverName1, SimDriverCalls::ControllerName1, english1}, this};
  // The handle exists before the binding's installation is notified, so that listeners see it whole.
  static_cast<void>(machine_.Install(handle_, &tables_->name2.protocol));
  static_cast<void>(machine_.Install(handle_, &tables_->name.protocol));
  if (mark != nullptr) {
    static_cast<void>(machine_.Handles().Install(&handle_, mark, nullptr));
  }
  tables_->binding.protocol.DriverBindingHandle = handle_;
  tables_->binding.protocol.ImageHandle = handle_;
  static_cast<void>(machine_.Install(handle_, &tables_->binding.protocol));
}

// The machine goes down with its drivers; nothing is uninstalled, since nobody is left to be told.
SimDriver::~SimDriver() = default;

std::u16string SimDriver::ControllerName(EFI_HANDLE, EFI_HANDLE) { return {}; }

const CHAR16* SimDriver::KeepName(const std::u16string& name) {
  auto& kept = names_[name];
  if (kept == nullptr) {
    kept = std::make_unique<std::u16string>(name);
  }
  return kept->c_str();
}

}  // namespace sim

// What all drivers here share: the driver binding, the handles that a start makes and a stop takes away, and both
// component name protocols. A driver is left with two questions: does it serve this, and what hangs on it.
#pragma once

#include <map>
#include <optional>

#include "platform/boot_services.h"
#include "platform/component_name.h"
#include "platform/driver_binding.h"
#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/firmware/device_path_builder.h"

namespace sim {

// What a started driver publishes: on a new handle with its own path, or on the controller's handle itself.
struct BusChild {
  std::optional<DevicePath> path;
  std::vector<std::shared_ptr<DeviceObject>> objects;
  std::vector<EFI_GUID> marks;  // null interfaces
  std::u16string name;          // for component names; empty: the controller's
};

struct BusDriverFacts {
  std::u16string name;
  EFI_GUID consumed;       // protocol opened by driver on the controller
  UINT32 version = 0x10;   // of the binding
  bool needsChild = true;  // a controller without anything on it is not started
};

class BusDriver {
 public:
  // Installs the binding and the names on a new handle. `boot` has to outlive this.
  BusDriver(EFI_BOOT_SERVICES& boot, BusContext context, BusDriverFacts facts);
  BusDriver(const BusDriver&) = delete;
  BusDriver& operator=(const BusDriver&) = delete;
  // Forgets everything without a service call: the handle database is expected to go too.
  virtual ~BusDriver();

  [[nodiscard]] EFI_HANDLE BindingHandle() const { return handle_; }

 protected:
  // Whether the controller with this interface of the consumed protocol is one to start.
  [[nodiscard]] virtual bool Serves(void* consumed) = 0;
  // What hangs on it; `path` is the controller's. An error refuses the start.
  [[nodiscard]] virtual EFI_STATUS Enumerate(void* consumed, const DevicePath& path,
                                             std::vector<BusChild>& children) = 0;
  // The controller's name; empty: none.
  [[nodiscard]] virtual std::u16string ControllerName(void* consumed) const;

  [[nodiscard]] const BusContext& Context() const { return context_; }

 private:
  struct Installed {
    EFI_HANDLE handle = nullptr;
    bool own = false;  // a handle of its own, as against the controller's
    std::unique_ptr<DevicePath> path;
    std::vector<Interface> interfaces;
    std::vector<std::shared_ptr<DeviceObject>> objects;
    std::u16string name;
  };
  struct Running {
    void* consumed = nullptr;
    std::vector<Installed> children;
    std::u16string name;
  };

  static EFI_STATUS EFIAPI Supported(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller,
                                     EFI_DEVICE_PATH_PROTOCOL* remaining);
  static EFI_STATUS EFIAPI Start(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller,
                                 EFI_DEVICE_PATH_PROTOCOL* remaining);
  static EFI_STATUS EFIAPI Stop(EFI_DRIVER_BINDING_PROTOCOL* self, EFI_HANDLE controller, UINTN childCount,
                                EFI_HANDLE* children);
  template <typename Names>
  static EFI_STATUS EFIAPI GetDriverName(Names* self, const CHAR8* language, CHAR16** name);
  template <typename Names>
  static EFI_STATUS EFIAPI GetControllerName(Names* self, EFI_HANDLE controller, EFI_HANDLE child,
                                             const CHAR8* language, CHAR16** name);

  [[nodiscard]] EFI_STATUS OpenConsumed(EFI_HANDLE controller, UINT32 attributes, EFI_HANDLE child, void** interface);
  void CloseConsumed(EFI_HANDLE controller, EFI_HANDLE child);
  [[nodiscard]] EFI_STATUS StartController(EFI_HANDLE controller, Running& running);
  [[nodiscard]] EFI_STATUS InstallChild(EFI_HANDLE controller, BusChild child, Running& running);
  [[nodiscard]] EFI_STATUS RemoveChild(EFI_HANDLE controller, Installed& child);

  EFI_BOOT_SERVICES& boot_;
  BusContext context_;
  BusDriverFacts facts_;
  EFI_HANDLE handle_ = nullptr;
  std::map<EFI_HANDLE, Running> running_;
  std::vector<std::shared_ptr<DeviceObject>> retired_;  // still in use by someone
  Backed<EFI_DRIVER_BINDING_PROTOCOL, BusDriver> binding_;
  Backed<EFI_COMPONENT_NAME2_PROTOCOL, BusDriver> names2_;
  Backed<EFI_COMPONENT_NAME_PROTOCOL, BusDriver> names_;
};

}  // namespace sim

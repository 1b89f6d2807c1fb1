// What all drivers here share: the handles that a start makes and a stop takes away. A driver is left with two
// questions: does it serve this, and what hangs on it.
#pragma once

#include <map>
#include <optional>

#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/firmware/device_path_builder.h"
#include "sim/firmware/sim_driver.h"

namespace sim {

// What a started driver publishes: on a new handle with its own path, or on the controller's handle itself.
struct BusChild {
  std::optional<DevicePath> path{};
  std::vector<std::shared_ptr<DeviceObject>> objects{};
  std::vector<EFI_GUID> marks{};  // null interfaces
  std::u16string name{};          // for component names; empty: the controller's
};

struct BusDriverFacts {
  std::u16string name;
  EFI_GUID consumed;               // protocol opened by driver on the controller
  UINT32 version = 0x10;           // of the binding
  bool needsChild = true;          // a controller without anything on it is not started
  const EFI_GUID* mark = nullptr;  // on the driver's own handle
};

// Pool memory of whoever runs, and the machine's clock.
[[nodiscard]] BusContext ContextOf(Machine& machine);

class BusDriver : public SimDriver {
 public:
  BusDriver(Machine& machine, BusDriverFacts facts);

  EFI_STATUS Supported(EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL* remaining) final;
  // Makes everything on the controller at once, whatever path remains: a caller that asks for one child finds it.
  EFI_STATUS Start(EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL* remaining) final;
  EFI_STATUS Stop(EFI_HANDLE controller, const std::vector<EFI_HANDLE>& children) final;
  std::u16string ControllerName(EFI_HANDLE controller, EFI_HANDLE child) final;

 protected:
  // Whether the controller with this interface of the consumed protocol is one to start.
  [[nodiscard]] virtual bool Serves(void* consumed) = 0;
  // What hangs on it; `path` is the controller's. An error refuses the start.
  [[nodiscard]] virtual EFI_STATUS Enumerate(void* consumed, const DevicePath& path,
                                             std::vector<BusChild>& children) = 0;
  // The controller's name; empty: none.
  [[nodiscard]] virtual std::u16string NameOf(void* consumed) const;

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

  [[nodiscard]] EFI_STATUS OpenConsumed(EFI_HANDLE controller, UINT32 attributes, EFI_HANDLE user, void** interface);
  void CloseConsumed(EFI_HANDLE controller, EFI_HANDLE user);
  [[nodiscard]] EFI_STATUS StartController(EFI_HANDLE controller, Running& running);
  [[nodiscard]] EFI_STATUS InstallChild(EFI_HANDLE controller, BusChild child, Running& running);
  [[nodiscard]] EFI_STATUS RemoveChild(EFI_HANDLE controller, Installed& child);

  BusContext context_;
  BusDriverFacts facts_;
  std::map<EFI_HANDLE, Running> running_;
  std::vector<std::shared_ptr<DeviceObject>> retired_;  // still in use by someone
};

}  // namespace sim

// A driver of the simulator's own: a C++ class behind a real driver binding protocol and component names, on a handle
// of its own, so that ConnectController treats it as it treats a driver loaded from a file.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/component_name.h"
#include "platform/driver_binding.h"
#include "platform/loaded_image.h"
#include "sim/firmware/machine.h"

namespace sim {

class SimDriver {
 public:
  // Higher versions are asked first (UEFI 2.10, 11.1). The mark, a null interface, tells what kind of driver it is.
  SimDriver(Machine& machine, std::u16string name, UINT32 version = 0x10, const EFI_GUID* mark = nullptr);
  virtual ~SimDriver();
  SimDriver(const SimDriver&) = delete;
  SimDriver& operator=(const SimDriver&) = delete;

  // The three services of the driver binding protocol; children is empty when the driver is to let go of the
  // controller itself.
  virtual EFI_STATUS Supported(EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL* remaining) = 0;
  virtual EFI_STATUS Start(EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL* remaining) = 0;
  virtual EFI_STATUS Stop(EFI_HANDLE controller, const std::vector<EFI_HANDLE>& children) = 0;
  // The name for a controller, or for its child (null: the controller itself); empty when it has none.
  virtual std::u16string ControllerName(EFI_HANDLE controller, EFI_HANDLE child);

  EFI_HANDLE Handle() const { return handle_; }
  Machine& Owner() const { return machine_; }

 protected:
  // Opens by driver; null with the status when it cannot.
  template <typename Type>
  Type* OpenByDriver(EFI_HANDLE controller, EFI_STATUS& status) {
    void* interface = nullptr;
    status = machine_.Handles().OpenProtocol(controller, &ProtocolGuid<Type>, &interface, handle_, controller,
                                             EFI_OPEN_PROTOCOL_BY_DRIVER);
    return EFI_ERROR(status) ? nullptr : static_cast<Type*>(interface);
  }
  // True when the controller carries the protocol and nobody else drives it; nothing stays open.
  template <typename Type>
  EFI_STATUS TestByDriver(EFI_HANDLE controller) {
    EFI_STATUS status = EFI_SUCCESS;
    if (OpenByDriver<Type>(controller, status) != nullptr) {
      Close<Type>(controller, controller);
    }
    return status;
  }
  template <typename Type>
  EFI_STATUS OpenForChild(EFI_HANDLE controller, EFI_HANDLE child) {
    void* interface = nullptr;
    return machine_.Handles().OpenProtocol(controller, &ProtocolGuid<Type>, &interface, handle_, child,
                                           EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER);
  }
  template <typename Type>
  EFI_STATUS Close(EFI_HANDLE controller, EFI_HANDLE user) {
    return machine_.Handles().CloseProtocol(controller, &ProtocolGuid<Type>, handle_, user);
  }

 private:
  struct Tables;
  friend struct SimDriverCalls;

  const CHAR16* KeepName(const std::u16string& name);

  Machine& machine_;
  std::u16string name_;
  EFI_HANDLE handle_ = nullptr;
  std::unique_ptr<Tables> tables_;
  std::map<std::u16string, std::unique_ptr<std::u16string>> names_;  // given out to callers, who do not free them
};

}  // namespace sim

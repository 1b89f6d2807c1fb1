// What drivers publish: an object of the simulator that stands behind one or more protocol interfaces.
#pragma once

#include <memory>
#include <type_traits>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

// One interface to be installed on a handle under its GUID; a null interface is a mere mark.
struct Interface {
  EFI_GUID guid;
  void* pointer = nullptr;
};

template <typename Protocol>
[[nodiscard]] Interface InterfaceOf(Protocol& protocol) {
  return {ProtocolGuid<Protocol>, &protocol};
}

class DeviceObject {
 public:
  DeviceObject() = default;
  DeviceObject(const DeviceObject&) = delete;
  DeviceObject& operator=(const DeviceObject&) = delete;
  virtual ~DeviceObject() = default;
  // The interfaces in the order of installation; their pointers stay valid as long as the object lives.
  [[nodiscard]] virtual std::vector<Interface> Interfaces() = 0;
  // The interfaces are about to leave their handle. True: something of it is still in use and the object has to stay.
  [[nodiscard]] virtual bool Retire() { return false; }
};

// A protocol table with the object behind it, so that a member function finds the object from its This.
template <typename Protocol, typename Object>
struct Backed {
  Protocol protocol{};
  Object* object = nullptr;

  static Object& From(Protocol* self) {
    static_assert(std::is_standard_layout_v<Backed>);
    return *reinterpret_cast<Backed*>(self)->object;
  }
};

}  // namespace sim

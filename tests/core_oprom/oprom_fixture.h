// A machine with a CSM on which the option ROM policy has started.
#pragma once

#include "core/oprom_policy.h"
#include "platform/driver_binding.h"
#include "platform/legacy_bios.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/fake_pci.h"

namespace test {

class OptionRomTest : public DriverTest {
 protected:
  // policy: switch, network, serial bus, storage, display, other.
  void Start(std::initializer_list<int> policy) {
    Install(&legacyBios);
    const Data bytes = DataOf(policy);
    std::memcpy(bds::gCore.Setup.Bytes + kSetupOptionRomPolicy, bytes.data(), bytes.size());
    bds::ArrangeOptionRomPolicy();
  }
  // A driver image with its binding on the image's own handle.
  EFI_HANDLE AddDriver(EFI_DRIVER_BINDING_PROTOCOL& binding, bool thunk) {
    EFI_HANDLE handle = nullptr;
    if (thunk) {
      EXPECT_EQ(machine.Handles().Install(&handle, &kThunkDriverMarkGuid, nullptr), EFI_SUCCESS);
    } else {
      handle = images.CreateBuiltinImage("driver", [](EFI_HANDLE, EFI_SYSTEM_TABLE*) { return EFI_SUCCESS; });
    }
    binding.ImageHandle = handle;
    binding.DriverBindingHandle = handle;
    EXPECT_EQ(machine.Install(handle, &binding), EFI_SUCCESS);
    return handle;
  }
  template <typename Interface>
  Interface* Located() {
    const auto handles = machine.Handles().With(ProtocolGuid<Interface>);
    return handles.size() == 1 ? machine.Handles().Get<Interface>(handles.front()) : nullptr;
  }

  EFI_LEGACY_BIOS_PROTOCOL legacyBios{};
};

}  // namespace test

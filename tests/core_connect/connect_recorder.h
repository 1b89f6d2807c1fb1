// What the driver asks to be connected, in order, without a driver model behind it.
#pragma once

#include <functional>
#include <map>

#include "tests/support/driver_fixture.h"

namespace test {

// Replaces ConnectController and DisconnectController in the boot services; each call is recorded and answered.
struct ConnectRecorder {
  struct Call {
    char Kind;  // 'C' or 'D'
    EFI_HANDLE Controller;
    EFI_HANDLE Child;      // of a disconnect
    sim::DevicePath Rest;  // of a connect
    bool Recursive;
  };
  std::vector<Call> Calls;
  std::function<EFI_STATUS(const Call&)> Answer = [](const Call&) { return EFI_SUCCESS; };

  explicit ConnectRecorder(EFI_BOOT_SERVICES* services) {
    Current() = this;
    services->ConnectController = Connect;
    services->DisconnectController = Disconnect;
  }
  ~ConnectRecorder() { Current() = nullptr; }
  ConnectRecorder(const ConnectRecorder&) = delete;

  std::vector<EFI_HANDLE> Connected() const {
    std::vector<EFI_HANDLE> handles;
    for (const Call& call : Calls) {
      if (call.Kind == 'C') {
        handles.push_back(call.Controller);
      }
    }
    return handles;
  }

 private:
  static ConnectRecorder*& Current() {
    static ConnectRecorder* current = nullptr;
    return current;
  }
  static EFI_STATUS Take(Call call) {
    Current()->Calls.push_back(call);
    return Current()->Answer(call);
  }
  static EFI_STATUS EFIAPI Connect(EFI_HANDLE controller, EFI_HANDLE* drivers, EFI_DEVICE_PATH_PROTOCOL* rest,
                                   BOOLEAN recursive) {
    EXPECT_EQ(drivers, nullptr);
    return Take({'C', controller, nullptr, rest == nullptr ? sim::DevicePath() : sim::DevicePath::Copy(rest),
                 recursive != FALSE});
  }
  static EFI_STATUS EFIAPI Disconnect(EFI_HANDLE controller, EFI_HANDLE driver, EFI_HANDLE child) {
    EXPECT_EQ(driver, nullptr);
    return Take({'D', controller, child, {}, false});
  }
};

class ConnectTest : public DriverTest {
 protected:
  ConnectRecorder recorder{machine.BootServices()};
};

}  // namespace test

// A machine with short names for its services, and protocols of no meaning to install. All calls go through the
// system table, as the software under test makes them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/firmware/machine.h"

namespace sim {

inline constexpr EFI_GUID kRed{0x11111111, 1, 1, {1, 1, 1, 1, 1, 1, 1, 1}};
inline constexpr EFI_GUID kBlue{0x22222222, 2, 2, {2, 2, 2, 2, 2, 2, 2, 2}};
inline constexpr EFI_GUID kGreen{0x33333333, 3, 3, {3, 3, 3, 3, 3, 3, 3, 3}};

class FirmwareTest : public testing::Test {
 protected:
  EFI_HANDLE NewHandle(const EFI_GUID& guid, void* interface = nullptr) {
    EFI_HANDLE handle = nullptr;
    EXPECT_EQ(bs->InstallProtocolInterface(&handle, &guid, EFI_NATIVE_INTERFACE, interface), EFI_SUCCESS);
    return handle;
  }

  Machine machine;
  EFI_BOOT_SERVICES* bs = machine.BootServices();
};

}  // namespace sim

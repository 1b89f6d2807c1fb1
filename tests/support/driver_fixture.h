// A machine with variables, images and the driver's services set up, for tests that run single steps or whole boots of
// the linked driver. What the machine complains about (misused services) fails the test.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bmc/state.h"
#include "bootopt/boot_lists.h"
#include "core/oprom_state.h"
#include "core/state.h"
#include "flexboot/state.h"
#include "sim/firmware/image/image_service.h"
#include "sim/firmware/machine.h"
#include "sim/firmware/variables/runtime_services.h"
#include "sim/firmware/variables/variable_store.h"
#include "support/debug_print.h"
#include "support/services.h"
#include "vboot/policy_engine.h"

namespace test {

using Data = std::vector<std::byte>;

template <typename Value>
Data DataOf(const Value& value) {
  Data data(sizeof(value));
  std::memcpy(data.data(), &value, sizeof(value));
  return data;
}
inline Data DataOf(std::initializer_list<int> bytes) {
  Data data;
  for (const int byte : bytes) {
    data.push_back(static_cast<std::byte>(byte));
  }
  return data;
}
inline Data Numbers(std::initializer_list<UINT16> numbers) {
  Data data;
  for (const UINT16 number : numbers) {
    const Data bytes = DataOf(number);
    data.insert(data.end(), bytes.begin(), bytes.end());
  }
  return data;
}
inline Data Joined(std::initializer_list<std::span<const std::byte>> parts) {
  Data data;
  for (const auto part : parts) {
    data.insert(data.end(), part.begin(), part.end());
  }
  return data;
}

// A Boot#### or Driver#### variable.
inline Data LoadOption(UINT32 attributes, std::u16string_view description, const sim::DevicePath& path,
                       std::span<const std::byte> optionalData = {}) {
  const std::u16string name(description);
  const std::span text(reinterpret_cast<const std::byte*>(name.c_str()), (name.size() + 1) * sizeof(char16_t));
  return Joined({DataOf(attributes), DataOf(static_cast<UINT16>(path.Size())), text, path.Bytes(), optionalData});
}

class DriverTest : public ::testing::Test {
 protected:
  DriverTest()
      : runtime(machine.Attach<sim::RuntimeServices>(store)),
        images(machine.Attach<sim::ImageService>()),
        image(images.CreateLinkedDriverImage(u"")) {
    bds::StartFresh(bds::gDebug);
    bds::StartFresh(bds::gCore);
    bds::StartFresh(bds::gOptionRom);
    bds::StartFresh(bds::gBootOptions);
    bds::StartFresh(bds::gPolicyEngine);
    bds::StartFresh(bds::gBmc);
    bds::StartFresh(bds::gFlexBoot);
    bds::InitializeServices(image, machine.SystemTable());
  }
  void TearDown() override {
    for (const std::string& complaint : machine.Counts().Complaints()) {
      ADD_FAILURE() << "misused service: " << complaint;
    }
  }

  void Set(std::u16string_view name, const Data& data, UINT32 attributes = 7,
           const EFI_GUID& guid = gEfiGlobalVariableGuid) {
    ASSERT_EQ(store.Set(name, guid, attributes, data), EFI_SUCCESS);
  }
  const sim::Variable* Find(std::u16string_view name, const EFI_GUID& guid = gEfiGlobalVariableGuid) const {
    return store.Find(name, guid);
  }
  // The variable with its attributes; a message when it is missing.
  void ExpectVariable(std::u16string_view name, UINT32 attributes, const Data& data,
                      const EFI_GUID& guid = gEfiGlobalVariableGuid) const {
    const sim::Variable* found = Find(name, guid);
    ASSERT_NE(found, nullptr) << "missing " << testing::PrintToString(name);
    EXPECT_EQ(found->attributes, attributes);
    EXPECT_EQ(found->data, data);
  }
  const std::string& Log() { return machine.Log().Text(); }
  bool Logged(std::string_view part) { return machine.Log().Contains(part); }

  // A new handle with the interface on it.
  template <typename Interface>
  EFI_HANDLE Install(Interface* interface) {
    EFI_HANDLE handle = nullptr;
    EXPECT_EQ(machine.Install(handle, interface), EFI_SUCCESS);
    return handle;
  }
  // A new handle with this device path, which the test keeps alive.
  EFI_HANDLE InstallPath(sim::DevicePath& path) { return Install(path.Get()); }

  sim::VariableStore store;
  sim::Machine machine;
  sim::RuntimeServices& runtime;
  sim::ImageService& images;
  EFI_HANDLE image;  // the driver's
};

}  // namespace test

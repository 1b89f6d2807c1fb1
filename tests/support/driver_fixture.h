// A machine with variables, images and the driver's services set up, for tests that run single steps or whole boots of
// the linked driver. What the machine complains about (misused services) fails the test.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <optional>
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

// The machine by itself, for tests that need more than one, or none of GoogleTest's fixtures.
class DriverMachine {
 public:
  explicit DriverMachine(sim::VariableStore::Limits limits = {})
      : store(limits),
        runtime(machine.Attach<sim::RuntimeServices>(store)),
        images(machine.Attach<sim::ImageService>()),
        driverImage(images.CreateLinkedDriverImage(u"")) {
    StartDriver();
    const EFI_RUNTIME_SERVICES& table = *machine.RuntimeServices();
    getVariable_ = table.GetVariable;
    setVariable_ = table.SetVariable;
    machine.RuntimeServices()->GetVariable = GetVariable;
    machine.RuntimeServices()->SetVariable = SetVariable;
    current_ = this;
    poolAtStart_ = machine.Pool().Count();
  }
  ~DriverMachine() {
    EXPECT_EQ(machine.Counts().ComplaintCount(), expectedComplaints)
        << testing::PrintToString(machine.Counts().Complaints());
    current_ = nullptr;
  }
  DriverMachine(const DriverMachine&) = delete;

  // What the entry point does first.
  void StartDriver() {
    bds::StartFresh(bds::gDebug);
    bds::StartFresh(bds::gCore);
    bds::StartFresh(bds::gOptionRom);
    bds::StartFresh(bds::gBootOptions);
    bds::StartFresh(bds::gPolicyEngine);
    bds::StartFresh(bds::gBmc);
    bds::StartFresh(bds::gFlexBoot);
    bds::InitializeServices(driverImage, machine.SystemTable());
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
  // Since the last TakeLog.
  std::string Log() { return machine.Log().Text().substr(logTaken_); }
  std::string TakeLog() {
    const std::string log = Log();
    logTaken_ += log.size();
    return log;
  }
  bool Logged(std::string_view part) { return Log().find(part) != std::string::npos; }

  // A new handle with the interface on it.
  template <typename Interface>
  EFI_HANDLE Install(Interface* interface) {
    EFI_HANDLE handle = nullptr;
    EXPECT_EQ(machine.Install(handle, interface), EFI_SUCCESS);
    return handle;
  }
  void Install(EFI_HANDLE handle, const EFI_GUID& guid, void* interface) {
    EXPECT_EQ(machine.Handles().Install(&handle, &guid, interface), EFI_SUCCESS);
  }
  template <typename Interface>
  void Install(EFI_HANDLE handle, Interface* interface) {
    Install(handle, ProtocolGuid<Interface>, interface);
  }
  // A new handle with this device path, which the test keeps alive.
  EFI_HANDLE InstallPath(sim::DevicePath& path) { return Install(path.Get()); }
  // A new handle with a copy of these bytes as its device path; without bytes, with nothing that matters.
  EFI_HANDLE NewHandle(std::span<const std::byte> path = {}) {
    static constexpr EFI_GUID kNothing{0xB1A2C3D4, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    EFI_HANDLE handle = nullptr;
    paths_.emplace_back(path.begin(), path.end());
    const EFI_GUID& guid = path.empty() ? kNothing : ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>;
    EXPECT_EQ(machine.Handles().Install(&handle, &guid, paths_.back().data()), EFI_SUCCESS);
    return handle;
  }
  void OpenByDriver(EFI_HANDLE handle, const EFI_GUID& guid, EFI_HANDLE agent,
                    UINT32 attributes = EFI_OPEN_PROTOCOL_BY_DRIVER) {
    const bool child = attributes == EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER;
    void* interface = nullptr;
    EXPECT_EQ(machine.Handles().OpenProtocol(handle, &guid, &interface, agent, child ? agent : handle, attributes),
              EFI_SUCCESS);
  }

  // Blocks of the pool that are held now and were not at the start.
  std::size_t PoolBlocks() { return machine.Pool().Count() - poolAtStart_; }
  // From here on the blocks that are held belong to a boot that is over.
  void AbandonPool() { poolAtStart_ = machine.Pool().Count(); }
  // The allocation that comes after `successes` more fails, and it alone; with `always` each behind it too.
  void FailAllocationAfter(int successes, bool always = false) {
    machine.Faults().SetCallHook([left = successes, always](std::string_view service, std::uint64_t) mutable {
      const bool counts = service == "AllocatePool";
      left -= counts && left >= 0 ? 1 : 0;
      const bool fails = counts && left < 0;
      left = fails && !always ? std::numeric_limits<int>::max() : left;
      return fails ? std::optional<EFI_STATUS>(EFI_OUT_OF_RESOURCES) : std::nullopt;
    });
  }
  // Asked before each read and write of a variable; an error is the answer, and nothing is done.
  std::function<EFI_STATUS(const std::u16string& name)> RefuseRead;
  std::function<EFI_STATUS(const std::u16string& name)> RefuseWrite;
  int Writes = 0;  // that were asked for

  sim::VariableStore store;
  sim::Machine machine;
  sim::RuntimeServices& runtime;
  sim::ImageService& images;
  EFI_HANDLE driverImage;
  std::uint64_t expectedComplaints = 0;

 private:
  static EFI_STATUS EFIAPI GetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32* attributes, UINTN* size,
                                       VOID* data) {
    const EFI_STATUS refused = current_->RefuseRead ? current_->RefuseRead(name) : EFI_SUCCESS;
    return EFI_ERROR(refused) ? refused : current_->getVariable_(name, guid, attributes, size, data);
  }
  static EFI_STATUS EFIAPI SetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size,
                                       const VOID* data) {
    ++current_->Writes;
    const EFI_STATUS refused = current_->RefuseWrite ? current_->RefuseWrite(name) : EFI_SUCCESS;
    return EFI_ERROR(refused) ? refused : current_->setVariable_(name, guid, attributes, size, data);
  }

  static inline DriverMachine* current_ = nullptr;
  decltype(EFI_RUNTIME_SERVICES::GetVariable) getVariable_ = nullptr;
  decltype(EFI_RUNTIME_SERVICES::SetVariable) setVariable_ = nullptr;
  std::deque<Data> paths_;
  std::size_t poolAtStart_ = 0;
  std::size_t logTaken_ = 0;
};

class DriverTest : public ::testing::Test, protected DriverMachine {
 protected:
  EFI_HANDLE image = driverImage;
};

}  // namespace test

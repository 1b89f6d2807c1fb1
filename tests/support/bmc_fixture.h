// A machine with a BMC for tests of the BMC subsystem: ports, clock, variables, protocols and the debug log.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/setup_variable.h"
#include "platform/zephan_mode.h"
#include "sim/bmc/bmc.h"
#include "sim/bmc/boot_flag_words.h"
#include "tests/support/driver_fixture.h"

namespace test {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kAttributes3 = 3;
inline constexpr std::uint32_t kAttributes7 = 7;

// Little-endian option numbers.
inline Bytes Order(std::initializer_list<std::uint16_t> numbers) {
  Bytes bytes;
  for (const std::uint16_t number : numbers) {
    bytes.push_back(static_cast<std::uint8_t>(number & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
  }
  return bytes;
}

class BmcFixture : public testing::Test, protected DriverMachine {
 protected:
  BmcFixture() {
    std::string error;
    bmc_ = sim::Bmc::Create({}, machine.Time(), machine.Counts(), {}, error);
    bmc_->Attach(machine.Ports());
    NextBoot();
  }

  // Ends this boot as a power cycle does: driver state and lists start fresh, variables and the BMC's keep.
  void NextBoot() {
    StartDriver();
    AbandonPool();
    TakeLog();
    store.PowerCycle();
    bmc_->ResetInterface();
  }
  void AddFault(const char* words) {
    std::string error;
    const auto fault = sim::BmcFault::Parse(words, error);
    ASSERT_TRUE(fault) << error;
    sim::BmcFault shifted = *fault;
    shifted.first += bmc().Interface().Exchanges();  // counted from now
    bmc().Interface().AddFault(shifted);
  }
  // Runs a step and tells whether it returned (true) or ended the boot by a warm reset.
  bool Returns(void (*step)()) {
    const sim::BootOutcome outcome = machine.Run([step] { return step(), EFI_SUCCESS; });
    if (outcome.end == sim::BootEnd::Returned) {
      return true;
    }
    EXPECT_EQ(outcome.end, sim::BootEnd::Reset) << outcome.text;
    EXPECT_EQ(outcome.reset, EfiResetWarm);
    EXPECT_EQ(outcome.status, EFI_SUCCESS);
    return false;
  }

  // Without data: deletes it, if it is there.
  void SetVariable(const char16_t* name, const EFI_GUID& guid, std::uint32_t attributes, const Bytes& data) {
    const EFI_STATUS status = store.Set(name, guid, attributes, std::as_bytes(std::span(data)));
    ASSERT_TRUE(status == EFI_SUCCESS || (data.empty() && status == EFI_NOT_FOUND)) << std::hex << status;
  }
  void SetGlobal(const char16_t* name, const Bytes& data) {
    SetVariable(name, gEfiGlobalVariableGuid, kAttributes7, data);
  }
  std::optional<Bytes> Variable(const char16_t* name, const EFI_GUID& guid, std::uint32_t* attributes = nullptr) {
    const sim::Variable* variable = Find(name, guid);
    if (variable == nullptr) {
      return std::nullopt;
    }
    if (attributes != nullptr) {
      *attributes = variable->attributes;
    }
    const auto* begin = reinterpret_cast<const std::uint8_t*>(variable->data.data());
    return Bytes(begin, begin + variable->data.size());
  }
  std::optional<Bytes> Global(const char16_t* name) { return Variable(name, gEfiGlobalVariableGuid); }
  // A Setup variable of zeros but for these bytes.
  void SetSetup(std::initializer_list<std::pair<std::size_t, std::uint8_t>> bytes) {
    Bytes setup(kSetupSize);
    for (const auto& [offset, value] : bytes) {
      setup[offset] = value;
    }
    SetVariable(kSetupName, kSetupGuid, kAttributes7, setup);
  }
  std::uint8_t SetupByte(std::size_t offset) { return Variable(kSetupName, kSetupGuid)->at(offset); }

  void PublishMode(UINT8 mode, UINT8 configFlag) {
    mode_ = {mode, configFlag};
    Publish(VEYRA_ZEPHAN_MODE_GUID, &mode_);
  }
  void PublishIpmi() { Publish(gEfiDxeIpmiTransportProtocolGuid, bmc().Transport().Protocol()); }
  void RemoveProtocols() {
    for (const auto& [handle, guid, interface] : published_) {
      EXPECT_EQ(machine.Handles().Uninstall(handle, &guid, interface), EFI_SUCCESS);
    }
    published_.clear();
  }

  // A well-formed Boot#### image with that description and optional data.
  static Bytes Image(const std::u16string& description, const Bytes& optionalData = {}) {
    const Data image = LoadOption(1, description, sim::DevicePath().File(u"a"), std::as_bytes(std::span(optionalData)));
    const auto* first = reinterpret_cast<const std::uint8_t*>(image.data());
    return {first, first + image.size()};
  }

  std::uint64_t Count(std::string_view name) { return machine.Counts().Of(name); }
  sim::Clock& clock() { return machine.Time(); }
  sim::PortBus& ports() { return machine.Ports(); }
  sim::Counters& counters() { return machine.Counts(); }
  sim::Bmc& bmc() { return *bmc_; }
  sim::FileStore& files() { return bmc().Files(); }
  std::uint64_t NonVolatileWrites() { return store.NonVolatileWrites(); }

 private:
  struct Published {
    EFI_HANDLE handle;
    EFI_GUID guid;
    void* interface;
  };
  void Publish(const EFI_GUID& guid, void* interface) {
    for (const Published& one : published_) {
      if (one.guid == guid) return;
    }
    EFI_HANDLE handle = nullptr;
    EXPECT_EQ(machine.Handles().Install(&handle, &guid, interface), EFI_SUCCESS);
    published_.push_back({handle, guid, interface});
  }

  std::unique_ptr<sim::Bmc> bmc_;
  ZEPHAN_MODE_INFO mode_{};
  std::vector<Published> published_;
};

}  // namespace test

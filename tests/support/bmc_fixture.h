// A machine with a BMC for tests of the BMC subsystem: ports, clock, variables, protocols and the debug log.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bmc/state.h"
#include "bootopt/boot_lists.h"
#include "sim/bmc/bmc.h"
#include "sim/bmc/boot_flag_words.h"
#include "support/variables.h"

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

UINT32 PortIn(UINT16 port, unsigned width);
void PortOut(UINT16 port, UINT32 value, unsigned width);

class BmcFixture : public testing::Test {
 protected:
  BmcFixture();
  ~BmcFixture() override;

  // Ends this boot as a power cycle does: driver state and lists start fresh, variables and the BMC's keep.
  void NextBoot();
  void AddFault(const char* words);
  // Runs a step and tells whether it returned (true) or ended the boot by a warm reset.
  bool Returns(void (*step)());

  // Without data: deletes it, if it is there.
  void SetVariable(const char16_t* name, const EFI_GUID& guid, std::uint32_t attributes, const Bytes& data);
  void SetGlobal(const char16_t* name, const Bytes& data) {
    SetVariable(name, gEfiGlobalVariableGuid, kAttributes7, data);
  }
  std::optional<Bytes> Variable(const char16_t* name, const EFI_GUID& guid, std::uint32_t* attributes = nullptr);
  std::optional<Bytes> Global(const char16_t* name) { return Variable(name, gEfiGlobalVariableGuid); }
  // A Setup variable of zeros but for these bytes.
  void SetSetup(std::initializer_list<std::pair<std::size_t, std::uint8_t>> bytes);
  std::uint8_t SetupByte(std::size_t offset);

  void PublishMode(UINT8 mode, UINT8 configFlag);
  void PublishIpmi();
  void RemoveProtocols();

  // A well-formed Boot#### image with that description and optional data.
  static Bytes Image(const std::u16string& description, const Bytes& optionalData = {});

  std::string Log();
  bool Logged(std::string_view text) { return Log().find(text) != std::string::npos; }
  std::uint64_t Count(std::string_view name);
  sim::Clock& clock();
  sim::PortBus& ports();
  sim::Counters& counters();
  sim::Bmc& bmc();
  sim::FileStore& files() { return bmc().Files(); }
  std::size_t PoolBlocks();
  std::uint64_t NonVolatileWrites();
  std::uint64_t expectedComplaints = 0;  // of the simulator, about the driver

 private:
  friend UINT32 PortIn(UINT16 port, unsigned width);
  friend void PortOut(UINT16 port, UINT32 value, unsigned width);
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace test

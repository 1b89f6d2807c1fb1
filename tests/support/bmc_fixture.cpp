// The firmware services that the BMC subsystem calls, over the simulator's clock, ports, variables and BMC. Anything
// else is null, and misuse of what is there fails the test.
#include "tests/support/bmc_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#include "platform/io_ports.h"
#include "platform/setup_variable.h"
#include "platform/zephan_mode.h"
#include "sim/firmware/variables/variable_store.h"
#include "support/debug_print.h"
#include "support/services.h"

namespace test {
namespace {

struct BootReset {
  EFI_RESET_TYPE type;
};

}  // namespace

struct BmcFixture::Parts {
  static Parts* current;

  sim::Clock clock;
  sim::Counters counters;
  std::unique_ptr<sim::PortBus> ports;
  sim::VariableStore variables;
  std::unique_ptr<sim::Bmc> bmc;
  std::map<void*, UINTN> pool;
  std::map<const EFI_GUID*, void*> protocols;
  ZEPHAN_MODE_INFO mode{};

  EFI_SYSTEM_TABLE system{};
  EFI_BOOT_SERVICES boot{};
  EFI_RUNTIME_SERVICES runtime{};

  // A PM timer for loops that wait on it: the more often it is read in a row, the longer a read takes, up to 100 us, so
  // that minutes of virtual waiting take no minute of the test's. A wait of 1 ms grows by less than 1%.
  std::uint32_t ReadPmTimer() {
    const bool inRow = clock.Now() <= lastTimerRead + sim::kPortAccessTime;
    timerReads = inRow ? timerReads + 1 : 0;
    clock.Advance(std::min<sim::Ticks>(timerReads / 50 * sim::kMicrosecond, 100 * sim::kMicrosecond));
    lastTimerRead = clock.Now();
    return clock.PmTimer();
  }
  sim::Ticks lastTimerRead = 0;
  std::uint64_t timerReads = 0;

  static EFI_STATUS EFIAPI AllocatePool(EFI_MEMORY_TYPE, UINTN size, VOID** buffer) {
    *buffer = std::malloc(size == 0 ? 1 : size);
    std::memset(*buffer, 0xAF, size);
    current->pool[*buffer] = size;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI FreePool(VOID* buffer) {
    if (current->pool.erase(buffer) == 0) {
      ADD_FAILURE() << "a block that is none of the pool's was freed";
      return EFI_INVALID_PARAMETER;
    }
    std::free(buffer);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI LocateProtocol(const EFI_GUID* guid, VOID*, VOID** interface) {
    for (const auto& [key, value] : current->protocols) {
      if (*key == *guid) {
        *interface = value;
        return EFI_SUCCESS;
      }
    }
    return EFI_NOT_FOUND;
  }
  static EFI_STATUS EFIAPI Stall(UINTN microseconds) {
    current->clock.Advance(microseconds * sim::kMicrosecond);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI GetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32* attributes, UINTN* size,
                                       VOID* data) {
    return current->variables.GetVariable(name, guid, attributes, size, data);
  }
  static EFI_STATUS EFIAPI SetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size,
                                       const VOID* data) {
    current->counters.Add("SetVariable");
    return current->variables.SetVariable(name, guid, attributes, size, data);
  }
  static VOID EFIAPI ResetSystem(EFI_RESET_TYPE type, EFI_STATUS status, UINTN size, VOID* data) {
    EXPECT_EQ(status, EFI_SUCCESS);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(data, nullptr);
    throw BootReset{type};
  }
};

BmcFixture::Parts* BmcFixture::Parts::current = nullptr;

BmcFixture::BmcFixture() : parts_(std::make_unique<Parts>()) {
  Parts::current = parts_.get();
  std::string error;
  parts_->bmc = sim::Bmc::Create({}, parts_->clock, parts_->counters, {}, error);
  parts_->boot.AllocatePool = Parts::AllocatePool;
  parts_->boot.FreePool = Parts::FreePool;
  parts_->boot.LocateProtocol = Parts::LocateProtocol;
  parts_->boot.Stall = Parts::Stall;
  parts_->runtime.GetVariable = Parts::GetVariable;
  parts_->runtime.SetVariable = Parts::SetVariable;
  parts_->runtime.ResetSystem = Parts::ResetSystem;
  parts_->system.BootServices = &parts_->boot;
  parts_->system.RuntimeServices = &parts_->runtime;
  NextBoot();
}

BmcFixture::~BmcFixture() {
  EXPECT_EQ(parts_->counters.ComplaintCount(), expectedComplaints)
      << testing::PrintToString(parts_->counters.Complaints());
  for (const auto& [block, size] : parts_->pool) {
    std::free(block);
  }
  bds::StartFresh(bds::gServices);
  Parts::current = nullptr;
}

void BmcFixture::NextBoot() {
  bds::StartFresh(bds::gBmc);
  bds::StartFresh(bds::gBootOptions);
  bds::StartFresh(bds::gDebug);
  for (const auto& [block, size] : parts_->pool) {
    std::free(block);
  }
  parts_->pool.clear();
  parts_->variables.PowerCycle();
  parts_->ports = std::make_unique<sim::PortBus>(parts_->clock, parts_->counters);
  parts_->ports->Claim(sim::PortBus::kPmTimerPort, sim::PortBus::kPmTimerPort + 3,
                       [parts = parts_.get()](std::uint16_t, unsigned) { return parts->ReadPmTimer(); }, {});
  // The BMC goes on; its interface is reset with the server.
  parts_->bmc->ResetInterface();
  parts_->bmc->Attach(*parts_->ports);
  bds::gServices.SystemTable = &parts_->system;
  bds::gServices.BootServices = &parts_->boot;
  bds::gServices.RuntimeServices = &parts_->runtime;
}

bool BmcFixture::Returns(void (*step)()) {
  try {
    step();
    return true;
  } catch (const BootReset& reset) {
    EXPECT_EQ(reset.type, EfiResetWarm);
    return false;
  }
}

void BmcFixture::AddFault(const char* words) {
  std::string error;
  const auto fault = sim::BmcFault::Parse(words, error);
  ASSERT_TRUE(fault) << error;
  sim::BmcFault shifted = *fault;
  shifted.first += bmc().Interface().Exchanges();  // counted from now
  bmc().Interface().AddFault(shifted);
}

void BmcFixture::SetVariable(const char16_t* name, const EFI_GUID& guid, std::uint32_t attributes, const Bytes& data) {
  const EFI_STATUS status = parts_->variables.Set(name, guid, attributes, std::as_bytes(std::span(data)));
  ASSERT_TRUE(status == EFI_SUCCESS || (data.empty() && status == EFI_NOT_FOUND)) << std::hex << status;
}

std::optional<Bytes> BmcFixture::Variable(const char16_t* name, const EFI_GUID& guid, std::uint32_t* attributes) {
  const sim::Variable* variable = parts_->variables.Find(name, guid);
  if (variable == nullptr) {
    return std::nullopt;
  }
  if (attributes != nullptr) {
    *attributes = variable->attributes;
  }
  const auto* begin = reinterpret_cast<const std::uint8_t*>(variable->data.data());
  return Bytes(begin, begin + variable->data.size());
}

void BmcFixture::SetSetup(std::initializer_list<std::pair<std::size_t, std::uint8_t>> bytes) {
  Bytes setup(kSetupSize);
  for (const auto& [offset, value] : bytes) {
    setup[offset] = value;
  }
  SetVariable(kSetupName, kSetupGuid, kAttributes7, setup);
}

std::uint8_t BmcFixture::SetupByte(std::size_t offset) { return Variable(kSetupName, kSetupGuid)->at(offset); }

void BmcFixture::PublishMode(UINT8 mode, UINT8 configFlag) {
  parts_->mode = {mode, configFlag};
  parts_->protocols[&VEYRA_ZEPHAN_MODE_GUID] = &parts_->mode;
}

void BmcFixture::PublishIpmi() {
  parts_->protocols[&gEfiDxeIpmiTransportProtocolGuid] = parts_->bmc->Transport().Protocol();
}

void BmcFixture::RemoveProtocols() { parts_->protocols.clear(); }

Bytes BmcFixture::Image(const std::u16string& description, const Bytes& optionalData) {
  Bytes path{0x04, 0x04, 0x08, 0x00, 'a', 0, 0, 0, 0x7F, 0xFF, 0x04, 0x00};
  Bytes image{1, 0, 0, 0, static_cast<std::uint8_t>(path.size()), 0};
  for (const char16_t c : description + u'\0') {
    image.push_back(static_cast<std::uint8_t>(c & 0xFF));
    image.push_back(static_cast<std::uint8_t>(c >> 8));
  }
  image.insert(image.end(), path.begin(), path.end());
  image.insert(image.end(), optionalData.begin(), optionalData.end());
  return image;
}

std::string BmcFixture::Log() { return parts_->ports->Log().Text(); }
std::uint64_t BmcFixture::NonVolatileWrites() { return parts_->variables.NonVolatileWrites(); }
std::uint64_t BmcFixture::Count(std::string_view name) { return parts_->counters.Of(name); }
sim::Clock& BmcFixture::clock() { return parts_->clock; }
sim::PortBus& BmcFixture::ports() { return *parts_->ports; }
sim::Counters& BmcFixture::counters() { return parts_->counters; }
sim::Bmc& BmcFixture::bmc() { return *parts_->bmc; }
std::size_t BmcFixture::PoolBlocks() { return parts_->pool.size(); }

UINT32 PortIn(UINT16 port, unsigned width) { return BmcFixture::Parts::current->ports->In(port, width); }
void PortOut(UINT16 port, UINT32 value, unsigned width) { BmcFixture::Parts::current->ports->Out(port, value, width); }

}  // namespace test

UINT8 IoRead8(UINT16 Port) { return static_cast<UINT8>(test::PortIn(Port, 1)); }
UINT32 IoRead32(UINT16 Port) { return test::PortIn(Port, 4); }
void IoWrite8(UINT16 Port, UINT8 Value) { test::PortOut(Port, Value, 1); }
void IoWriteString8(UINT16 Port, const UINT8* Data, UINTN Count) {
  for (UINTN i = 0; i < Count; ++i) {
    test::PortOut(Port, Data[i], 1);
  }
}
UINT64 ReadTimeStampCounter() { return 0; }

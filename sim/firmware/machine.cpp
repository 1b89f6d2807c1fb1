#include "sim/firmware/machine.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "platform/loaded_image.h"
#include "sim/firmware/crash_catcher.h"

namespace sim {
namespace {

Machine* gMachine = nullptr;

// Half an hour of virtual time: no boot waits that long unless it loops.
constexpr Ticks kTimeLimit = 1800 * kSecond;

template <typename Table>
void Seal(Table& table, UINT64 signature) {
  table.Hdr = {signature, EFI_2_70_SYSTEM_TABLE_REVISION, sizeof(Table), 0, 0};
  table.Hdr.CRC32 = Crc32(std::as_bytes(std::span(&table, 1)));
}

}  // namespace

std::uint32_t Crc32(std::span<const std::byte> bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::byte byte : bytes) {
    crc ^= std::to_integer<std::uint32_t>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
    }
  }
  return ~crc;
}

const char* BootEndName(BootEnd end) {
  switch (end) {
    case BootEnd::Returned:
      return "returned";
    case BootEnd::HandedOver:
      return "handed over";
    case BootEnd::LegacyBoot:
      return "legacy boot";
    case BootEnd::Reset:
      return "reset";
    case BootEnd::PowerLost:
      return "power lost";
    case BootEnd::ExitedBootServices:
      return "exited boot services";
    case BootEnd::WaitsForever:
      return "waits forever";
    case BootEnd::TimeLimit:
      return "time limit";
    case BootEnd::Crashed:
      return "crashed";
  }
  return "unknown";
}

Machine::Machine() : pool_(counters_), handles_(*this), events_(*this, clock_, counters_), ports_(clock_, counters_) {
  if (gMachine != nullptr) {
    throw std::logic_error("there is one simulated machine at a time");
  }
  gMachine = this;
  clock_.SetLimit(kTimeLimit, [this] { EndBoot(BootEnd::TimeLimit, "more than 30 virtual minutes passed"); });
  FillTables();
}

Machine::~Machine() {
  while (!attached_.empty()) {
    attached_.pop_back();
  }
  gMachine = nullptr;
}

Machine& Machine::Current() {
  if (gMachine == nullptr) {
    throw std::logic_error("there is no simulated machine");
  }
  return *gMachine;
}

bool Machine::Exists() { return gMachine != nullptr; }

void Machine::FillTables() {
  FillBootServices(bootServices_);
  static CHAR16 vendor[] = u"Simulated server";
  systemTable_.FirmwareVendor = vendor;
  systemTable_.FirmwareRevision = 0x00010000;
  systemTable_.BootServices = &bootServices_;
  systemTable_.RuntimeServices = &runtimeServices_;
  SealTables();
}

void Machine::SealTables() {
  Seal(bootServices_, EFI_BOOT_SERVICES_SIGNATURE);
  Seal(runtimeServices_, EFI_RUNTIME_SERVICES_SIGNATURE);
  systemTable_.NumberOfTableEntries = configuration_.size();
  systemTable_.ConfigurationTable = configuration_.data();
  Seal(systemTable_, EFI_SYSTEM_TABLE_SIGNATURE);
}

EFI_STATUS Machine::InstallConfigurationTable(const EFI_GUID& guid, void* table) {
  const EFI_GUID copy = guid;
  const auto known = std::find_if(configuration_.begin(), configuration_.end(),
                                  [&copy](const EFI_CONFIGURATION_TABLE& entry) { return entry.VendorGuid == copy; });
  if (table == nullptr) {
    if (known == configuration_.end()) {
      return EFI_NOT_FOUND;
    }
    configuration_.erase(known);
  } else if (known != configuration_.end()) {
    known->VendorTable = table;
  } else {
    configuration_.push_back({copy, table});
  }
  SealTables();
  events_.SignalGroup(copy);
  return EFI_SUCCESS;
}

void* Machine::FindConfigurationTable(const EFI_GUID& guid) const {
  for (const EFI_CONFIGURATION_TABLE& entry : configuration_) {
    if (entry.VendorGuid == guid) {
      return entry.VendorTable;
    }
  }
  return nullptr;
}

void Machine::SetDriver(EFI_HANDLE owner, std::vector<MemoryExtent> data) {
  driver_ = owner;
  driverData_ = std::move(data);
}

std::vector<MemoryExtent> Machine::Roots(MemoryExtent stack) const {
  std::vector<MemoryExtent> roots = driverData_;
  roots.insert(roots.end(), roots_.begin(), roots_.end());
  roots.push_back(stack);
  roots.push_back(std::as_bytes(std::span(&systemTable_, 1)));
  roots.push_back(std::as_bytes(std::span(configuration_)));
  return roots;
}

__attribute__((noinline)) BootOutcome Machine::Run(const std::function<EFI_STATUS()>& body) {
  if (running_) {
    throw std::logic_error("a boot is running already");
  }
  outcome_ = {};
  owners_.clear();
  stackTop_ = static_cast<const std::byte*>(__builtin_frame_address(0));
  const CrashCatcher catcher;
  running_ = true;
  if (setjmp(leave_) == 0) {
    const EFI_STATUS status = body();
    outcome_.end = BootEnd::Returned;
    outcome_.status = status;
    outcome_.leaks = driver_ == nullptr ? std::vector<PoolAllocator::Leak>{} : FindLeaks({});
    outcome_.time = clock_.Now();
  }
  running_ = false;
  owners_.clear();
  return std::move(outcome_);
}

std::vector<PoolAllocator::Leak> Machine::FindLeaks(MemoryExtent stack) {
  std::vector<MemoryExtent> roots = Roots(stack);
  std::vector<const void*> contexts = events_.Contexts();
  for (const EFI_HANDLE handle : handles_.All()) {
    for (const HandleDatabase::Interface& interface : *handles_.InterfacesOf(handle)) {
      contexts.push_back(interface.pointer);
      // An image's options lie outside the pool block graph: the loaded image record belongs to the firmware.
      if (interface.guid == ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>) {
        contexts.push_back(static_cast<const EFI_LOADED_IMAGE_PROTOCOL*>(interface.pointer)->LoadOptions);
      }
    }
  }
  roots.push_back(std::as_bytes(std::span(contexts)));
  return pool_.Unreachable(driver_, roots);
}

void Machine::EndBoot(BootEnd end, std::string text) {
  BootOutcome outcome;
  outcome.end = end;
  outcome.text = std::move(text);
  EndBoot(std::move(outcome));
}

__attribute__((noinline)) void Machine::EndBoot(BootOutcome outcome) {
  if (!running_) {
    throw std::runtime_error(
        fmt::format("the boot ended outside a boot: {}, {}", BootEndName(outcome.end), outcome.text));
  }
  outcome_ = std::move(outcome);
  outcome_.time = clock_.Now();
  jmp_buf registers;  // callee-saved registers may hold the only pointer to a block
  static_cast<void>(setjmp(registers));
  const auto* bottom = reinterpret_cast<const std::byte*>(&registers);
  if (driver_ != nullptr && bottom < stackTop_) {
    outcome_.leaks = FindLeaks({bottom, static_cast<std::size_t>(stackTop_ - bottom)});
  }
  longjmp(leave_, 1);
}

std::optional<EFI_STATUS> Machine::OnCall(const char* service) {
  counters_.Add(service);
  return faults_.OnCall(service);
}

void Machine::OnWrite(std::string_view kind) {
  if (faults_.OnWrite(kind)) {
    EndBoot(BootEnd::PowerLost, fmt::format("the power was lost after write {} to {}", faults_.WritesOf(kind), kind));
  }
}

}  // namespace sim

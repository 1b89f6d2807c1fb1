#include "sim/firmware/machine.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "platform/loaded_image.h"
#include "sim/firmware/crash_catcher.h"
#include "sim/firmware/priority_limits.h"

// There only under AddressSanitizer.
extern "C" __attribute__((weak)) void __asan_unpoison_memory_region(const volatile void* address, std::size_t size);

namespace sim {
namespace {

Machine* gMachine = nullptr;

// Nobody returns to the frames of an abandoned stack, so nobody takes their red zones away.
void Abandon(const std::vector<MemoryExtent>& stacks) {
  for (const MemoryExtent stack : stacks) {
    if (__asan_unpoison_memory_region != nullptr) {
      __asan_unpoison_memory_region(stack.data(), stack.size());
    }
  }
}

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
  FillRuntimeServices(runtimeServices_);
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

void Machine::SetLimitsOfBoot() {
  clock_.SetLimit(timeLimit_, [this] {
    EndBoot(BootEnd::TimeLimit, fmt::format("more than {} virtual minutes passed", timeLimit_ / (60 * kSecond)));
  });
  clock_.SetStepLimit(stepLimit_, [this] {
    EndBoot(BootEnd::TimeLimit, fmt::format("more than {} service calls and still no end", stepLimit_));
  });
}

std::vector<MemoryExtent> Machine::Roots(const std::vector<MemoryExtent>& stacks) const {
  std::vector<MemoryExtent> roots = driverData_;
  roots.insert(roots.end(), roots_.begin(), roots_.end());
  roots.insert(roots.end(), stacks.begin(), stacks.end());
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
  CrashCatcher catcher;
  catcher_ = &catcher;
  SetLimitsOfBoot();
  running_ = true;
  if (setjmp(leave_) == 0) {
    const EFI_STATUS status = body();
    outcome_.end = BootEnd::Returned;
    outcome_.status = status;
    outcome_.leaks = driver_ == nullptr ? std::vector<PoolAllocator::Leak>{} : FindLeaks({});
    outcome_.time = clock_.Now();
  }
  running_ = false;
  catcher_ = nullptr;
  clock_.SetLimit(0, nullptr);
  clock_.SetStepLimit(0, nullptr);
  owners_.clear();
  held_.Clear();
  return std::move(outcome_);
}

bool Machine::LetsImagesReachTheHost() const { return catcher_ != nullptr && !catcher_->RefusesSystemCalls(); }

std::vector<MemoryExtent> Machine::StacksDownTo(const std::byte* bottom) const {
  std::vector<MemoryExtent> stacks;
  if (catcher_->OnHandlerStack(bottom)) {
    stacks.push_back({bottom, catcher_->HandlerStackEnd()});
    bottom = catcher_->InterruptedStack();
  }
  if (bottom < stackTop_) {
    stacks.push_back({bottom, stackTop_});
  }
  return stacks;
}

std::vector<PoolAllocator::Leak> Machine::FindLeaks(const std::vector<MemoryExtent>& stacks) {
  std::vector<MemoryExtent> roots = Roots(stacks);
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

// A routine of its own, so that its vectors are gone before the jump and all registers of interest lie above its frame.
__attribute__((noinline)) void Machine::LeaveStack() {
  const auto stacks = StacksDownTo(static_cast<const std::byte*>(__builtin_frame_address(0)));
  if (driver_ != nullptr) {
    outcome_.leaks = FindLeaks(stacks);
  }
  Abandon(stacks);
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
  __builtin_unwind_init();  // registers that may hold the only pointer to a block go to the stack
  LeaveStack();
  longjmp(leave_, 1);
}

std::optional<EFI_STATUS> Machine::OnCall(const char* service) {
  counters_.Add(service);
  clock_.Step();
  const EFI_TPL tpl = events_.CurrentTpl();
  if (tpl > TPL_APPLICATION && tpl > HighestPriority(service)) {
    counters_.Complain(fmt::format("{} at task priority {}", service, tpl));
  }
  return faults_.OnCall(service);
}

void Machine::OnKeyPoll() {
  clock_.PollKeys();
  if (clock_.KeyRow() < kKeyPatience) {
    return;
  }
  if (running_ && !Idle()) {
    EndBoot(BootEnd::WaitsForever, "nothing but keys is asked for, and none can come any more");
  }
  clock_.EndRows();
}

void Machine::OnWrite(std::string_view kind) {
  if (faults_.OnWrite(kind)) {
    EndBoot(BootEnd::PowerLost, fmt::format("the power was lost after write {} to {}", faults_.WritesOf(kind), kind));
  }
}

}  // namespace sim

// The machine of one boot: clock, counters, faults, pool, pages, handles, events, ports and legacy memory, and the
// system table that leads software to them. There is one machine at a time; boot services find it as Current().
//   Machine machine;
//   machine.Attach<Variables>(...);                       // subsystems of other directories
//   BootOutcome outcome = machine.Run([&] { return Entry(handle, machine.SystemTable()); });
#pragma once

#include <csetjmp>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include "platform/legacy_bios.h"
#include "platform/system_table.h"
#include "sim/firmware/across_calls.h"
#include "sim/firmware/clock.h"
#include "sim/firmware/counters.h"
#include "sim/firmware/device_path_builder.h"
#include "sim/firmware/event_manager.h"
#include "sim/firmware/fault_script.h"
#include "sim/firmware/handle_database.h"
#include "sim/firmware/legacy_memory.h"
#include "sim/firmware/low_arena.h"
#include "sim/firmware/page_allocator.h"
#include "sim/firmware/pool.h"
#include "sim/firmware/port_bus.h"

namespace sim {

// How a boot ended.
enum class BootEnd {
  Returned,            // the body came back
  HandedOver,          // an operating system's loader was started; the record says which
  LegacyBoot,          // the CSM boots a legacy device
  Reset,               // ResetSystem
  PowerLost,           // scripted
  ExitedBootServices,  // an image that ran for real took the machine over
  WaitsForever,        // nothing could end a wait any more
  TimeLimit,           // more virtual time, or more service calls, than a boot may take
  Crashed,             // a fault of the processor in the software under test
};
const char* BootEndName(BootEnd end);

// What an operating system got when it took the machine over.
struct SystemTakenOver {
  std::string commandLine;              // UTF-8
  std::optional<std::uint64_t> initrd;  // bytes; nothing where the kernel does not tell
  std::size_t memoryMapEntries = 0;
  std::size_t memoryMapSize = 0;  // bytes
};

// What is known of the end; members that do not belong to it keep their defaults.
struct BootOutcome {
  BootEnd end = BootEnd::Returned;
  EFI_STATUS status = EFI_SUCCESS;         // of the body that returned, or of the reset
  std::string text;                        // for a human
  EFI_HANDLE image = nullptr;              // HandedOver: the image's handle
  DevicePath path;                         // HandedOver, LegacyBoot: what was booted
  std::vector<std::byte> loadOptions;      // HandedOver, ExitedBootServices
  SystemTakenOver system;                  // ExitedBootServices
  EFI_RESET_TYPE reset = EfiResetCold;     // Reset
  BBS_TABLE bbsEntry{};                    // LegacyBoot: the entry of priority 0
  int bbsIndex = -1;                       // its index
  std::vector<PoolAllocator::Leak> leaks;  // the driver's blocks that nobody holds
  Ticks time = 0;                          // virtual, since power-on
};

class CrashCatcher;

class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // The machine that exists now; boot-service entry points are plain functions and find it here.
  static Machine& Current();
  static bool Exists();

  Clock& Time() { return clock_; }
  Counters& Counts() { return counters_; }
  FaultScript& Faults() { return faults_; }
  LowArena& Arena() { return arena_; }
  PoolAllocator& Pool() { return pool_; }
  PageAllocator& Pages() { return pages_; }
  HandleDatabase& Handles() { return handles_; }
  EventManager& Events() { return events_; }
  PortBus& Ports() { return ports_; }
  DebugLog& Log() { return ports_.Log(); }
  LegacyMemory& Legacy() { return legacy_; }

  EFI_SYSTEM_TABLE* SystemTable() { return &systemTable_; }
  EFI_BOOT_SERVICES* BootServices() { return &bootServices_; }
  EFI_RUNTIME_SERVICES* RuntimeServices() { return &runtimeServices_; }
  // Computes the CRCs again after a table changed (UEFI 2.10, 4.2).
  void SealTables();
  // Adds, replaces or (table null) removes a configuration table and signals the event group of its GUID.
  EFI_STATUS InstallConfigurationTable(const EFI_GUID& guid, void* table);
  void* FindConfigurationTable(const EFI_GUID& guid) const;

  // A subsystem of another directory, made with this machine as first argument and destroyed with it, the last one
  // first. One of each type.
  template <typename Type, typename... Args>
  Type& Attach(Args&&... args) {
    auto made = std::make_shared<Type>(*this, std::forward<Args>(args)...);
    Type& reference = *made;
    attached_.emplace_back(std::move(made));
    byType_[std::type_index(typeid(Type))] = &reference;
    return reference;
  }
  // Null when none of the type was attached.
  template <typename Type>
  Type* Get() const {
    const auto found = byType_.find(std::type_index(typeid(Type)));
    return found == byType_.end() ? nullptr : static_cast<Type*>(found->second);
  }

  // Whose code runs: pool blocks and events belong to it. Null is the firmware itself.
  EFI_HANDLE CurrentOwner() const { return owners_.empty() ? nullptr : owners_.back(); }
  void PushOwner(EFI_HANDLE owner) { owners_.push_back(owner); }
  void PopOwner() { owners_.pop_back(); }
  // The driver itself runs, not what it called.
  bool InDriver() const { return CurrentOwner() == driver_; }

  // An image that does not say that it can live with protected memory (NX_COMPAT): pages that it allocates are
  // executable. Handles are never used twice, so nobody inherits that.
  void LetRunFromData(EFI_HANDLE owner) { runsFromData_.insert(owner); }
  bool OwnerRunsFromData() const { return runsFromData_.contains(CurrentOwner()); }

  // Calls of the driver that have an effect beyond it, in a line each: handles by their address, paths in hexadecimal.
  void SetTrace(std::function<void(const std::string& call)> trace) { trace_ = std::move(trace); }
  bool Tracing() const { return trace_ != nullptr && running_ && InDriver(); }
  void Trace(const std::string& call) const { trace_(call); }
  // The driver's accesses to network controllers' registers, in a line each.
  void SetPciTrace(std::function<void(const std::string& access)> trace) { pciTrace_ = std::move(trace); }
  bool TracingPci() const { return pciTrace_ != nullptr && InDriver(); }
  void TracePci(const std::string& access) const { pciTrace_(access); }

  // The image whose blocks the outcome's leaks are looked for, and the data sections that hold its variables.
  void SetDriver(EFI_HANDLE owner, std::vector<MemoryExtent> data);
  // Further bytes that hold pointers (a loaded image's options, an interface's private data).
  void AddRoot(MemoryExtent extent) { roots_.push_back(extent); }

  // Runs the body until it returns or the boot ends. Not nested.
  BootOutcome Run(const std::function<EFI_STATUS()>& body);
  // Ends the running boot at once; what lies on its stack is abandoned. Outside Run it throws std::runtime_error.
  [[noreturn]] void EndBoot(BootOutcome outcome);
  [[noreturn]] void EndBoot(BootEnd end, std::string text = {});
  bool Running() const { return running_; }
  // While a boot runs: that this kernel would let an image make system calls.
  bool LetsImagesReachTheHost() const;

  // Half an hour of virtual time and 50 million steps (service calls, serial port accesses, timers): no boot needs
  // that much unless it loops.
  static constexpr Ticks kTimeLimit = 1800 * kSecond;
  static constexpr std::uint64_t kStepLimit = 50'000'000;
  // Other limits for the boots to come, such as a test's.
  void SetLimits(Ticks time, std::uint64_t steps) { timeLimit_ = time, stepLimit_ = steps; }

  // Asked by WaitForEvent when no timer is armed any more, before the boot ends as waiting for ever: true says that
  // something happened outside (a key arrived), and that the events are worth another look. It may block.
  void SetIdle(std::function<bool()> idle) { idle_ = std::move(idle); }
  bool Idle() { return idle_ && idle_(); }
  // A key was asked for and there was none. Who does nothing else for kKeyPatience waits for a key: it is asked for
  // outside, and where none can come the boot ends as waiting for ever.
  void OnKeyPoll();
  static constexpr Ticks kKeyPatience = 300 * kSecond;

  // Values of simulator code that stay in use while the driver's code runs (see AcrossCalls).
  HeldValues& Held() { return held_; }

  // Counts a service's call, complains when the task priority is too high for it (UEFI 2.10, table 7.3), and gives the
  // status that the fault script wants it to answer, if any.
  std::optional<EFI_STATUS> OnCall(const char* service);
  // A write of that kind took effect: counts it, and ends the boot where the script loses the power.
  void OnWrite(std::string_view kind);

  // UEFI 2.10, 7.3.12 and 7.3.13. driverImages ends with null; each may be null. A driver to disconnect is named by its
  // binding's handle or by its image's.
  EFI_STATUS ConnectController(EFI_HANDLE controller, EFI_HANDLE* driverImages, EFI_DEVICE_PATH_PROTOCOL* remaining,
                               bool recursive);
  EFI_STATUS DisconnectController(EFI_HANDLE controller, EFI_HANDLE driver, EFI_HANDLE child);

  // Installs an interface by its type; the handle is made when it is null.
  template <typename Type>
  EFI_STATUS Install(EFI_HANDLE& handle, Type* interface) {
    return handles_.Install(&handle, &ProtocolGuid<Type>, interface);
  }

 private:
  std::vector<MemoryExtent> Roots(const std::vector<MemoryExtent>& stacks) const;
  std::vector<PoolAllocator::Leak> FindLeaks(const std::vector<MemoryExtent>& stacks);
  // The bytes in use of the stack, and of the fault handler's when it runs on one of its own.
  std::vector<MemoryExtent> StacksDownTo(const std::byte* bottom) const;
  void LeaveStack();
  void SetLimitsOfBoot();
  void FillTables();

  Counters counters_;
  Clock clock_;
  FaultScript faults_;
  LowArena arena_;
  LegacyMemory legacy_;
  PoolAllocator pool_;
  PageAllocator pages_;
  HandleDatabase handles_;
  EventManager events_;
  PortBus ports_;

  EFI_BOOT_SERVICES bootServices_{};
  EFI_RUNTIME_SERVICES runtimeServices_{};
  EFI_SYSTEM_TABLE systemTable_{};
  std::vector<EFI_CONFIGURATION_TABLE> configuration_;

  std::vector<std::shared_ptr<void>> attached_;
  std::unordered_map<std::type_index, void*> byType_;
  std::vector<EFI_HANDLE> owners_;
  std::set<EFI_HANDLE> runsFromData_;

  EFI_HANDLE driver_ = nullptr;
  std::vector<MemoryExtent> driverData_;
  std::vector<MemoryExtent> roots_;

  std::function<void(const std::string& call)> trace_;
  std::function<void(const std::string& access)> pciTrace_;
  Ticks timeLimit_ = kTimeLimit;
  std::uint64_t stepLimit_ = kStepLimit;
  std::function<bool()> idle_;
  HeldValues held_;

  bool running_ = false;
  jmp_buf leave_;
  CrashCatcher* catcher_ = nullptr;
  const std::byte* stackTop_ = nullptr;
  BootOutcome outcome_;
};

// The CRC-32 of UEFI tables (ISO 3309).
std::uint32_t Crc32(std::span<const std::byte> bytes);

// The services of UEFI that the machine itself answers, for its tables (boot_services.cpp). Every other member answers
// EFI_UNSUPPORTED, until a subsystem provides it.
void FillBootServices(EFI_BOOT_SERVICES& table);
void FillRuntimeServices(EFI_RUNTIME_SERVICES& table);

}  // namespace sim

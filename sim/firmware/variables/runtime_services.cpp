// The table's functions: count the call, let the fault script have its say, then do the work.
#include "sim/firmware/variables/runtime_services.h"

#include <fmt/format.h>

#include <ctime>

#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

constexpr INT16 kUnspecifiedTimeZone = 0x07FF;
constexpr std::size_t kBootOptionName = 8;  // characters

const char* ResetName(EFI_RESET_TYPE type) {
  static constexpr const char* kNames[] = {"cold", "warm", "shutdown", "platform specific"};
  return type <= EfiResetPlatformSpecific ? kNames[type] : "unknown";
}

}  // namespace

struct RuntimeServices::Calls {
  static RuntimeServices& Self() { return *RuntimeServices::Current(); }
  template <typename Work>
  static EFI_STATUS Serve(const char* name, Work work) {
    const auto scripted = Machine::Current().OnCall(name);
    return scripted ? *scripted : work(Self());
  }

  static EFI_STATUS EFIAPI GetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32* attributes, UINTN* size,
                                       VOID* data) {
    return Serve("GetVariable", [&](RuntimeServices& self) {
      const EFI_STATUS status = self.store_.GetVariable(name, guid, attributes, size, data);
      if (!EFI_ERROR(status)) {
        self.lastRead_ = *guid == gEfiGlobalVariableGuid ? name : u"";
        if (self.lastRead_.size() == kBootOptionName && self.lastRead_.starts_with(u"Boot")) {
          self.lastBootOption_ = self.lastRead_;
        }
      }
      return status;
    });
  }
  static EFI_STATUS EFIAPI GetNextVariableName(UINTN* size, CHAR16* name, EFI_GUID* guid) {
    return Serve("GetNextVariableName",
                 [&](RuntimeServices& self) { return self.store_.GetNextVariableName(size, name, guid); });
  }
  // The power may go right after the write; nothing on the stack owns memory then.
  static EFI_STATUS EFIAPI SetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size,
                                       const VOID* data) {
    if (Machine::Current().Tracing() && name != nullptr && guid != nullptr) {
      Machine::Current().Trace(
          fmt::format("set {} attributes {:x}, {} bytes", VariableFileName(name, *guid), attributes, size));
    }
    if (const auto scripted = Machine::Current().OnCall("SetVariable")) {
      if (EFI_ERROR(*scripted)) {
        Self().store_.NoteRefused(name, guid, attributes, size, *scripted);
      }
      return *scripted;
    }
    RuntimeServices& self = Self();
    const std::uint64_t before = self.store_.NonVolatileWrites();
    const EFI_STATUS status = self.store_.SetVariable(name, guid, attributes, size, data);
    if (self.store_.NonVolatileWrites() != before) {
      self.machine_.OnWrite("nvram");
    }
    return status;
  }
  static EFI_STATUS EFIAPI QueryVariableInfo(UINT32 attributes, UINT64* maximum, UINT64* remaining, UINT64* largest) {
    return Serve("QueryVariableInfo", [&](RuntimeServices& self) {
      return self.store_.QueryVariableInfo(attributes, maximum, remaining, largest);
    });
  }

  static EFI_STATUS EFIAPI GetTime(EFI_TIME* time, EFI_TIME_CAPABILITIES* capabilities) {
    return Serve("GetTime", [&](RuntimeServices& self) -> EFI_STATUS {
      if (time == nullptr) {
        return EFI_INVALID_PARAMETER;
      }
      *time = self.Now();
      if (capabilities != nullptr) {
        *capabilities = {1, 50'000'000, FALSE};
      }
      return EFI_SUCCESS;
    });
  }
  static EFI_STATUS EFIAPI SetTime(EFI_TIME*) {
    return Serve("SetTime", [](RuntimeServices&) { return EFI_UNSUPPORTED; });
  }
  static EFI_STATUS EFIAPI GetWakeupTime(BOOLEAN*, BOOLEAN*, EFI_TIME*) { return EFI_UNSUPPORTED; }
  static EFI_STATUS EFIAPI SetWakeupTime(BOOLEAN, EFI_TIME*) { return EFI_UNSUPPORTED; }
  // Both belong to an operating system, and a boot ends before one runs.
  static EFI_STATUS EFIAPI SetVirtualAddressMap(UINTN, UINTN, UINT32, EFI_MEMORY_DESCRIPTOR*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI ConvertPointer(UINTN, VOID**) { return EFI_UNSUPPORTED; }
  static EFI_STATUS EFIAPI GetNextHighMonotonicCount(UINT32* high) {
    if (high == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *high = 1;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI UpdateCapsule(EFI_CAPSULE_HEADER**, UINTN, EFI_PHYSICAL_ADDRESS) { return EFI_UNSUPPORTED; }
  static EFI_STATUS EFIAPI QueryCapsuleCapabilities(EFI_CAPSULE_HEADER**, UINTN, UINT64*, EFI_RESET_TYPE*) {
    return EFI_UNSUPPORTED;
  }

  static VOID EFIAPI ResetSystem(EFI_RESET_TYPE type, EFI_STATUS status, UINTN, VOID*) {
    Machine& machine = Machine::Current();
    machine.Counts().Add("ResetSystem");
    BootOutcome outcome;
    outcome.end = BootEnd::Reset;
    outcome.reset = type;
    outcome.status = status;
    outcome.text = std::string(ResetName(type)) + " reset";
    machine.EndBoot(std::move(outcome));
  }
};

EFI_TIME RuntimeServices::Now() const {
  std::tm start{};
  start.tm_year = start_.Year - 1900;
  start.tm_mon = start_.Month - 1;
  start.tm_mday = start_.Day;
  start.tm_hour = start_.Hour;
  start.tm_min = start_.Minute;
  start.tm_sec = start_.Second;
  const Ticks passed = machine_.Time().Now();
  const std::time_t now = timegm(&start) + static_cast<std::time_t>(passed / kSecond);
  std::tm at{};
  gmtime_r(&now, &at);
  EFI_TIME time{};
  time.Year = static_cast<UINT16>(at.tm_year + 1900);
  time.Month = static_cast<UINT8>(at.tm_mon + 1);
  time.Day = static_cast<UINT8>(at.tm_mday);
  time.Hour = static_cast<UINT8>(at.tm_hour);
  time.Minute = static_cast<UINT8>(at.tm_min);
  time.Second = static_cast<UINT8>(at.tm_sec);
  time.Nanosecond = static_cast<UINT32>((passed % kSecond) * 100);
  time.TimeZone = kUnspecifiedTimeZone;
  return time;
}

RuntimeServices::RuntimeServices(Machine& machine, VariableStore& store) : machine_(machine), store_(store) {
  EFI_RUNTIME_SERVICES* table = machine.RuntimeServices();
  table->GetTime = Calls::GetTime;
  table->SetTime = Calls::SetTime;
  table->GetWakeupTime = Calls::GetWakeupTime;
  table->SetWakeupTime = Calls::SetWakeupTime;
  table->SetVirtualAddressMap = Calls::SetVirtualAddressMap;
  table->ConvertPointer = Calls::ConvertPointer;
  table->GetVariable = Calls::GetVariable;
  table->GetNextVariableName = Calls::GetNextVariableName;
  table->SetVariable = Calls::SetVariable;
  table->GetNextHighMonotonicCount = Calls::GetNextHighMonotonicCount;
  table->ResetSystem = Calls::ResetSystem;
  table->UpdateCapsule = Calls::UpdateCapsule;
  table->QueryCapsuleCapabilities = Calls::QueryCapsuleCapabilities;
  table->QueryVariableInfo = Calls::QueryVariableInfo;
  machine.SealTables();
}

}  // namespace sim

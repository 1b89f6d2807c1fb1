// The boot services that the machine itself answers, as plain functions of the firmware's calling convention. Every
// call is counted under its name and may be answered by the fault script instead.
#include <fmt/format.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "sim/firmware/guid_text.h"
#include "sim/firmware/machine.h"

namespace sim {
namespace {

Machine& M() { return Machine::Current(); }

// Serves a call unless the fault script answers it.
template <typename Serve>
EFI_STATUS Call(const char* service, Serve serve) {
  const auto scripted = M().OnCall(service);
  return scripted ? *scripted : serve();
}

// Tells the machine's trace of a call of the driver.
template <typename... Args>
void Trace(fmt::format_string<Args...> format, Args&&... args) {
  if (M().Tracing()) {
    M().Trace(fmt::format(format, std::forward<Args>(args)...));
  }
}
std::string Named(const EFI_GUID* guid) { return guid == nullptr ? "no GUID" : GuidText(*guid); }
std::string Bytes(const EFI_DEVICE_PATH_PROTOCOL* path) {
  if (path == nullptr) {
    return "";
  }
  const std::size_t length = path->Length[0] + 256U * path->Length[1];
  return fmt::format(", first below it {:02x}", fmt::join(std::span(reinterpret_cast<const UINT8*>(path), length), ""));
}

// For services without a status, which the script cannot answer.
void CountOnly(const char* service) {
  M().Counts().Add(service);
  M().Time().Step();
}

EFI_TPL EFIAPI RaiseTPL(EFI_TPL tpl) {
  CountOnly("RaiseTPL");
  return M().Events().Raise(tpl);
}
VOID EFIAPI RestoreTPL(EFI_TPL tpl) {
  CountOnly("RestoreTPL");
  M().Events().Restore(tpl);
}

EFI_STATUS EFIAPI AllocatePages(EFI_ALLOCATE_TYPE type, EFI_MEMORY_TYPE memoryType, UINTN pages,
                                EFI_PHYSICAL_ADDRESS* memory) {
  return Call("AllocatePages", [&] { return M().Pages().Allocate(type, memoryType, pages, memory); });
}
EFI_STATUS EFIAPI FreePages(EFI_PHYSICAL_ADDRESS memory, UINTN pages) {
  return Call("FreePages", [&] { return M().Pages().Free(memory, pages); });
}

EFI_STATUS EFIAPI GetMemoryMap(UINTN* size, EFI_MEMORY_DESCRIPTOR* map, UINTN* key, UINTN* descriptorSize,
                               UINT32* version) {
  return Call("GetMemoryMap", [&]() -> EFI_STATUS {
    if (size == nullptr || descriptorSize == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const auto described = M().Pages().Map();
    const UINTN needed = described.size() * sizeof(EFI_MEMORY_DESCRIPTOR);
    const UINTN room = *size;
    *size = needed;
    *descriptorSize = sizeof(EFI_MEMORY_DESCRIPTOR);
    if (version != nullptr) {
      *version = 1;
    }
    if (room < needed) {
      return EFI_BUFFER_TOO_SMALL;
    }
    if (map == nullptr || key == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    std::memcpy(map, described.data(), needed);
    *key = M().Pages().MapKey();
    return EFI_SUCCESS;
  });
}

EFI_STATUS EFIAPI AllocatePool(EFI_MEMORY_TYPE type, UINTN size, VOID** buffer) {
  return Call("AllocatePool", [&]() -> EFI_STATUS {
    const bool knownType = type < EfiMaxMemoryType || type >= 0x70000000;
    if (buffer == nullptr || !knownType || type == EfiConventionalMemory) {
      return EFI_INVALID_PARAMETER;
    }
    *buffer = M().Pool().Allocate(type, size, M().CurrentOwner());
    return *buffer == nullptr ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
  });
}
EFI_STATUS EFIAPI FreePool(VOID* buffer) {
  return Call("FreePool", [&] { return M().Pool().Free(buffer); });
}

EFI_STATUS EFIAPI CreateEvent(UINT32 type, EFI_TPL tpl, EFI_EVENT_NOTIFY notify, VOID* context, EFI_EVENT* event) {
  Trace("create event of type {:x} at {}", type, tpl);
  return Call("CreateEvent", [&] { return M().Events().Create(type, tpl, notify, context, nullptr, event); });
}
EFI_STATUS EFIAPI CreateEventEx(UINT32 type, EFI_TPL tpl, EFI_EVENT_NOTIFY notify, const VOID* context,
                                const EFI_GUID* group, EFI_EVENT* event) {
  Trace("create event of type {:x} at {} in group {}", type, tpl, Named(group));
  return Call("CreateEventEx",
              [&] { return M().Events().Create(type, tpl, notify, const_cast<VOID*>(context), group, event); });
}
EFI_STATUS EFIAPI SetTimer(EFI_EVENT event, EFI_TIMER_DELAY type, UINT64 time) {
  Trace("set timer {:d} to {}", static_cast<int>(type), time);
  return Call("SetTimer", [&] { return M().Events().SetTimer(event, type, time); });
}
EFI_STATUS EFIAPI WaitForEvent(UINTN count, EFI_EVENT* events, UINTN* index) {
  Trace("wait for {} events", count);
  return Call("WaitForEvent", [&] { return M().Events().Wait(count, events, index); });
}
EFI_STATUS EFIAPI SignalEvent(EFI_EVENT event) {
  Trace("signal event {}", fmt::ptr(event));
  return Call("SignalEvent", [&] { return M().Events().Signal(event); });
}
EFI_STATUS EFIAPI CloseEvent(EFI_EVENT event) {
  Trace("close event {}", fmt::ptr(event));
  return Call("CloseEvent", [&] { return M().Events().Close(event); });
}
EFI_STATUS EFIAPI CheckEvent(EFI_EVENT event) {
  return Call("CheckEvent", [&] { return M().Events().Check(event); });
}

EFI_STATUS EFIAPI InstallProtocolInterface(EFI_HANDLE* handle, const EFI_GUID* guid, EFI_INTERFACE_TYPE type,
                                           VOID* interface) {
  Trace("install {} on {}{}", Named(guid), fmt::ptr(handle == nullptr ? nullptr : *handle),
        interface == nullptr ? ", nothing behind it" : "");
  return Call("InstallProtocolInterface", [&] {
    return type == EFI_NATIVE_INTERFACE ? M().Handles().Install(handle, guid, interface) : EFI_INVALID_PARAMETER;
  });
}
EFI_STATUS EFIAPI ReinstallProtocolInterface(EFI_HANDLE handle, const EFI_GUID* guid, VOID* oldOne, VOID* newOne) {
  return Call("ReinstallProtocolInterface", [&] { return M().Handles().Reinstall(handle, guid, oldOne, newOne); });
}
EFI_STATUS EFIAPI UninstallProtocolInterface(EFI_HANDLE handle, const EFI_GUID* guid, VOID* interface) {
  Trace("uninstall {} from {}", Named(guid), fmt::ptr(handle));
  return Call("UninstallProtocolInterface", [&] { return M().Handles().Uninstall(handle, guid, interface); });
}
EFI_STATUS EFIAPI HandleProtocol(EFI_HANDLE handle, const EFI_GUID* guid, VOID** interface) {
  return Call("HandleProtocol", [&] {
    return M().Handles().OpenProtocol(handle, guid, interface, nullptr, nullptr, EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL);
  });
}
EFI_STATUS EFIAPI RegisterProtocolNotify(const EFI_GUID* guid, EFI_EVENT event, VOID** registration) {
  Trace("notify of {} by {}", Named(guid), fmt::ptr(event));
  return Call("RegisterProtocolNotify", [&] { return M().Handles().RegisterNotify(guid, event, registration); });
}

// The handles of a search in order; the status is that of LocateHandle with room enough.
EFI_STATUS Search(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* guid, VOID* key, std::vector<EFI_HANDLE>& found,
                  bool take) {
  switch (type) {
    case AllHandles:
      found = M().Handles().All();
      break;
    case ByProtocol:
      if (guid == nullptr) {
        return EFI_INVALID_PARAMETER;
      }
      found = M().Handles().With(*guid);
      break;
    case ByRegisterNotify:
      if (key == nullptr || !M().Handles().IsRegistration(key)) {
        return EFI_INVALID_PARAMETER;
      }
      if (take) {
        const EFI_HANDLE next = M().Handles().NextRegistered(key);
        if (next != nullptr) {
          found.push_back(next);
        }
      }
      break;
    default:
      return EFI_INVALID_PARAMETER;
  }
  return found.empty() ? EFI_NOT_FOUND : EFI_SUCCESS;
}

EFI_STATUS EFIAPI LocateHandle(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* guid, VOID* key, UINTN* size,
                               EFI_HANDLE* buffer) {
  return Call("LocateHandle", [&]() -> EFI_STATUS {
    if (size == nullptr || (*size != 0 && buffer == nullptr)) {
      return EFI_INVALID_PARAMETER;
    }
    // A registration gives one handle a call, and only to a caller who has room for it.
    if (type == ByRegisterNotify && *size < sizeof(EFI_HANDLE)) {
      *size = sizeof(EFI_HANDLE);
      return M().Handles().IsRegistration(key) ? EFI_BUFFER_TOO_SMALL : EFI_INVALID_PARAMETER;
    }
    std::vector<EFI_HANDLE> found;
    const EFI_STATUS status = Search(type, guid, key, found, true);
    if (EFI_ERROR(status)) {
      return status;
    }
    const UINTN room = *size;
    *size = found.size() * sizeof(EFI_HANDLE);
    if (room < *size) {
      return EFI_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, found.data(), *size);
    return EFI_SUCCESS;
  });
}

template <typename Element>
EFI_STATUS PoolCopy(const std::vector<Element>& elements, Element** buffer) {
  const std::size_t bytes = elements.size() * sizeof(Element);
  *buffer = static_cast<Element*>(M().Pool().Allocate(EfiBootServicesData, bytes, M().CurrentOwner()));
  if (*buffer == nullptr) {
    return EFI_OUT_OF_RESOURCES;
  }
  if (bytes != 0) {
    std::memcpy(static_cast<void*>(*buffer), elements.data(), bytes);
  }
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI LocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* guid, VOID* key, UINTN* count,
                                     EFI_HANDLE** buffer) {
  return Call("LocateHandleBuffer", [&]() -> EFI_STATUS {
    if (count == nullptr || buffer == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *count = 0;
    *buffer = nullptr;
    std::vector<EFI_HANDLE> found;
    EFI_STATUS status = Search(type, guid, key, found, true);
    if (!EFI_ERROR(status)) {
      status = PoolCopy(found, buffer);
    }
    *count = EFI_ERROR(status) ? 0 : found.size();
    return status;
  });
}

EFI_STATUS EFIAPI LocateDevicePath(const EFI_GUID* guid, EFI_DEVICE_PATH_PROTOCOL** path, EFI_HANDLE* device) {
  return Call("LocateDevicePath", [&] { return M().Handles().LocateDevicePath(guid, path, device); });
}
EFI_STATUS EFIAPI LocateProtocol(const EFI_GUID* guid, VOID* registration, VOID** interface) {
  return Call("LocateProtocol", [&] { return M().Handles().LocateProtocol(guid, registration, interface); });
}
EFI_STATUS EFIAPI InstallConfigurationTable(const EFI_GUID* guid, VOID* table) {
  return Call("InstallConfigurationTable",
              [&] { return guid == nullptr ? EFI_INVALID_PARAMETER : M().InstallConfigurationTable(*guid, table); });
}

EFI_STATUS EFIAPI GetNextMonotonicCount(UINT64* count) {
  return Call("GetNextMonotonicCount", [&] {
    if (count == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *count = M().Counts().Of("GetNextMonotonicCount");
    return EFI_SUCCESS;
  });
}
EFI_STATUS EFIAPI Stall(UINTN microseconds) {
  return Call("Stall", [&] {
    M().Time().Advance(microseconds > ~Ticks{0} / kMicrosecond ? ~Ticks{0} : microseconds * kMicrosecond,
                       Passing::Stall);
    return EFI_SUCCESS;
  });
}
EFI_STATUS EFIAPI SetWatchdogTimer(UINTN, UINT64, UINTN, CHAR16*) {
  return Call("SetWatchdogTimer", [] { return EFI_SUCCESS; });
}

EFI_STATUS EFIAPI ConnectController(EFI_HANDLE controller, EFI_HANDLE* drivers, EFI_DEVICE_PATH_PROTOCOL* remaining,
                                    BOOLEAN recursive) {
  Trace("connect {}{}{}{}", fmt::ptr(controller), drivers == nullptr ? "" : ", drivers named", Bytes(remaining),
        recursive != FALSE ? ", recursively" : "");
  return Call("ConnectController",
              [&] { return M().ConnectController(controller, drivers, remaining, recursive != FALSE); });
}
EFI_STATUS EFIAPI DisconnectController(EFI_HANDLE controller, EFI_HANDLE driver, EFI_HANDLE child) {
  Trace("disconnect {}, driver {}, child {}", fmt::ptr(controller), fmt::ptr(driver), fmt::ptr(child));
  return Call("DisconnectController", [&] { return M().DisconnectController(controller, driver, child); });
}

EFI_STATUS EFIAPI OpenProtocol(EFI_HANDLE handle, const EFI_GUID* guid, VOID** interface, EFI_HANDLE agent,
                               EFI_HANDLE controller, UINT32 attributes) {
  return Call("OpenProtocol",
              [&] { return M().Handles().OpenProtocol(handle, guid, interface, agent, controller, attributes); });
}
EFI_STATUS EFIAPI CloseProtocol(EFI_HANDLE handle, const EFI_GUID* guid, EFI_HANDLE agent, EFI_HANDLE controller) {
  return Call("CloseProtocol", [&] { return M().Handles().CloseProtocol(handle, guid, agent, controller); });
}

EFI_STATUS EFIAPI OpenProtocolInformation(EFI_HANDLE handle, const EFI_GUID* guid,
                                          EFI_OPEN_PROTOCOL_INFORMATION_ENTRY** buffer, UINTN* count) {
  return Call("OpenProtocolInformation", [&]() -> EFI_STATUS {
    if (guid == nullptr || buffer == nullptr || count == nullptr || !M().Handles().Exists(handle)) {
      return EFI_INVALID_PARAMETER;
    }
    const auto* interface = M().Handles().Find(handle, *guid);
    if (interface == nullptr) {
      return EFI_NOT_FOUND;
    }
    std::vector<EFI_OPEN_PROTOCOL_INFORMATION_ENTRY> entries;
    for (const HandleDatabase::Open& open : interface->opens) {
      entries.push_back({open.agent, open.controller, open.attributes, open.count});
    }
    *count = entries.size();
    return PoolCopy(entries, buffer);
  });
}

EFI_STATUS EFIAPI ProtocolsPerHandle(EFI_HANDLE handle, EFI_GUID*** buffer, UINTN* count) {
  return Call("ProtocolsPerHandle", [&]() -> EFI_STATUS {
    const auto* interfaces = M().Handles().InterfacesOf(handle);
    if (buffer == nullptr || count == nullptr || interfaces == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    std::vector<EFI_GUID*> guids;
    for (const HandleDatabase::Interface& interface : *interfaces) {
      guids.push_back(const_cast<EFI_GUID*>(M().Handles().Lasting(interface.guid)));
    }
    *count = guids.size();
    return PoolCopy(guids, buffer);
  });
}

struct GuidAndInterface {
  EFI_GUID* guid;
  void* interface;
};

std::vector<GuidAndInterface> ReadPairs(__builtin_ms_va_list& arguments) {
  std::vector<GuidAndInterface> pairs;
  for (;;) {
    auto* guid = __builtin_va_arg(arguments, EFI_GUID*);
    if (guid == nullptr) {
      return pairs;
    }
    pairs.push_back({guid, __builtin_va_arg(arguments, void*)});
  }
}

EFI_STATUS InstallAll(EFI_HANDLE* handle, const std::vector<GuidAndInterface>& pairs) {
  if (handle == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_HANDLE before = *handle;
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    const bool twice = *pairs[i].guid == ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL> &&
                       M().Handles().HasDevicePath(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(pairs[i].interface));
    const EFI_STATUS status =
        twice ? EFI_ALREADY_STARTED : M().Handles().Install(handle, pairs[i].guid, pairs[i].interface);
    if (!EFI_ERROR(status)) {
      continue;
    }
    for (std::size_t undone = i; undone-- > 0;) {
      static_cast<void>(M().Handles().Uninstall(*handle, pairs[undone].guid, pairs[undone].interface));
    }
    *handle = before;
    return status;
  }
  return EFI_SUCCESS;
}

// All pairs are there, each once: with that checked first, the handle never vanishes before a failure is known.
bool AllInstalled(EFI_HANDLE handle, const std::vector<GuidAndInterface>& pairs) {
  for (auto pair = pairs.begin(); pair != pairs.end(); ++pair) {
    const auto* interface = M().Handles().Find(handle, *pair->guid);
    const bool twice =
        std::any_of(pairs.begin(), pair, [pair](const auto& earlier) { return *earlier.guid == *pair->guid; });
    if (interface == nullptr || interface->pointer != pair->interface || twice) {
      return false;
    }
  }
  return true;
}

EFI_STATUS UninstallAll(EFI_HANDLE handle, const std::vector<GuidAndInterface>& pairs) {
  if (!AllInstalled(handle, pairs)) {
    return EFI_INVALID_PARAMETER;
  }
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    const EFI_STATUS status = M().Handles().Uninstall(handle, pairs[i].guid, pairs[i].interface);
    if (!EFI_ERROR(status)) {
      continue;
    }
    for (std::size_t undone = i; undone-- > 0;) {
      static_cast<void>(M().Handles().Install(&handle, pairs[undone].guid, pairs[undone].interface));
    }
    return EFI_INVALID_PARAMETER;
  }
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI InstallMultipleProtocolInterfaces(EFI_HANDLE* handle, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, handle);
  const AcrossCalls pairs(M().Held(), ReadPairs(arguments));
  __builtin_ms_va_end(arguments);
  return Call("InstallMultipleProtocolInterfaces", [&] { return InstallAll(handle, *pairs); });
}
EFI_STATUS EFIAPI UninstallMultipleProtocolInterfaces(EFI_HANDLE handle, ...) {
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, handle);
  const AcrossCalls pairs(M().Held(), ReadPairs(arguments));
  __builtin_ms_va_end(arguments);
  return Call("UninstallMultipleProtocolInterfaces", [&] { return UninstallAll(handle, *pairs); });
}

EFI_STATUS EFIAPI CalculateCrc32(VOID* data, UINTN size, UINT32* crc) {
  return Call("CalculateCrc32", [&] {
    if (data == nullptr || size == 0 || crc == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *crc = Crc32({static_cast<const std::byte*>(data), size});
    return EFI_SUCCESS;
  });
}
VOID EFIAPI CopyMem(VOID* destination, const VOID* source, UINTN length) {
  CountOnly("CopyMem");
  if (length != 0) {
    std::memmove(destination, source, length);
  }
}
VOID EFIAPI SetMem(VOID* buffer, UINTN size, UINT8 value) {
  CountOnly("SetMem");
  if (size != 0) {
    std::memset(buffer, value, size);
  }
}

// Image services until the image loader takes their place.
EFI_STATUS EFIAPI LoadImage(BOOLEAN, EFI_HANDLE, EFI_DEVICE_PATH_PROTOCOL*, VOID*, UINTN, EFI_HANDLE*) {
  return Call("LoadImage", [] { return EFI_UNSUPPORTED; });
}
EFI_STATUS EFIAPI StartImage(EFI_HANDLE, UINTN*, CHAR16**) {
  return Call("StartImage", [] { return EFI_UNSUPPORTED; });
}
EFI_STATUS EFIAPI Exit(EFI_HANDLE, EFI_STATUS, UINTN, CHAR16*) {
  return Call("Exit", [] { return EFI_UNSUPPORTED; });
}
EFI_STATUS EFIAPI UnloadImage(EFI_HANDLE) {
  return Call("UnloadImage", [] { return EFI_UNSUPPORTED; });
}
EFI_STATUS EFIAPI ExitBootServices(EFI_HANDLE, UINTN) {
  return Call("ExitBootServices", [] { return EFI_UNSUPPORTED; });
}

}  // namespace

void FillBootServices(EFI_BOOT_SERVICES& table) {
  table.RaiseTPL = RaiseTPL;
  table.RestoreTPL = RestoreTPL;
  table.AllocatePages = AllocatePages;
  table.FreePages = FreePages;
  table.GetMemoryMap = GetMemoryMap;
  table.AllocatePool = AllocatePool;
  table.FreePool = FreePool;
  table.CreateEvent = CreateEvent;
  table.SetTimer = SetTimer;
  table.WaitForEvent = WaitForEvent;
  table.SignalEvent = SignalEvent;
  table.CloseEvent = CloseEvent;
  table.CheckEvent = CheckEvent;
  table.InstallProtocolInterface = InstallProtocolInterface;
  table.ReinstallProtocolInterface = ReinstallProtocolInterface;
  table.UninstallProtocolInterface = UninstallProtocolInterface;
  table.HandleProtocol = HandleProtocol;
  table.RegisterProtocolNotify = RegisterProtocolNotify;
  table.LocateHandle = LocateHandle;
  table.LocateDevicePath = LocateDevicePath;
  table.InstallConfigurationTable = InstallConfigurationTable;
  table.LoadImage = LoadImage;
  table.StartImage = StartImage;
  table.Exit = Exit;
  table.UnloadImage = UnloadImage;
  table.ExitBootServices = ExitBootServices;
  table.GetNextMonotonicCount = GetNextMonotonicCount;
  table.Stall = Stall;
  table.SetWatchdogTimer = SetWatchdogTimer;
  table.ConnectController = ConnectController;
  table.DisconnectController = DisconnectController;
  table.OpenProtocol = OpenProtocol;
  table.CloseProtocol = CloseProtocol;
  table.OpenProtocolInformation = OpenProtocolInformation;
  table.ProtocolsPerHandle = ProtocolsPerHandle;
  table.LocateHandleBuffer = LocateHandleBuffer;
  table.LocateProtocol = LocateProtocol;
  table.InstallMultipleProtocolInterfaces = InstallMultipleProtocolInterfaces;
  table.UninstallMultipleProtocolInterfaces = UninstallMultipleProtocolInterfaces;
  table.CalculateCrc32 = CalculateCrc32;
  table.CopyMem = CopyMem;
  table.SetMem = SetMem;
  table.CreateEventEx = CreateEventEx;
}

}  // namespace sim

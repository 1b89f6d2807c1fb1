// The boot services that the machine itself answers, as plain functions of the firmware's calling convention. Every
// call is counted under its name and may be answered by the fault script instead. Here: drivers connected, time, and
// the table as a whole.
#include "sim/firmware/service_call.h"

namespace sim {
namespace {

std::string Bytes(const EFI_DEVICE_PATH_PROTOCOL* path) {
  if (path == nullptr) {
    return "";
  }
  const std::size_t length = path->Length[0] + 256U * path->Length[1];
  return fmt::format(", first below it {:02x}", fmt::join(std::span(reinterpret_cast<const UINT8*>(path), length), ""));
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

// For the members that nobody provides. Arguments are the caller's business in this calling convention.
EFI_STATUS EFIAPI Unprovided() { return EFI_UNSUPPORTED; }

// Behind its header a table is nothing but pointers.
template <typename Table>
void FillWithUnprovided(Table& table) {
  EFI_STATUS(EFIAPI* const unprovided)() = Unprovided;
  auto* members = reinterpret_cast<std::byte*>(&table);
  for (std::size_t at = sizeof(EFI_TABLE_HEADER); at < sizeof(Table); at += sizeof(unprovided)) {
    std::memcpy(members + at, &unprovided, sizeof(unprovided));
  }
}

}  // namespace

void FillBootServices(EFI_BOOT_SERVICES& table) {
  FillWithUnprovided(table);
  table.Reserved = nullptr;
  FillEventServices(table);
  FillMemoryServices(table);
  FillProtocolServices(table);
  FillLocateServices(table);
  FillOpenServices(table);
  table.InstallConfigurationTable = InstallConfigurationTable;
  table.GetNextMonotonicCount = GetNextMonotonicCount;
  table.Stall = Stall;
  table.SetWatchdogTimer = SetWatchdogTimer;
  table.ConnectController = ConnectController;
  table.DisconnectController = DisconnectController;
}

void FillRuntimeServices(EFI_RUNTIME_SERVICES& table) { FillWithUnprovided(table); }

}  // namespace sim

// How a boot ended. Whoever ends it (the image loader, ResetSystem, the CSM, a scripted power cut, a processor fault)
// fills one of these and hands it to Machine::EndBoot.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/runtime_services.h"
#include "sim/firmware/device_path_builder.h"

namespace sim {

enum class BootEnd {
  Returned,            // the body came back; `status` is what it answered
  OsLoader,            // control went to an OS loader: `loader`, `devicePath`, `loadOptions`
  LegacyBoot,          // control went to a legacy boot device: `bbsIndex`, `bbsEntry`, `loadOptions`
  Reset,               // ResetSystem: `resetType`, `status`
  PowerLost,           // a scripted power cut
  WaitsForever,        // WaitForEvent with nothing that could ever signal
  ExitedBootServices,  // the operating system took the machine
  Crashed,             // a processor fault: `faultAddress`, `instruction`
  BudgetExceeded,      // more virtual time or more service calls than the machine allows
};

// "os-loader", "legacy-boot", ...: for summaries and JSON.
const char* BootEndName(BootEnd end);

struct BootOutcome {
  BootEnd end = BootEnd::Returned;
  EFI_STATUS status = EFI_SUCCESS;
  std::string text;  // one line for a reader: what happened, where

  EFI_HANDLE loader = nullptr;
  DevicePath devicePath;
  std::vector<std::byte> loadOptions;

  std::uint16_t bbsIndex = 0xFFFF;
  std::vector<std::byte> bbsEntry;

  EFI_RESET_TYPE resetType = EfiResetCold;
  std::vector<std::byte> resetData;

  std::uintptr_t faultAddress = 0;
  std::uintptr_t instruction = 0;
};

}  // namespace sim

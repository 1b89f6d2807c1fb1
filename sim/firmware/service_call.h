// What the files of boot services share: the machine, the count and the fault script in front of each call, its trace.
#pragma once

#include <fmt/format.h>

#include <cstring>
#include <string>
#include <vector>

#include "sim/firmware/guid_text.h"
#include "sim/firmware/machine.h"

namespace sim {

inline Machine& M() { return Machine::Current(); }

// Serves a call unless the fault script answers it.
template <typename Serve>
EFI_STATUS Call(const char* service, Serve serve) {
  const auto scripted = M().OnCall(service);
  return scripted ? *scripted : serve();
}

// For services without a status, which the script cannot answer.
inline void CountOnly(const char* service) {
  M().Counts().Add(service);
  M().Time().Step();
}

// Tells the machine's trace of a call of the driver.
template <typename... Args>
void Trace(fmt::format_string<Args...> format, Args&&... args) {
  if (M().Tracing()) {
    M().Trace(fmt::format(format, std::forward<Args>(args)...));
  }
}
inline std::string Named(const EFI_GUID* guid) { return guid == nullptr ? "no GUID" : GuidText(*guid); }

// The elements in a pool block that is the caller's to free.
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

// Each sets its members of the table; the files are named after them.
void FillMemoryServices(EFI_BOOT_SERVICES& table);
void FillEventServices(EFI_BOOT_SERVICES& table);
void FillProtocolServices(EFI_BOOT_SERVICES& table);
void FillLocateServices(EFI_BOOT_SERVICES& table);
void FillOpenServices(EFI_BOOT_SERVICES& table);

}  // namespace sim

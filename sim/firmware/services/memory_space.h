// The global coherency domain's memory map and the DXE services table on it (PI 1.7, volume 2, 7.2 and 7.3).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "platform/dxe_services.h"
#include "platform/system_table.h"
#include "sim/firmware/services/current.h"

namespace sim {

// Address space from 0 to 2^46, cut into ranges of one type each; neighbours that are alike are one range.
class MemorySpace {
 public:
  static constexpr std::uint64_t kEnd = std::uint64_t{1} << 46;
  struct Range {
    EFI_GCD_MEMORY_TYPE type = EfiGcdMemoryTypeNonExistent;
    std::uint64_t capabilities = 0;
    std::uint64_t attributes = 0;
    friend bool operator==(const Range&, const Range&) = default;
  };

  MemorySpace() { ranges_[0] = {}; }
  // EFI_INVALID_PARAMETER for no length or no such type, EFI_UNSUPPORTED past the address space, EFI_ACCESS_DENIED
  // when part of it exists already.
  EFI_STATUS Add(EFI_GCD_MEMORY_TYPE type, std::uint64_t base, std::uint64_t length, std::uint64_t capabilities);
  // EFI_NOT_FOUND when part of it does not exist.
  EFI_STATUS Remove(std::uint64_t base, std::uint64_t length);
  EFI_STATUS SetAttributes(std::uint64_t base, std::uint64_t length, std::uint64_t attributes);
  EFI_STATUS SetCapabilities(std::uint64_t base, std::uint64_t length, std::uint64_t capabilities);
  // All ranges in order, those that do not exist included.
  std::vector<EFI_GCD_MEMORY_SPACE_DESCRIPTOR> Map() const;

 private:
  static EFI_STATUS Check(std::uint64_t base, std::uint64_t length);
  bool All(std::uint64_t base, std::uint64_t length, const std::function<bool(const Range&)>& holds) const;
  void Change(std::uint64_t base, std::uint64_t length, const std::function<void(Range&)>& change);
  void SplitAt(std::uint64_t base);

  std::map<std::uint64_t, Range> ranges_;  // by base; each reaches to the next one's base
};

// The table in the configuration tables. Memory services work on a MemorySpace; Dispatch asks the platform's dispatcher
// and is counted; allocation, I/O space and firmware volume processing answer EFI_UNSUPPORTED.
class DxeServicesModel : public CurrentModel<DxeServicesModel> {
 public:
  explicit DxeServicesModel(EFI_BOOT_SERVICES* services);
  // Puts the table into the configuration tables.
  EFI_STATUS Install();

  MemorySpace& Memory() { return memory_; }
  DXE_SERVICES* Table() { return &table_; }
  std::uint64_t DispatchCalls() const { return dispatchCalls_; }
  // Answers a Dispatch call: true when some driver was dispatched. Without one nothing ever is.
  void SetDispatcher(std::function<bool()> dispatcher) { dispatcher_ = std::move(dispatcher); }

 private:
  struct Calls;
  EFI_BOOT_SERVICES* services_;
  DXE_SERVICES table_{};
  MemorySpace memory_;
  std::function<bool()> dispatcher_;
  std::uint64_t dispatchCalls_ = 0;
};

}  // namespace sim

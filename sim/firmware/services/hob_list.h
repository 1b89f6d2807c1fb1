// The hand-off block list that the memory initialisation phase leaves (PI 1.7, volume 3, chapter 5).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/hob.h"
#include "platform/memory_type_information.h"

namespace sim {

// Built once, then published; the bytes must stay where they are for the whole boot, so the list owns them.
class HobList {
 public:
  explicit HobList(EFI_BOOT_MODE bootMode = BOOT_WITH_FULL_CONFIGURATION) : bootMode_(bootMode) {}
  HobList(const HobList&) = delete;
  HobList& operator=(const HobList&) = delete;

  // Blocks come in the order of these calls, behind the hand-off block. Data is padded to a multiple of 8 bytes, which
  // the block's length counts; false, and nothing added, above 64 KiB.
  bool AddGuid(const EFI_GUID& name, std::span<const std::byte> data);
  void AddResource(std::uint32_t type, std::uint32_t attribute, std::uint64_t start, std::uint64_t length);
  // The memory type information list; its closing entry is added here.
  bool AddMemoryTypeInformation(std::span<const EFI_MEMORY_TYPE_INFORMATION> entries);
  // The platform's note that memory type information is kept under another variable GUID: a GUID block of 40 bytes.
  bool AddVariableGuidNote();

  // The list's first byte, at an address that is a multiple of 8; no block can be added afterwards.
  const void* Build();
  std::span<const std::byte> Bytes() const;

 private:
  void Append(const void* data, std::size_t size);

  EFI_BOOT_MODE bootMode_;
  std::vector<std::byte> blocks_;
  std::vector<std::uint64_t> built_;
};

}  // namespace sim

// The memory map as a sorted map of range starts: split at the edges of a change, change, merge what became alike.
#include "sim/firmware/services/memory_space.h"

#include <cstring>
#include <iterator>

namespace sim {

EFI_STATUS MemorySpace::Check(std::uint64_t base, std::uint64_t length) {
  if (length == 0) {
    return EFI_INVALID_PARAMETER;
  }
  return base >= kEnd || length > kEnd - base ? EFI_UNSUPPORTED : EFI_SUCCESS;
}

bool MemorySpace::All(std::uint64_t base, std::uint64_t length, const std::function<bool(const Range&)>& holds) const {
  for (auto at = std::prev(ranges_.upper_bound(base)); at != ranges_.end() && at->first < base + length; ++at) {
    if (!holds(at->second)) {
      return false;
    }
  }
  return true;
}

void MemorySpace::SplitAt(std::uint64_t base) {
  if (base < kEnd) {
    ranges_.insert({base, std::prev(ranges_.upper_bound(base))->second});
  }
}

void MemorySpace::Change(std::uint64_t base, std::uint64_t length, const std::function<void(Range&)>& change) {
  SplitAt(base);
  SplitAt(base + length);
  const auto first = ranges_.find(base);
  auto end = ranges_.lower_bound(base + length);
  for (auto at = first; at != end; ++at) {
    change(at->second);
  }
  // The range before and the range behind may have become like their neighbours.
  auto at = first == ranges_.begin() ? first : std::prev(first);
  const std::uint64_t last = base + length;
  while (std::next(at) != ranges_.end() && at->first <= last) {
    const auto next = std::next(at);
    if (next->second == at->second) {
      ranges_.erase(next);
      continue;
    }
    at = next;
  }
}

EFI_STATUS MemorySpace::Add(EFI_GCD_MEMORY_TYPE type, std::uint64_t base, std::uint64_t length,
                            std::uint64_t capabilities) {
  if (type == EfiGcdMemoryTypeNonExistent || type >= EfiGcdMemoryTypeMaximum) {
    return EFI_INVALID_PARAMETER;
  }
  if (const EFI_STATUS status = Check(base, length); EFI_ERROR(status)) {
    return status;
  }
  if (!All(base, length, [](const Range& range) { return range.type == EfiGcdMemoryTypeNonExistent; })) {
    return EFI_ACCESS_DENIED;
  }
  Change(base, length, [&](Range& range) { range = {type, capabilities, 0}; });
  return EFI_SUCCESS;
}

EFI_STATUS MemorySpace::Remove(std::uint64_t base, std::uint64_t length) {
  if (const EFI_STATUS status = Check(base, length); EFI_ERROR(status)) {
    return status;
  }
  if (!All(base, length, [](const Range& range) { return range.type != EfiGcdMemoryTypeNonExistent; })) {
    return EFI_NOT_FOUND;
  }
  Change(base, length, [](Range& range) { range = {}; });
  return EFI_SUCCESS;
}

EFI_STATUS MemorySpace::SetAttributes(std::uint64_t base, std::uint64_t length, std::uint64_t attributes) {
  if (const EFI_STATUS status = Check(base, length); EFI_ERROR(status)) {
    return status;
  }
  const auto allows = [attributes](const Range& range) { return (attributes & ~range.capabilities) == 0; };
  if (!All(base, length, allows)) {
    return EFI_UNSUPPORTED;
  }
  Change(base, length, [attributes](Range& range) { range.attributes = attributes; });
  return EFI_SUCCESS;
}

EFI_STATUS MemorySpace::SetCapabilities(std::uint64_t base, std::uint64_t length, std::uint64_t capabilities) {
  if (const EFI_STATUS status = Check(base, length); EFI_ERROR(status)) {
    return status;
  }
  const auto allows = [capabilities](const Range& range) { return (range.attributes & ~capabilities) == 0; };
  if (!All(base, length, allows)) {
    return EFI_UNSUPPORTED;
  }
  Change(base, length, [capabilities](Range& range) { range.capabilities = capabilities; });
  return EFI_SUCCESS;
}

std::vector<EFI_GCD_MEMORY_SPACE_DESCRIPTOR> MemorySpace::Map() const {
  std::vector<EFI_GCD_MEMORY_SPACE_DESCRIPTOR> map;
  for (auto at = ranges_.begin(); at != ranges_.end(); ++at) {
    const auto next = std::next(at);
    EFI_GCD_MEMORY_SPACE_DESCRIPTOR descriptor{};
    descriptor.BaseAddress = at->first;
    descriptor.Length = (next == ranges_.end() ? kEnd : next->first) - at->first;
    descriptor.Capabilities = at->second.capabilities;
    descriptor.Attributes = at->second.attributes;
    descriptor.GcdMemoryType = at->second.type;
    map.push_back(descriptor);
  }
  return map;
}

struct DxeServicesModel::Calls {
  static MemorySpace& Memory() { return Current()->memory_; }

  static EFI_STATUS EFIAPI AddMemorySpace(EFI_GCD_MEMORY_TYPE type, EFI_PHYSICAL_ADDRESS base, UINT64 length,
                                          UINT64 capabilities) {
    return Memory().Add(type, base, length, capabilities);
  }
  static EFI_STATUS EFIAPI RemoveMemorySpace(EFI_PHYSICAL_ADDRESS base, UINT64 length) {
    return Memory().Remove(base, length);
  }
  static EFI_STATUS EFIAPI AllocateMemorySpace(EFI_GCD_ALLOCATE_TYPE, EFI_GCD_MEMORY_TYPE, UINTN, UINT64,
                                               EFI_PHYSICAL_ADDRESS*, EFI_HANDLE, EFI_HANDLE) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI FreeMemorySpace(EFI_PHYSICAL_ADDRESS, UINT64) { return EFI_UNSUPPORTED; }
  static EFI_STATUS EFIAPI GetMemorySpaceDescriptor(EFI_PHYSICAL_ADDRESS address,
                                                    EFI_GCD_MEMORY_SPACE_DESCRIPTOR* descriptor) {
    if (descriptor == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    for (const auto& each : Memory().Map()) {
      if (address >= each.BaseAddress && address - each.BaseAddress < each.Length) {
        std::memcpy(descriptor, &each, sizeof each);  // a loader's may lie at any address
        return EFI_SUCCESS;
      }
    }
    return EFI_NOT_FOUND;
  }
  static EFI_STATUS EFIAPI SetMemorySpaceAttributes(EFI_PHYSICAL_ADDRESS base, UINT64 length, UINT64 attributes) {
    return Memory().SetAttributes(base, length, attributes);
  }
  static EFI_STATUS EFIAPI SetMemorySpaceCapabilities(EFI_PHYSICAL_ADDRESS base, UINT64 length, UINT64 capabilities) {
    return Memory().SetCapabilities(base, length, capabilities);
  }

  // The map is the caller's to free.
  static EFI_STATUS EFIAPI GetMemorySpaceMap(UINTN* count, EFI_GCD_MEMORY_SPACE_DESCRIPTOR** map) {
    if (count == nullptr || map == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const auto descriptors = Memory().Map();
    const std::size_t size = descriptors.size() * sizeof(EFI_GCD_MEMORY_SPACE_DESCRIPTOR);
    VOID* buffer = nullptr;
    const EFI_STATUS status = Current()->services_->AllocatePool(EfiBootServicesData, size, &buffer);
    if (EFI_ERROR(status)) {
      return status;
    }
    std::memcpy(buffer, descriptors.data(), size);
    *count = descriptors.size();
    *map = static_cast<EFI_GCD_MEMORY_SPACE_DESCRIPTOR*>(buffer);
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI AddIoSpace(EFI_GCD_IO_TYPE, EFI_PHYSICAL_ADDRESS, UINT64) { return EFI_UNSUPPORTED; }
  static EFI_STATUS EFIAPI AllocateIoSpace(EFI_GCD_ALLOCATE_TYPE, EFI_GCD_IO_TYPE, UINTN, UINT64, EFI_PHYSICAL_ADDRESS*,
                                           EFI_HANDLE, EFI_HANDLE) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI FreeIoSpace(EFI_PHYSICAL_ADDRESS, UINT64) { return EFI_UNSUPPORTED; }
  static EFI_STATUS EFIAPI RemoveIoSpace(EFI_PHYSICAL_ADDRESS, UINT64) { return EFI_UNSUPPORTED; }
  static EFI_STATUS EFIAPI GetIoSpaceDescriptor(EFI_PHYSICAL_ADDRESS, EFI_GCD_IO_SPACE_DESCRIPTOR*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI GetIoSpaceMap(UINTN*, EFI_GCD_IO_SPACE_DESCRIPTOR**) { return EFI_UNSUPPORTED; }

  static EFI_STATUS EFIAPI Dispatch() {
    DxeServicesModel& self = *Current();
    ++self.dispatchCalls_;
    return self.dispatcher_ && self.dispatcher_() ? EFI_SUCCESS : EFI_NOT_FOUND;
  }
  static EFI_STATUS EFIAPI ByFile(EFI_HANDLE, const EFI_GUID*) { return EFI_NOT_FOUND; }
  static EFI_STATUS EFIAPI ProcessFirmwareVolume(const VOID*, UINTN, EFI_HANDLE*) { return EFI_UNSUPPORTED; }
};

DxeServicesModel::DxeServicesModel(EFI_BOOT_SERVICES* services) : services_(services) {
  constexpr UINT64 kSignature = 0x565245535F455844;  // "DXE_SERV"
  table_.Hdr = {kSignature, (1 << 16) | 70, sizeof(DXE_SERVICES), 0, 0};
  table_.AddMemorySpace = Calls::AddMemorySpace;
  table_.AllocateMemorySpace = Calls::AllocateMemorySpace;
  table_.FreeMemorySpace = Calls::FreeMemorySpace;
  table_.RemoveMemorySpace = Calls::RemoveMemorySpace;
  table_.GetMemorySpaceDescriptor = Calls::GetMemorySpaceDescriptor;
  table_.SetMemorySpaceAttributes = Calls::SetMemorySpaceAttributes;
  table_.GetMemorySpaceMap = Calls::GetMemorySpaceMap;
  table_.AddIoSpace = Calls::AddIoSpace;
  table_.AllocateIoSpace = Calls::AllocateIoSpace;
  table_.FreeIoSpace = Calls::FreeIoSpace;
  table_.RemoveIoSpace = Calls::RemoveIoSpace;
  table_.GetIoSpaceDescriptor = Calls::GetIoSpaceDescriptor;
  table_.GetIoSpaceMap = Calls::GetIoSpaceMap;
  table_.Dispatch = Calls::Dispatch;
  table_.Schedule = Calls::ByFile;
  table_.Trust = Calls::ByFile;
  table_.ProcessFirmwareVolume = Calls::ProcessFirmwareVolume;
  table_.SetMemorySpaceCapabilities = Calls::SetMemorySpaceCapabilities;
  UINT32 crc = 0;
  if (!EFI_ERROR(services_->CalculateCrc32(&table_, sizeof(table_), &crc))) {
    table_.Hdr.CRC32 = crc;
  }
}

EFI_STATUS DxeServicesModel::Install() {
  return services_->InstallConfigurationTable(&gEfiDxeServicesTableGuid, &table_);
}

}  // namespace sim

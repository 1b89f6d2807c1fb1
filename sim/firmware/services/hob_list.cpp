// Blocks are collected as bytes and copied behind the hand-off block when the list is built.
#include "sim/firmware/services/hob_list.h"

#include <cstring>

namespace sim {
namespace {

constexpr EFI_GUID kVariableGuid{0x01368881, 0xC4AD, 0x4B1D, {0xB6, 0x31, 0xD5, 0x7A, 0x8E, 0xC8, 0xDB, 0x6B}};
constexpr std::uint32_t kHandoffVersion = 9;

constexpr std::size_t Padded(std::size_t size) { return (size + 7) & ~std::size_t{7}; }

}  // namespace

void HobList::Append(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const std::byte*>(data);
  blocks_.insert(blocks_.end(), bytes, bytes + size);
  blocks_.resize(Padded(blocks_.size()));
}

bool HobList::AddGuid(const EFI_GUID& name, std::span<const std::byte> data) {
  const std::size_t size = Padded(sizeof(EFI_HOB_GUID_TYPE) + data.size());
  if (!built_.empty() || size > 0xFFF8) {
    return false;
  }
  std::vector<std::byte> block(sizeof(EFI_HOB_GUID_TYPE));
  const EFI_HOB_GUID_TYPE header{{EFI_HOB_TYPE_GUID_EXTENSION, static_cast<UINT16>(size), 0}, name};
  std::memcpy(block.data(), &header, sizeof(header));
  block.insert(block.end(), data.begin(), data.end());
  Append(block.data(), block.size());
  return true;
}

void HobList::AddResource(std::uint32_t type, std::uint32_t attribute, std::uint64_t start, std::uint64_t length) {
  const EFI_HOB_RESOURCE_DESCRIPTOR block{
      {EFI_HOB_TYPE_RESOURCE_DESCRIPTOR, sizeof(EFI_HOB_RESOURCE_DESCRIPTOR), 0}, {}, type, attribute, start, length};
  Append(&block, sizeof(block));
}

bool HobList::AddMemoryTypeInformation(std::span<const EFI_MEMORY_TYPE_INFORMATION> entries) {
  std::vector<EFI_MEMORY_TYPE_INFORMATION> list(entries.begin(), entries.end());
  list.push_back({EfiMaxMemoryType, 0});
  return AddGuid(gEfiMemoryTypeInformationGuid, std::as_bytes(std::span(list)));
}

bool HobList::AddVariableGuidNote() {
  return AddGuid(kVariableGuid, std::as_bytes(std::span(&gEfiMemoryTypeInformationGuid, 1)));
}

const void* HobList::Build() {
  if (built_.empty()) {
    const std::size_t size = sizeof(EFI_HOB_HANDOFF_INFO_TABLE) + blocks_.size() + sizeof(EFI_HOB_GENERIC_HEADER);
    built_.resize(size / sizeof(std::uint64_t));
    auto* out = reinterpret_cast<std::byte*>(built_.data());
    EFI_HOB_HANDOFF_INFO_TABLE handoff{};
    handoff.Header = {EFI_HOB_TYPE_HANDOFF, sizeof(handoff), 0};
    handoff.Version = kHandoffVersion;
    handoff.BootMode = bootMode_;
    handoff.EfiEndOfHobList = reinterpret_cast<std::uintptr_t>(out) + size;
    const EFI_HOB_GENERIC_HEADER end{EFI_HOB_TYPE_END_OF_HOB_LIST, sizeof(end), 0};
    std::memcpy(out, &handoff, sizeof(handoff));
    if (!blocks_.empty()) {
      std::memcpy(out + sizeof(handoff), blocks_.data(), blocks_.size());
    }
    std::memcpy(out + size - sizeof(end), &end, sizeof(end));
  }
  return built_.data();
}

std::span<const std::byte> HobList::Bytes() const { return std::as_bytes(std::span(built_)); }

}  // namespace sim

#include "sim/firmware/handle_index.h"

#include <algorithm>
#include <cstring>

#include "sim/firmware/device_path_builder.h"

namespace sim {
namespace {

std::string_view Text(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

std::size_t HandleIndex::GuidHash::operator()(const EFI_GUID& guid) const {
  return std::hash<std::string_view>{}(Text(std::as_bytes(std::span(&guid, 1))));
}

void HandleIndex::Add(EFI_HANDLE handle, const EFI_GUID& guid, const void* pointer, std::uint64_t sequence) {
  carriers_[guid].emplace_back(sequence, handle);
  if (guid != ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL> || pointer == nullptr) {
    return;
  }
  bool valid = false;
  const std::size_t size = FirstInstanceSize(static_cast<const EFI_DEVICE_PATH_PROTOCOL*>(pointer), valid);
  if (valid) {
    const std::string_view nodes(static_cast<const char*>(pointer), size);
    byPath_[std::string(nodes)].push_back(handle);
    pathOf_[handle] = nodes;
  }
}

void HandleIndex::Remove(EFI_HANDLE handle, const EFI_GUID& guid, std::uint64_t sequence) {
  Carriers& carriers = carriers_[guid];
  const auto place = std::lower_bound(carriers.begin(), carriers.end(), std::pair(sequence, EFI_HANDLE{}));
  if (place != carriers.end() && place->first == sequence) {
    carriers.erase(place);
  }
  const auto path = guid == ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL> ? pathOf_.find(handle) : pathOf_.end();
  if (path == pathOf_.end()) {
    return;
  }
  const auto alike = byPath_.find(path->second);
  std::erase(alike->second, handle);
  if (alike->second.empty()) {
    byPath_.erase(alike);
  }
  pathOf_.erase(path);
}

const HandleIndex::Carriers& HandleIndex::With(const EFI_GUID& guid) const {
  static const Carriers kNone;
  const auto found = carriers_.find(guid);
  return found == carriers_.end() ? kNone : found->second;
}

const std::vector<EFI_HANDLE>& HandleIndex::AtPath(std::span<const std::byte> nodes) const {
  static const std::vector<EFI_HANDLE> kNone;
  const auto found = byPath_.find(Text(nodes));
  return found == byPath_.end() ? kNone : found->second;
}

}  // namespace sim

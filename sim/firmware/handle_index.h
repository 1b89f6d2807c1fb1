// What the handle database is searched by: the handles of each protocol in the order of installation, and the handles
// of each device path's nodes. The database writes it with every installation and removal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/device_path.h"
#include "platform/uefi_base.h"

namespace sim {

class HandleIndex {
 public:
  // The handles of one protocol with the sequence number of the installation, which orders them.
  using Carriers = std::vector<std::pair<std::uint64_t, EFI_HANDLE>>;

  // The protocol was installed on the handle; the sequence number is higher than any before.
  void Add(EFI_HANDLE handle, const EFI_GUID& guid, const void* pointer, std::uint64_t sequence);
  // It is gone from the handle. The interface's memory is not touched: it may be freed already.
  void Remove(EFI_HANDLE handle, const EFI_GUID& guid, std::uint64_t sequence);

  const Carriers& With(const EFI_GUID& guid) const;
  // Handles whose device path's first instance had these nodes when it was installed, the end node left out.
  const std::vector<EFI_HANDLE>& AtPath(std::span<const std::byte> nodes) const;

 private:
  struct GuidHash {
    std::size_t operator()(const EFI_GUID& guid) const;
  };
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
  };

  std::unordered_map<EFI_GUID, Carriers, GuidHash> carriers_;
  std::unordered_map<std::string, std::vector<EFI_HANDLE>, TextHash, std::equal_to<>> byPath_;
  std::unordered_map<EFI_HANDLE, std::string> pathOf_;  // only handles with a well-formed device path
};

}  // namespace sim

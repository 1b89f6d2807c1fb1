#include "sim/server/devices_without_option.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/block_io.h"
#include "platform/load_file.h"
#include "platform/setup_variable.h"
#include "platform/simple_file_system.h"
#include "sim/csm/csm.h"
#include "sim/server/load_option_view.h"

namespace sim {
namespace {

using Bytes = std::span<const std::byte>;
constexpr std::size_t kEnd = sizeof(EFI_DEVICE_PATH_PROTOCOL);
constexpr std::byte kLegacyDevicesOnly{3};  // of the platform's boot mode record

// The path without its end.
Bytes NodesOf(const DevicePath& path) { return path.Bytes().first(path.Size() - kEnd); }

// Device paths in the order of their bytes, to be asked whether one of them begins with some nodes.
class Paths {
 public:
  void Add(Bytes path) { paths_.insert(std::string(reinterpret_cast<const char*>(path.data()), path.size())); }
  bool OneBegins(Bytes nodes) const {
    const std::string_view front(reinterpret_cast<const char*>(nodes.data()), nodes.size());
    const auto first = paths_.lower_bound(front);
    return first != paths_.end() && first->starts_with(front);
  }

 private:
  std::set<std::string, std::less<>> paths_;
};

class Finder {
 public:
  Finder(Machine& machine, const VariableStore& store) : machine_(machine), handles_(machine.Handles()), store_(store) {
    for (const Variable& variable : store.All()) {
      const bool boot = variable.guid == gEfiGlobalVariableGuid && BootOptionNumber(variable.name);
      const auto option = boot ? ParseLoadOption(variable.data) : std::nullopt;
      if (option && !option->paths.empty() && !option->paths.front().Empty()) {
        AddOption(option->paths.front());
      }
    }
    AddPartitions();
    for (const EFI_HANDLE handle : handles_.With(ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>)) {
      if (const auto* path = handles_.Get<EFI_DEVICE_PATH_PROTOCOL>(handle); path != nullptr) {
        volumes_.Add(DevicePath::Copy(path).Bytes());
      }
    }
  }

  std::vector<DeviceWithoutOption> Find() const {
    std::vector<DeviceWithoutOption> found;
    for (const EFI_HANDLE handle : handles_.All()) {
      const auto* blockIo = handles_.Get<EFI_BLOCK_IO_PROTOCOL>(handle);
      const bool drive = blockIo != nullptr && blockIo->Media != nullptr && blockIo->Media->LogicalPartition == FALSE;
      const bool loads = handles_.Get<EFI_LOAD_FILE_PROTOCOL>(handle) != nullptr;
      const auto* raw = handles_.Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
      if ((!drive && !loads) || raw == nullptr) {
        continue;
      }
      const DevicePath path = DevicePath::Copy(raw);
      if (!booted_.OneBegins(NodesOf(path)) && !CoveredByLegacyOption(handle)) {
        found.push_back({DevicePathToUtf8(path), drive ? DriveReason(path, *blockIo->Media) : OtherReason()});
      }
    }
    return found;
  }

 private:
  void AddOption(const DevicePath& path) {
    const Bytes bytes = path.Bytes();
    if (path.Get()->Type == BBS_DEVICE_PATH && bytes.size() >= kEnd + sizeof(std::uint16_t)) {
      std::uint16_t type = 0;
      std::memcpy(&type, bytes.data() + kEnd, sizeof(type));
      legacyTypes_.insert(type);
      return;
    }
    booted_.Add(bytes);
    if (const Bytes node = PathNodes(path).front(); node[0] == std::byte{MEDIA_DEVICE_PATH}) {
      partitions_.emplace(node.begin(), node.end());
    }
  }

  // An option may name a partition by its node alone: the handles with such a node are then booted from.
  void AddPartitions() {
    for (const EFI_HANDLE handle : handles_.With(ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>)) {
      const DevicePath path = DevicePath::Copy(handles_.Get<EFI_DEVICE_PATH_PROTOCOL>(handle));
      if (std::ranges::any_of(PathNodes(path), [this](Bytes node) {
            return partitions_.contains(std::vector<std::byte>(node.begin(), node.end()));
          })) {
        booted_.Add(path.Bytes());
      }
    }
  }

  bool CoveredByLegacyOption(EFI_HANDLE handle) const {
    Csm* csm = machine_.Get<Csm>();
    for (std::size_t i = 0; csm != nullptr && i < csm->Count(); ++i) {
      const BBS_TABLE& entry = csm->Entry(i);
      const std::uint64_t owner = std::uint64_t{entry.IBV2} << 32 | entry.IBV1;
      const std::uint16_t type = entry.DeviceType;  // a field of a packed record has no reference
      if (owner == reinterpret_cast<std::uint64_t>(handle) && legacyTypes_.contains(type)) {
        return true;
      }
    }
    return false;
  }

  std::string DriveReason(const DevicePath& path, const EFI_BLOCK_IO_MEDIA& media) const {
    if (media.MediaPresent == FALSE) {
      return "no medium";
    }
    if (std::string mode = LegacyOnlyReason(); !mode.empty()) {
      return mode;
    }
    if (!volumes_.OneBegins(NodesOf(path))) {
      return "no file system on it that the firmware reads";
    }
    if (media.RemovableMedia == FALSE) {
      return "the driver makes no UEFI option for a fixed disk by itself: an installer does, or bds-sim vars DIR add";
    }
    return R"(neither \EFI\BOOT\BOOTX64.EFI nor an EFI system partition on it)";
  }

  std::string OtherReason() const {
    const std::string mode = LegacyOnlyReason();
    return mode.empty() ? "the driver made none; its log tells more behind FilterBootDeviceList" : mode;
  }

  // Empty when UEFI devices are booted.
  std::string LegacyOnlyReason() const {
    const Variable* mode = store_.Find(kVeyraNvramDataName, kVeyraNvramDataGuid);
    if (mode != nullptr && mode->data.size() > kVeyraBootMode && mode->data[kVeyraBootMode] == kLegacyDevicesOnly) {
      return "the boot mode record allows legacy devices only";
    }
    const Variable* setup = store_.Find(kSetupName, kSetupGuid);
    if (setup != nullptr && setup->data.size() > kSetupUefiMode && setup->data[kSetupUefiMode] == std::byte{0}) {
      return "the server is in legacy mode (Setup's uefi_mode is 0)";
    }
    return {};
  }

  Machine& machine_;
  const HandleDatabase& handles_;
  const VariableStore& store_;
  Paths booted_;                                 // of options, and of partitions that options name
  Paths volumes_;                                // of file systems
  std::set<std::vector<std::byte>> partitions_;  // the nodes of options that begin with a partition
  std::set<std::uint16_t> legacyTypes_;
};

}  // namespace

std::vector<DeviceWithoutOption> DevicesWithoutOption(Machine& machine, const VariableStore& store) {
  return Finder(machine, store).Find();
}

}  // namespace sim

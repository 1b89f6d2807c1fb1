#include "sim/server/devices_without_option.h"

#include <algorithm>
#include <cstring>
#include <set>

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

bool Begins(Bytes whole, Bytes front) {
  return whole.size() >= front.size() && std::equal(front.begin(), front.end(), whole.begin());
}

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
      if (!CoveredByPath(path) && !CoveredByLegacyOption(handle)) {
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
    paths_.push_back(path);
  }

  // An option's path begins with this one, or with a partition's node alone.
  bool CoveredByPath(const DevicePath& device) const {
    return std::ranges::any_of(paths_, [this, &device](const DevicePath& option) {
      return Begins(option.Bytes(), NodesOf(device)) || HasPartition(device, PathNodes(option).front());
    });
  }

  bool HasPartition(const DevicePath& device, Bytes node) const {
    if (node[0] != std::byte{MEDIA_DEVICE_PATH}) {
      return false;
    }
    return std::ranges::any_of(handles_.With(ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>), [&](EFI_HANDLE handle) {
      const DevicePath path = DevicePath::Copy(handles_.Get<EFI_DEVICE_PATH_PROTOCOL>(handle));
      return Begins(path.Bytes(), NodesOf(device)) &&
             std::ranges::any_of(PathNodes(path), [node](Bytes each) { return std::ranges::equal(each, node); });
    });
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

  bool HasVolume(const DevicePath& drive) const {
    return std::ranges::any_of(handles_.With(ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>), [&](EFI_HANDLE handle) {
      const auto* path = handles_.Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
      return path != nullptr && Begins(DevicePath::Copy(path).Bytes(), NodesOf(drive));
    });
  }

  std::string DriveReason(const DevicePath& path, const EFI_BLOCK_IO_MEDIA& media) const {
    if (media.MediaPresent == FALSE) {
      return "no medium";
    }
    if (std::string mode = LegacyOnlyReason(); !mode.empty()) {
      return mode;
    }
    if (!HasVolume(path)) {
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
  std::vector<DevicePath> paths_;
  std::set<std::uint16_t> legacyTypes_;
};

}  // namespace

std::vector<DeviceWithoutOption> DevicesWithoutOption(Machine& machine, const VariableStore& store) {
  return Finder(machine, store).Find();
}

}  // namespace sim

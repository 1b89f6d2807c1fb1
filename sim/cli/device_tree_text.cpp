#include "sim/cli/device_tree_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "sim/cli/printable_text.h"
#include "sim/cli/protocol_names.h"
#include "sim/firmware/services/device_path_text.h"

namespace sim {
namespace {

constexpr std::size_t kEndSize = sizeof(EFI_DEVICE_PATH_PROTOCOL);
constexpr std::size_t kNoParent = ~std::size_t{0};

std::span<const std::byte> NodesOf(const DevicePath& path) { return path.Bytes().first(path.Size() - kEndSize); }

bool IsAbove(const DevicePath& upper, const DevicePath& lower) {
  const auto a = NodesOf(upper);
  const auto b = NodesOf(lower);
  return a.size() < b.size() && std::equal(a.begin(), a.end(), b.begin());
}

// The device with the longest path that this one's begins with.
std::size_t ParentOf(const std::vector<DeviceLine>& devices, std::size_t device) {
  std::size_t parent = kNoParent;
  for (std::size_t other = 0; other < devices.size(); ++other) {
    if (IsAbove(devices[other].path, devices[device].path) &&
        (parent == kNoParent || devices[other].path.Size() > devices[parent].path.Size())) {
      parent = other;
    }
  }
  return parent;
}

std::string TextOf(const DevicePath& path) {
  const auto text = DevicePathText(path.Bytes());
  return text ? PrintableText(*text) : "malformed path";
}

class TreeWriter {
 public:
  TreeWriter(const std::vector<DeviceLine>& devices, const Style& style) : devices_(devices), style_(style) {
    for (std::size_t device = 0; device < devices.size(); ++device) {
      parents_.push_back(ParentOf(devices, device));
    }
  }

  std::string Write() {
    WriteBelow(kNoParent, "");
    return std::move(text_);
  }

 private:
  void WriteBelow(std::size_t parent, const std::string& indent) {
    const std::string above = parent == kNoParent ? "" : TextOf(devices_[parent].path) + "/";
    for (std::size_t device = 0; device < devices_.size(); ++device) {
      if (parents_[device] != parent) {
        continue;
      }
      std::string path = TextOf(devices_[device].path);
      if (!above.empty() && path.starts_with(above)) {
        path.erase(0, above.size());
      }
      const std::string protocols = fmt::format("{}", fmt::join(devices_[device].protocols, ", "));
      text_ +=
          fmt::format("{}{}{}\n", indent, style_.Strong(path), protocols.empty() ? "" : "  " + style_.Faint(protocols));
      WriteBelow(device, indent + "  ");
    }
  }

  const std::vector<DeviceLine>& devices_;
  const Style& style_;
  std::vector<std::size_t> parents_;
  std::string text_;
};

}  // namespace

std::vector<DeviceLine> ListDevices(const HandleDatabase& handles) {
  std::vector<DeviceLine> devices;
  for (const EFI_HANDLE handle : handles.All()) {
    const auto* path = handles.Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
    if (path == nullptr) {
      continue;
    }
    DeviceLine device{DevicePath::Copy(path), {}};
    for (const HandleDatabase::Interface& interface : *handles.InterfacesOf(handle)) {
      if (!(interface.guid == ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>)) {
        device.protocols.push_back(ProtocolShortName(interface.guid));
      }
    }
    devices.push_back(std::move(device));
  }
  return devices;
}

std::string DeviceTreeText(const std::vector<DeviceLine>& devices, const Style& style) {
  return TreeWriter(devices, style).Write();
}

}  // namespace sim

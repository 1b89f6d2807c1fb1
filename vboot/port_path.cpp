#include "vboot/port_path.h"

#include "platform/device_path_text.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/option_path.h"
#include "vboot/policy_engine.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL* PathFromText() {
  if (gPolicyEngine.PathFromText == nullptr) {
    gPolicyEngine.PathFromText = LocateProtocol<EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL>();
  }
  return gPolicyEngine.PathFromText;
}

// An option that no handle stands for is known by its own path.
bool IsKnownByItsPath(const BOOT_OPTION& option) { return option.DeviceHandle == nullptr && option.FilePathList; }

const DevicePath* IfAcpi(const DevicePath* path) { return IsAcpiNode(path) ? path : nullptr; }

// Asks test for every place where the option's own path shows its device: each instance that begins at the root, and
// the disk of each that begins with a partition.
template <typename Test>
bool AnyPlaceOfOption(const VBOOT_OPTION_WRAPPER& wrapper, Test&& test) {
  for (OptionPathInstances at(*wrapper.Option); const DevicePath* node = at.Node(); at.Next()) {
    if (IsAcpiNode(node) && test(node)) {
      return true;
    }
    if (IsHardDriveNode(node) && wrapper.DiskDevicePath && test(wrapper.DiskDevicePath.get())) {
      return true;
    }
  }
  return false;
}

bool IsUnder(const PortPath& port, const VBOOT_OPTION_WRAPPER& wrapper) {
  const BOOT_OPTION& option = *wrapper.Option;
  if (IsKnownByItsPath(option)) {
    return AnyPlaceOfOption(wrapper, [&](const DevicePath* path) { return port.Begins(path); });
  }
  return port.Begins(IfAcpi(wrapper.HandlePath));
}

// The device at the port itself or, for a UEFI option, a partition or session on it.
bool IsAt(const PortPath& port, const VBOOT_OPTION_WRAPPER& wrapper) {
  const BOOT_OPTION& option = *wrapper.Option;
  if (IsKnownByItsPath(option)) {
    return AnyPlaceOfOption(wrapper, [&](const DevicePath* path) { return port.Is(path); });
  }
  const DevicePath* path = IfAcpi(wrapper.HandlePath);
  if (path == nullptr) {
    return false;
  }
  if (port.Is(path)) {
    return true;
  }
  if (IsLegacyOption(option)) {
    return false;
  }
  DebugPrint("mismatched device is UEFI\n");
  if (!port.Begins(path)) {
    return false;
  }
  DebugPrint("Device is a partial match\n");
  return port.NodeBehind(path)->Type == MEDIA_DEVICE_PATH;
}

PoolPtr<DevicePath> Convert(const CHAR16* text) {
  const auto* converter = PathFromText();
  return PoolPtr<DevicePath>(converter != nullptr ? converter->ConvertTextToDevicePath(text) : nullptr);
}

// The text's place among the converted ports, or a free one; null when there is neither.
CONVERTED_PORT* PlaceOf(const CHAR16* text) {
  for (CONVERTED_PORT& port : gPolicyEngine.Ports) {
    if (port.Text == nullptr || TextEqual(port.Text, text)) {
      return &port;
    }
  }
  return nullptr;
}

bool OptionIsUnder(const PortPath& port, const BOOT_OPTION& option, const DevicePath* handlePath) {
  if (!IsKnownByItsPath(option)) {
    return port.Begins(IfAcpi(handlePath));
  }
  for (OptionPathInstances at(option); const DevicePath* node = at.Node(); at.Next()) {
    if ((IsAcpiNode(node) || IsHardDriveNode(node)) && port.BeginsAt(at.Rest())) {
      return true;
    }
  }
  return false;
}

}  // namespace

PortPath::PortPath(const CHAR16* text) {
  CONVERTED_PORT* place = PlaceOf(text);
  if (place == nullptr) {
    own_ = Convert(text);
    path_ = own_.get();
  } else {
    if (!place->Path) {
      place->Path = Convert(text);
      place->Text = place->Path ? text : nullptr;  // a pool that has room later makes good
    }
    path_ = place->Path.get();
  }
  const UINTN size = DevicePathSize(path_);
  size_ = size > sizeof(DevicePath) ? size - sizeof(DevicePath) : 0;
}

bool PortPath::BeginsAt(Bytes path) const {
  return size_ != 0 && path.size() >= size_ && EqualMemory(path.data(), path_, size_);
}

bool PortPath::Is(const DevicePath* path) const {
  return size_ != 0 && DevicePathSize(path) == size_ + sizeof(DevicePath) && EqualMemory(path, path_, size_);
}

bool PortPath::Begins(const DevicePath* path) const {
  return BeginsAt({reinterpret_cast<const std::byte*>(path), DevicePathSize(path)});
}

const DevicePath* PortPath::NodeBehind(const DevicePath* path) const {
  return reinterpret_cast<const DevicePath*>(reinterpret_cast<const UINT8*>(path) + size_);
}

bool OptionIsUnder(const PortPath& port, const BOOT_OPTION& option) {
  return OptionIsUnder(port, option, option.DeviceHandle != nullptr ? DevicePathOf(option.DeviceHandle) : nullptr);
}

bool OptionIsUnder(const PortPath& port, const VBOOT_OPTION_WRAPPER& wrapper) {
  return OptionIsUnder(port, *wrapper.Option, wrapper.HandlePath);
}

bool DevicePathTextMatches(const CHAR16* text, const BOOT_OPTION& option) {
  return OptionIsUnder(PortPath(text), option);
}

bool IsUnderAnyPort(std::span<const CHAR16* const> ports, const BOOT_OPTION& option) {
  for (const CHAR16* port : ports) {
    if (DevicePathTextMatches(port, option)) {
      return true;
    }
  }
  return false;
}

EFI_STATUS SelectOptionsUnderPath(const CHAR16* text, TAG_CALL& call) {
  const PortPath port(text);
  bool selected = false;
  WalkOptions(call, {}, [&](VBOOT_OPTION_WRAPPER& wrapper) {
    const bool under = IsUnder(port, wrapper);
    call.Found.Text = text;
    selected = selected || under;
    return under ? TagVerdict::SelectUncounted : TagVerdict::Keep;
  });
  return selected ? EFI_SUCCESS : EFI_NOT_FOUND;
}

EFI_STATUS SelectFirstOptionAtPath(const CHAR16* text, TAG_CALL& call) {
  const PortPath port(text);
  bool selected = false;
  WalkOptions(call, {}, [&](VBOOT_OPTION_WRAPPER& wrapper) {
    selected = IsAt(port, wrapper);
    call.Found.Text = text;
    return selected ? TagVerdict::SelectAndStop : TagVerdict::Keep;
  });
  return selected ? EFI_SUCCESS : EFI_NOT_FOUND;
}

}  // namespace bds

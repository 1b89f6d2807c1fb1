// The platform's ports as device paths: fixed texts, compared with where an option's device hangs.
#pragma once

#include "support/device_path.h"
#include "vboot/option_wrapper.h"
#include "vboot/tag_processor.h"

namespace bds {

// A port that this platform lacks.
inline constexpr CHAR16 kUndefinedPort[] = u"UNDEFINED";

// The SD card's port, by controller; then the virtual media port in front of them.
inline constexpr const CHAR16* kVirtualMediaAndSdPorts[] = {
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)",
    u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x4,0x0)",
    u"PciRoot(0x0)/Pci(0x14,0x0)/USB(0x14,0x0)",
};
inline constexpr std::span<const CHAR16* const> kSdPorts = std::span(kVirtualMediaAndSdPorts).subspan(1);

// A port's text as a device path, converted once a boot.
class PortPath {
 public:
  // The path is absent when the converter cannot be had or does not know the text. text is a constant.
  explicit PortPath(const CHAR16* text);
  // True when the path at node, of these bytes, begins with the port.
  [[nodiscard]] bool BeginsAt(Bytes path) const;
  // True when the path is the port and nothing else.
  [[nodiscard]] bool Is(const DevicePath* path) const;
  // True when the handle's path (ended properly) begins with the port.
  [[nodiscard]] bool Begins(const DevicePath* path) const;
  // The node of such a path that follows the port.
  [[nodiscard]] const DevicePath* NodeBehind(const DevicePath* path) const;

 private:
  PoolPtr<DevicePath> own_;  // of a port for which the table of converted ones had no room
  const DevicePath* path_ = nullptr;
  UINTN size_ = 0;  // of the nodes, without the end node
};

// True when the option's path, or that of its device, begins with the port.
[[nodiscard]] bool OptionIsUnder(const PortPath& port, const BOOT_OPTION& option);
[[nodiscard]] bool OptionIsUnder(const PortPath& port, const VBOOT_OPTION_WRAPPER& wrapper);
// The same for a port's text.
[[nodiscard]] bool DevicePathTextMatches(const CHAR16* text, const BOOT_OPTION& option);
// For any of several ports.
[[nodiscard]] bool IsUnderAnyPort(std::span<const CHAR16* const> ports, const BOOT_OPTION& option);

// Selects every option under the port, without counting. EFI_NOT_FOUND when there is none.
EFI_STATUS SelectOptionsUnderPath(const CHAR16* text, TAG_CALL& call);
// Selects and counts the first option that is the port's device, or a partition on it. EFI_NOT_FOUND when there is
// none.
EFI_STATUS SelectFirstOptionAtPath(const CHAR16* text, TAG_CALL& call);

}  // namespace bds

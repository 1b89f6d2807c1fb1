// The boot policy engine as the rest of the driver sees it.
#pragma once

#include <span>

#include "bootopt/boot_option.h"
#include "platform/device_path_text.h"
#include "platform/pci_io.h"
#include "support/format.h"
#include "support/pool.h"

struct FLEXBOOT_ORDER_HEADER;

namespace bds {

// Boot modes of a policy.
inline constexpr UINT8 kBootModeLegacy = 0;
inline constexpr UINT8 kBootModeUefi = 1;
inline constexpr UINT8 kBootModeOther = 2;

// A port's text, a constant, and the path that it stands for.
struct CONVERTED_PORT {
  const CHAR16* Text = nullptr;  // null: free
  KeptPtr<EFI_DEVICE_PATH_PROTOCOL> Path;
};
// A PCI function and where it sits; the interface is not owned.
struct PCI_PLACE {
  EFI_PCI_IO_PROTOCOL* PciIo = nullptr;
  UINTN Bus = 0;
  UINTN Device = 0;
  UINTN Function = 0;
};

inline constexpr UINTN kConvertedPorts = 24;  // more than the tags and the report name

// Everything of the policy engine that outlives a routine.
struct POLICY_ENGINE_STATE {
  FLEXBOOT_ORDER_HEADER* FlexBootOrder = nullptr;  // the policy record's interface, located once and kept
  UINT8 TaggedByPolicy = 0;          // 1 when targets gave the options their tags, also when the policy was withdrawn
  UINT8 BotUpdatedOldWay = 0;        // 1 when the BMC updated the boot order table the old way: no policy applies then
  UINT8 BootMode = kBootModeLegacy;  // the policy's; set with its targets, and for the STBU mode
  UINT8 ManagementMode = 0;          // IsRackZephan, asked once when the tagging begins
  KeptPtr<char> PolicyDebugText;     // human-readable policy text; goes to the BMC as a comment of the report
  UINTN PolicyDebugTextSize = 0;
  UINTN PolicyDebugTextUsed = 0;

  EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL* PathFromText = nullptr;  // located on first use
  CONVERTED_PORT Ports[kConvertedPorts];  // the platform's ports as paths, each converted on first use (port_path.h)

  // All PCI functions, listed when an option is first looked for by its place and given back when the options are
  // tagged (option_pci.h).
  KeptPtr<PCI_PLACE> PciPlaces;
  UINTN PciPlaceCount = 0;

  // The base of the target that a category was first used by; a policy may use each of these once. 0: not yet.
  UINT32 LanAnyBase = 0;
  UINT32 SanAnyBase = 0;
  UINT32 NvmeAnyBase = 0;
  UINT32 LocalStorageAnyBase = 0;
  // Which tags of a pair of SAN loaders were seen: 1 primary, 2 secondary.
  UINT8 PathPairSeen = 0;
  UINT8 NamePairSeen = 0;
};
extern constinit POLICY_ENGINE_STATE gPolicyEngine;

// The step that gives options their tags: the policy's when there is one, else the default group tags.
void VBootSetBootOptionTags();

// True when a boot policy is in force on this boot; on TRUE the record's interface is returned when asked for.
[[nodiscard]] bool HaveVbootPolicy(FLEXBOOT_ORDER_HEADER** order = nullptr);
// True when the Setup variable switches the UEFI boot of the STBU mode on.
[[nodiscard]] bool IsStbuEfiEnabled();

// One of the device path tests: the instance begins with the stand-in vendor node.
[[nodiscard]] bool VeyraStandinDevicePathTest(const EFI_DEVICE_PATH_PROTOCOL* instance, const BOOT_DEVICE& device);

// The name that a driver managing the handle, or a controller above it, gives; false when there is none.
[[nodiscard]] bool GetControllerDeviceName(EFI_HANDLE handle, PoolPtr<char>& name);

// Adds one formatted line, cut to 299 characters, to the policy debug text.
void AppendPolicyDebugTextV(const char* format, std::span<const FormatArgument> arguments);
template <typename... Args>
void AppendPolicyDebugText(FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
  AppendPolicyDebugTextV(format.Text(), {arguments, sizeof...(Args)});
}
// Adds bytes as they are.
void AppendPolicyDebugData(std::span<const std::byte> data);

}  // namespace bds

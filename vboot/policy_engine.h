// The boot policy engine as the rest of the driver sees it.
#pragma once

#include <span>

#include "bootopt/boot_option.h"
#include "support/format.h"
#include "support/pool.h"

struct FLEXBOOT_ORDER_HEADER;

namespace bds {

// Everything of the policy engine that outlives a routine.
struct POLICY_ENGINE_STATE {
  FLEXBOOT_ORDER_HEADER* FlexBootOrder = nullptr;  // the policy record's interface, located once and kept
  UINT8 BotUpdatedOldWay = 0;   // 1 when the BMC updated the boot order table the old way: no policy applies then
  UINT8 BootMode = 0;           // the policy's boot mode: 0 legacy, 1 UEFI, 2 other
  KeptPtr<char> PolicyDebugText;  // human-readable policy text; goes to the BMC as a comment of the report
  UINTN PolicyDebugTextSize = 0;
  UINTN PolicyDebugTextUsed = 0;
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

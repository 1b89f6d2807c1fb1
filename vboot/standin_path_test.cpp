// Recognises the path of an option that stands in for a device of the policy.
#include "bootopt/vendor_nodes.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "vboot/policy_engine.h"

namespace bds {

bool VeyraStandinDevicePathTest(const EFI_DEVICE_PATH_PROTOCOL* instance, const BOOT_DEVICE&) {
  if (!IsVendorNode(instance, HARDWARE_DEVICE_PATH, HW_VENDOR_DP, kVeyraStandinGuid)) {
    return false;
  }
  DebugPrint("Matched a Veyra standin device path\n");
  return true;
}

}  // namespace bds

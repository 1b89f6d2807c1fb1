#include "flexboot/used_policy.h"

#include "flexboot/state.h"
#include "platform/flexboot_protocol.h"
#include "support/debug_print.h"
#include "support/services.h"
#include "support/text.h"
#include "support/variables.h"

namespace bds {
namespace {

POLICY_DIGEST DigestOf(const char* text) {
  POLICY_DIGEST digest{.Length = static_cast<UINT32>(TextLength(text))};
  if (digest.Length != 0) {
    static_cast<void>(BootServices()->CalculateCrc32(const_cast<char*>(text), digest.Length, &digest.Crc));
  }
  return digest;
}

}  // namespace

bool WasUsedBefore(const char* text) {
  gFlexBoot.OneTimeDigest = DigestOf(text);
  POLICY_DIGEST noted;
  UINTN size = 0;
  const EFI_STATUS status =
      ReadVariableInto(kUsedPolicyName, kPolicyVariablesGuid, std::as_writable_bytes(std::span(&noted, 1)), size);
  return !EFI_ERROR(status) && size == sizeof(noted) && noted.Length == gFlexBoot.OneTimeDigest.Length &&
         noted.Crc == gFlexBoot.OneTimeDigest.Crc;
}

void NoteUsedPolicy() {
  const EFI_STATUS status =
      SetVariableReplacing(kUsedPolicyName, kPolicyVariablesGuid, kNonVolatileBoot, AsBytes(gFlexBoot.OneTimeDigest));
  DebugPrint("%a:The BMC does not know that its policy was used, noted in NVRAM:%r\n", "NoteUsedPolicy", status);
}

void ForgetUsedPolicy() {
  if (VariableExists(kUsedPolicyName, kPolicyVariablesGuid)) {
    static_cast<void>(DeleteVariableFirmly(kUsedPolicyName, kPolicyVariablesGuid));
  }
}

}  // namespace bds

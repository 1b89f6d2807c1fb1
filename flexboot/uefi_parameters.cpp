// What the policy says of loaders, gathered target by target while the policy is read.
#include "flexboot/loader_text.h"
#include "flexboot/policy_parser.h"
#include "flexboot/state.h"
#include "flexboot/xml_tokens.h"
#include "support/debug_print.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr char kExtractUefiParameters[] = "ExtractUefiParameters";

EFI_STATUS NextToken(XML_CURSOR& cursor, const XML_TOKENS& tokens) {
  const EFI_STATUS status = GetNextToken(cursor, tokens.Token.get(), tokens.Value.get());
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed obtaining next token:%r\n", kExtractUefiParameters, status);
  }
  return status;
}

// The elements of a loader within a group of a SAN target, by their distance from the group's first operation.
constexpr const char* kLoaderTokens[] = {kLoaderPathToken, kLoaderNameToken, kLoaderDeviceNameToken};

// Stores the loader of a SAN group, up to the group's end.
EFI_STATUS ReadSanGroup(XML_CURSOR& cursor, const XML_TOKENS& tokens, const char* groupEnd, SAN_OPERATION first) {
  for (;;) {
    if (const EFI_STATUS status = NextToken(cursor, tokens); EFI_ERROR(status)) {
      return status;
    }
    if (TextEqual(tokens.token(), groupEnd)) {
      return EFI_SUCCESS;
    }
    for (UINTN i = 0; i < std::size(kLoaderTokens); ++i) {
      if (!TextEqual(tokens.token(), kLoaderTokens[i])) {
        continue;
      }
      const EFI_STATUS status = SanLoaderData(static_cast<INT8>(first + static_cast<INT8>(i)), tokens.value());
      if (EFI_ERROR(status)) {
        return status;
      }
    }
  }
}

EFI_STATUS AddTag(POLICY_TARGET& target, const char* name, const char* value) {
  DebugPrint("Adding %a and %a\n", name, value);
  return AppendPolicyTag(target.TagList, name, value) ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

EFI_STATUS AddPathTag(POLICY_TARGET& target, const char* name, const char* value) {
  PoolPtr<char> normalized;
  static_cast<void>(NormalizeLoaderPath(value, normalized));
  return normalized && AppendPolicyTag(target.TagList, name, normalized.get()) ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

// Takes what one token outside the SAN groups says of a loader.
EFI_STATUS TakeLoaderElement(const XML_TOKENS& tokens, POLICY_TARGET& target) {
  const char* token = tokens.token();
  if (*tokens.value() == 0) {
    return EFI_SUCCESS;
  }
  if (TextEqual(token, kLoaderPathToken)) {
    return AddPathTag(target, token + 1, tokens.value());
  }
  for (const char* plain : {kPartitionGuidToken, kLoaderNameToken, kLoaderDeviceNameToken}) {
    if (TextEqual(token, plain)) {
      return AddTag(target, token + 1, tokens.value());
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS ReadTarget(XML_CURSOR& cursor, const XML_TOKENS& tokens, POLICY_TARGET& target) {
  bool primarySeen = false;
  for (;;) {
    EFI_STATUS status = NextToken(cursor, tokens);
    if (EFI_ERROR(status)) {
      return status;
    }
    if (TextEqual(tokens.token(), kTargetGroupEnd)) {
      break;
    }
    if (TextEqual(tokens.token(), kPrimaryLoaderGroup)) {
      DebugPrint("SAN extraction 1\n");
      primarySeen = true;
      status = ReadSanGroup(cursor, tokens, kPrimaryLoaderGroupEnd, SAN_PRI_LDR_PATH);
    } else if (TextEqual(tokens.token(), kSecondaryLoaderGroup)) {
      DebugPrint("SAN extraction 2\n");
      status = ReadSanGroup(cursor, tokens, kSecondaryLoaderGroupEnd, SAN_SEC_LDR_PATH);
    } else {
      status = TakeLoaderElement(tokens, target);
    }
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  return primarySeen ? SanLoaderData(&target) : EFI_SUCCESS;
}

bool CreateListOnFirstUse() {
  if (!gFlexBoot.mUefiParamTargets) {
    gFlexBoot.mUefiParamTargets = NewListHeader<POLICY_TARGET>();
  }
  return static_cast<bool>(gFlexBoot.mUefiParamTargets);
}

}  // namespace

EFI_STATUS ExtractUefiParameters(const XML_CURSOR& cursor) {
  DebugPrint("Checking for UEFI parameters\n");
  XML_CURSOR copy = cursor;
  XML_TOKENS tokens;
  if (!CreateListOnFirstUse() || !AllocateTokens(tokens, kExtractUefiParameters)) {
    return EFI_OUT_OF_RESOURCES;
  }
  POLICY_TARGET* target = NewPolicyTarget(*gFlexBoot.mUefiParamTargets.get());
  if (target == nullptr) {
    return EFI_OUT_OF_RESOURCES;
  }
  SanLoaderData(SAN_FORGET);
  if (const EFI_STATUS status = ReadTarget(copy, tokens, *target); EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("End of target\n");
  DebugPrint("On exit, original ptr is %d. Local is %d.\n", cursor.Offset, copy.Offset);
  return EFI_SUCCESS;
}

}  // namespace bds

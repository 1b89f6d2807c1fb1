#include "flexboot/loader_text.h"

#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/text.h"

namespace bds {
namespace {

bool IsPathPlace(INT8 operation) { return operation == SAN_PRI_LDR_PATH || operation == SAN_SEC_LDR_PATH; }

bool IsPlace(INT8 operation) { return operation >= 0 && operation < static_cast<INT8>(kSanTextCount); }

// The text as the place holds it; null for an empty path, and when the pool is exhausted.
PoolPtr<char> TextFor(INT8 operation, const char* text) {
  if (!IsPathPlace(operation)) {
    return CopyText(text, TextLength(text));
  }
  PoolPtr<char> path;
  if (*text != 0) {
    static_cast<void>(NormalizeLoaderPath(text, path));
  }
  return path;
}

void SayOperation(INT8 operation) { DebugPrint("SAN is \"special\": op %d\n", operation); }

}  // namespace

bool NormalizeLoaderPath(const char* path, PoolPtr<char>& normalized) {
  constexpr UINTN kAddedCharacters = 3;  // a backslash at either end, and the NUL
  normalized = AllocateArray<char>(TextLength(path) + kAddedCharacters);
  if (!normalized) {
    return false;
  }
  bool corrected = false;
  UINTN length = 0;
  if (*path != '\\') {
    DebugPrint("MALFORMED DATA!\n  Path does not start with a \\.\n  Correctable invalid user input.\n");
    normalized[length++] = '\\';
    corrected = true;
  }
  for (; *path != 0; ++path) {
    char character = *path;
    if (character == '/') {
      DebugPrint("MALFORMED DATA!\n  Fowrard slash (/) detected.\n");
      DebugPrint("UEFI != Linux, replacing offending character.\n  Correctable invalid user input.\n");
      character = '\\';
      corrected = true;
    }
    if (character == '\\' && length != 0 && normalized[length - 1] == '\\') {
      DebugPrint("MALFORMED DATA!\n  a double '\\' detected.\n");
      DebugPrint("  This can cause problems, ignoring the second '\\'.\n  Correctable invalid user input.\n");
      corrected = true;
      continue;
    }
    normalized[length++] = character;
  }
  if (normalized[length - 1] != '\\') {
    DebugPrint("MALFORMED DATA!\n  Path does not end with a \\.\n  Correctable invalid user input.\n");
    normalized[length++] = '\\';
  }
  normalized[length] = 0;
  return corrected;
}

EFI_STATUS SanLoaderData(INT8 operation, const char* text) {
  SayOperation(operation);
  if (operation == SAN_FORGET) {
    for (KeptPtr<char>& place : gFlexBoot.SanLoader) {
      place.reset();
    }
    return EFI_SUCCESS;
  }
  if (!IsPlace(operation) || text == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  PoolPtr<char> stored = TextFor(operation, text);
  const bool isEmptyPath = IsPathPlace(operation) && *text == 0;
  if (!stored && !isEmptyPath) {
    return EFI_OUT_OF_RESOURCES;
  }
  gFlexBoot.SanLoader[operation] = std::move(stored);
  return EFI_SUCCESS;
}

EFI_STATUS SanLoaderData(POLICY_TARGET* target) {
  SayOperation(SAN_ADD_TAGS);
  if (target == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  for (UINTN i = 0; i < kSanTextCount; ++i) {
    KeptPtr<char>& place = gFlexBoot.SanLoader[i];
    if (!place) {
      place = CopyText("", 0);
    }
    if (!place || !AppendPolicyTag(target->TagList, kSanTags[i], place.get())) {
      return EFI_OUT_OF_RESOURCES;
    }
  }
  return EFI_SUCCESS;
}

}  // namespace bds

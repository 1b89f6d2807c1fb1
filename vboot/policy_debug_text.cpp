// The policy debug text: what the policy engine saw and did, for the people who read the report on the BMC.
#include "support/debug_print.h"
#include "support/memory.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr UINTN kGrowth = 1024;
constexpr UINTN kShortLine = 150;  // with the NUL
constexpr UINTN kLongLine = 300;
constexpr UINTN kDumpLineBytes = 80;

// Enlarges the buffer; the text stays, and zeros follow it. False, and nothing changed, when the pool is exhausted.
bool Grow(UINTN growth) {
  POLICY_ENGINE_STATE& state = gPolicyEngine;
  const UINTN size = state.PolicyDebugTextSize + growth;
  PoolPtr<char> larger(static_cast<char*>(AllocateZeroPool(size)));
  if (!larger) {
    return false;
  }
  CopyMemory(larger.get(), state.PolicyDebugText.get(), state.PolicyDebugTextUsed);
  state.PolicyDebugText = std::move(larger);
  state.PolicyDebugTextSize = size;
  return true;
}

bool CreateOnFirstUse() { return gPolicyEngine.PolicyDebugText || Grow(kGrowth); }

// True when the bytes and a NUL behind them fit.
bool HasRoomFor(UINTN length) { return gPolicyEngine.PolicyDebugTextUsed + length < gPolicyEngine.PolicyDebugTextSize; }

void Append(const void* bytes, UINTN length) {
  CopyMemory(gPolicyEngine.PolicyDebugText.get() + gPolicyEngine.PolicyDebugTextUsed, bytes, length);
  gPolicyEngine.PolicyDebugTextUsed += length;
}

void DumpLine(std::span<const std::byte> bytes) {
  constexpr UINTN kEscapeLength = 4;  // \xNN
  char line[kDumpLineBytes * kEscapeLength + 1];
  UINTN used = 0;
  for (const std::byte value : bytes) {
    const auto character = static_cast<UINT8>(value);
    const std::span<char> rest = std::span(line).subspan(used);
    used += character >= ' ' && character <= '~' ? FormatAscii(rest, "%c", character)
                                                 : FormatAscii(rest, "\\x%02x", character);
  }
  DebugPrintText(line);
  DebugPrint("\n");
}

void DumpData(std::span<const std::byte> data) {
  while (!data.empty()) {
    const UINTN length = data.size() < kDumpLineBytes ? data.size() : kDumpLineBytes;
    DumpLine(data.first(length));
    data = data.subspan(length);
  }
}

}  // namespace

void AppendPolicyDebugTextV(const char* format, std::span<const FormatArgument> arguments) {
  char line[kLongLine];
  UINTN length = FormatAsciiV(std::span(line).first(kShortLine), format, arguments);
  if (length == kShortLine - 1) {
    length = FormatAsciiV(line, format, arguments);
  }
  if (!CreateOnFirstUse() || (!HasRoomFor(length) && !Grow(kGrowth))) {
    return;
  }
  Append(line, length);
}

void AppendPolicyDebugData(std::span<const std::byte> data) {
  if (!CreateOnFirstUse()) {
    return;
  }
  DebugPrint("On entry, offset 0x%x, input size to add 0x%x (%d)\n", gPolicyEngine.PolicyDebugTextUsed, data.size(),
             data.size());
  DumpData(data);
  if (!HasRoomFor(data.size())) {
    DebugPrint("buffer reallocate\n");
    if (!Grow(data.size())) {
      return;
    }
  }
  Append(data.data(), data.size());
  DebugPrint("On exit, offset 0x%x\n", gPolicyEngine.PolicyDebugTextUsed);
  DebugPrint("last char is %x\n", static_cast<UINT8>(gPolicyEngine.PolicyDebugText[gPolicyEngine.PolicyDebugTextUsed]));
}

}  // namespace bds

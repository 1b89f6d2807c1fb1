// Debug messages: one routine formats, one sink prints (the first serial port).
#pragma once

#include "support/format.h"

namespace bds {

inline constexpr UINT64 DEBUG_LEVEL_ALL = ~UINT64{0};  // printed under every mask but 0
inline constexpr UINT64 DEBUG_LEVEL_STEP = 0x20;       // the line before each step
inline constexpr UINT64 DEBUG_DEFAULT_MASK = 0x80000046;

struct DEBUG_STATE {
  UINT64 Mask = DEBUG_DEFAULT_MASK;  // set once by the entry point; a message prints when it shares a bit
  BOOLEAN PortStuck = FALSE;         // the transmitter did not become empty in time; nothing is printed any more
};
extern constinit DEBUG_STATE gDebug;

// Takes "debug-mask=" and a number (decimal, or hexadecimal with 0x) from the image's load options, if they say so.
void InitializeDebugMask(EFI_HANDLE imageHandle);

void DebugPrintV(UINT64 level, const char* format, std::span<const FormatArgument> arguments);

// Prints when level and mask have a bit in common.
template <typename... Args>
void DebugPrintAt(UINT64 level, FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
  DebugPrintV(level, format.Text(), {arguments, sizeof...(Args)});
}

// The driver's own messages: all level bits.
template <typename... Args>
void DebugPrint(FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
  DebugPrintV(DEBUG_LEVEL_ALL, format.Text(), {arguments, sizeof...(Args)});
}

// A text of any length: from 120 characters on it leaves in pieces of 100.
void DebugPrintText(const char* text);
void DebugPrintText(const CHAR16* text);

// Bytes as lines of 16, each with its offset, in hexadecimal and as characters.
void DebugHexDump(std::span<const std::byte> bytes);

}  // namespace bds

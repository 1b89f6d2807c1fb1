// Variable names as file names: UTF-16 to UTF-8 and back without loss, whatever a caller of SetVariable invented.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/uefi_base.h"

namespace sim {

// UTF-8; a lone surrogate keeps its own three bytes, so that every UTF-16 text comes back.
std::string Utf8FromUtf16(std::u16string_view text);
// Nothing for bytes that Utf8FromUtf16 never writes (overlong forms, numbers above 0x10FFFF, cut sequences).
std::optional<std::u16string> Utf16FromUtf8(std::string_view text);

// "Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8c", the file name that Linux's efivarfs gives a variable. A slash and
// a per cent sign in the name become %2F and %25.
std::string VariableFileName(std::u16string_view name, const EFI_GUID& guid);

struct ParsedVariableFileName {
  std::u16string name;
  EFI_GUID guid;
};
// Nothing, with the reason in error, when it is not such a file name; the GUID must be in lower case.
std::optional<ParsedVariableFileName> ParseVariableFileName(std::string_view fileName, std::string& error);

}  // namespace sim

// GUIDs as text, in the registry form "8BE4DF61-93CA-11D2-AA0D-00E098032B8C".
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

#include "platform/uefi_base.h"

namespace sim {

// Upper-case text of 36 characters.
std::string GuidText(const EFI_GUID& guid);
// The GUID of such a text in either case; nothing when it is not exactly one.
std::optional<EFI_GUID> ParseGuid(std::string_view text);

// A total order for maps keyed by GUID.
struct GuidLess {
  bool operator()(const EFI_GUID& left, const EFI_GUID& right) const;
};

}  // namespace sim

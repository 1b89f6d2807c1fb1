// Which boot options are of the kind that a boot request asks for, read off their device paths.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"
#include "sim/server/load_option_view.h"

namespace sim {

enum class RequestAction { Nothing, Device, Setup, Unknown };

struct RequestKind {
  RequestAction action = RequestAction::Unknown;
  const char* words = "";  // "a hard disk"
  std::uint16_t bbsType = 0;
  std::uint16_t otherBbsType = 0;  // 0: none
  std::uint8_t nodeType = 0;       // of the node that a UEFI option of this kind has
  std::uint8_t nodeSubType = 0;
};
// By device selector (IPMI 2.0, table 28-14, data 2 bits 5:2).
const RequestKind& KindOfRequest(std::uint8_t selector);

bool IsOfKind(const LoadOption& option, const RequestKind& kind, bool efi);
// The numbers of all options of that kind.
std::vector<std::uint16_t> OptionsOfKind(const VariableStore& store, const RequestKind& kind, bool efi);

}  // namespace sim

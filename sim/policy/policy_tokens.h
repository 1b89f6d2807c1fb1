// A policy's text cut into tokens by the driver's own tokenizer, each with its place.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

struct PolicyToken {
  std::size_t offset = 0;  // of its '<'
  std::size_t end = 0;     // behind what the tokenizer took for it
  std::string name;        // with the '<'
  std::string value;       // as the tokenizer gives it
};

struct PolicyTokens {
  std::vector<PolicyToken> tokens;
  EFI_STATUS first = EFI_SUCCESS;  // of the first token: a text without declaration has none
};

// The text up to kPolicyTextLimit bytes. The driver's state of reading is left as if nothing had been read.
PolicyTokens TokenizePolicy(std::string_view text);

// True for the value that stands for none.
bool IsNoValue(const PolicyToken& token);

}  // namespace sim

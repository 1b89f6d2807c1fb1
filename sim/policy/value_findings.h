// What becomes of one value of a policy, and whether that is what its author meant.
#pragma once

#include <string>

#include "flexboot/policy_format.h"

namespace sim {

// An objection to the value under the layout's conversion, in an author's words; empty when there is none.
std::string ObjectToValue(const bds::LayoutField& field, const std::string& value);
// The same of a header's element.
std::string ObjectToHeaderValue(const bds::HeaderElementRow& row, const std::string& value);

}  // namespace sim

// A policy record in words. Texts of the policy are given as they are: whoever shows them makes them safe.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "flexboot/policy_format.h"

namespace sim {

// Lines on the header.
std::vector<std::string> DescribePolicyHeader(const FLEXBOOT_ORDER_HEADER& header);
// Lines on one target: its type first, then each value that is present.
std::vector<std::string> DescribePolicyTarget(const FLEXBOOT_TARGET& target);
// A whole record, as it lies in the variable FlexBootOrder; one line that says so when the bytes are none.
std::vector<std::string> DescribePolicyRecord(std::span<const std::byte> bytes);

}  // namespace sim

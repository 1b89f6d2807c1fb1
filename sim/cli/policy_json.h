// A policy's story as JSON: docs/bds-sim.md describes every member.
#pragma once

#include <nlohmann/json.hpp>

#include "sim/policy/policy_story.h"

namespace sim {

nlohmann::ordered_json PolicyJson(const PolicyStory& story);

}  // namespace sim

// A boot's story for people: why each option stands where it stands.
#pragma once

#include <string>

#include "sim/cli/style.h"
#include "sim/policy/policy_story.h"
#include "sim/server/server.h"

namespace sim {

// Boots with this request end with their story. All four are alive during each.
void TellStory(BootRequest& request, PolicyListener& listener, const Server& server, PolicyStory& story);

// What the summary and explain say before anything else; empty when there is nothing of that rank.
std::string NothingCanBootText(const std::string& bootType);

// The policy with its targets and tags, or how the order comes about without one; then the options in order. Every line
// ends with a line feed.
std::string ExplainText(const PolicyStory& story, const BootReport& report, const Style& style);

}  // namespace sim

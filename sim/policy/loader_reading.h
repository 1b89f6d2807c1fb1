// What a policy says of the loaders of one target. The driver reads a target twice: once for its own elements, once for
// its loaders, and the second time it compares names letter for letter.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "sim/policy/policy_tokens.h"

namespace sim {

// In the order of the text. Of a SAN pair the names begin with "Pri " or "Sec ". A path is as the driver keeps it.
struct LoaderText {
  std::string name;
  std::string value;
};

struct LoaderReading {
  std::vector<LoaderText> texts;
  const char* missing = nullptr;  // the closing tag that the text lacks, for which the driver refuses it; else null
};

// tokens: those behind the target's opening tag, to the end of the policy.
LoaderReading ReadLoaders(std::span<const PolicyToken> tokens);

// True for a tag that the reader of loaders looks for, in any letter case.
bool IsLoaderToken(const PolicyToken& token);
// True when it is also written as that reader wants it.
bool IsExactLoaderToken(const PolicyToken& token);

// The path with one backslash between its parts and at both ends.
std::string NormalLoaderPath(const std::string& path);

}  // namespace sim

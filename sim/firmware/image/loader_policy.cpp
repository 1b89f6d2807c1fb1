// Which rule a path falls under.
#include "sim/firmware/image/loader_policy.h"

#include <algorithm>
#include <cctype>

namespace sim {

LoaderRule LoaderPolicy::For(const std::string& path) const {
  const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
  for (const LoaderRule& rule : rules) {
    const auto& part = rule.pathPart;
    if (std::search(path.begin(), path.end(), part.begin(), part.end(), same) != path.end()) {
      return rule;
    }
  }
  return {"", action, status};
}

}  // namespace sim

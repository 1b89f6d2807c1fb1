#include "sim/firmware/counters.h"

#include <algorithm>

namespace sim {

void Counters::Add(std::string_view name, std::uint64_t amount) {
  const auto found = counts_.find(name);
  if (found == counts_.end()) {
    counts_.emplace(name, amount);
    return;
  }
  found->second += amount;
}

std::uint64_t Counters::Of(std::string_view name) const {
  const auto found = counts_.find(name);
  return found == counts_.end() ? 0 : found->second;
}

void Counters::Complain(std::string text) {
  if (const std::string offender = offender_ ? offender_() : std::string(); !offender.empty()) {
    if (foreignComplaints_.size() < kMaxComplaints) {
      foreignComplaints_.push_back(offender + ": " + text);
    }
    return;
  }
  ++complaintCount_;
  if (complaints_.size() < kMaxComplaints) {
    complaints_.push_back(std::move(text));
  }
}

bool Counters::HasComplaint(std::string_view part) const {
  return std::any_of(complaints_.begin(), complaints_.end(),
                     [part](const std::string& text) { return text.find(part) != std::string::npos; });
}

}  // namespace sim

#include "sim/server/loader_order_watch.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "sim/server/boot_recorder.h"

namespace sim {
namespace {

constexpr const char* kReview = "AdjustEfiOsBootOrder";

std::vector<OptionReport> Listed(const VariableStore& store) {
  std::vector<std::uint16_t> order;
  std::vector<OptionReport> options = ReportOptions(store, order);
  std::set<std::uint16_t> seen;
  std::erase_if(options, [&seen](const OptionReport& option) {
    return !option.inOrder || !option.readable || !seen.insert(option.number).second;
  });
  return options;
}

bool IsLoader(const OptionReport& option) {
  return option.path.starts_with("HD(") && option.path.find("/\\") != std::string::npos;
}

bool SameLoader(const OptionReport& a, const OptionReport& b) {
  return std::ranges::equal(
      a.path, b.path, [](unsigned char one, unsigned char other) { return std::tolower(one) == std::tolower(other); });
}

// Numbers may be given anew.
bool SameOption(const OptionReport& a, const OptionReport& b) { return a.name == b.name && a.path == b.path; }

// Something that stood behind it before stands in front of it now.
bool WasOvertaken(const std::vector<OptionReport>& before, std::size_t from, const std::vector<OptionReport>& now,
                  std::size_t to) {
  return std::any_of(before.begin() + static_cast<std::ptrdiff_t>(from) + 1, before.end(),
                     [&now, to](const OptionReport& behind) {
                       const auto end = now.begin() + static_cast<std::ptrdiff_t>(to);
                       return std::any_of(now.begin(), end,
                                          [&behind](const OptionReport& option) { return SameOption(option, behind); });
                     });
}

}  // namespace

void LoaderOrderWatch::OnStep(const std::string& step, const VariableStore& store) {
  if (step == kReview) {
    reviewed_ = Listed(store);
    before_ = reviewed_;
    return;
  }
  const std::vector<OptionReport> now = reviewed_.empty() ? std::vector<OptionReport>{} : Listed(store);
  for (const OptionReport& option : reviewed_) {
    if (std::ranges::find(now, option.number, &OptionReport::number) == now.end()) {
      const auto twin =
          std::ranges::find_if(now, [&option](const OptionReport& other) { return SameLoader(option, other); });
      deleted_.push_back({.number = option.number, .name = option.name, .other = {}});
      deleted_.back().other = twin == now.end() ? std::nullopt : std::optional(twin->number);
    }
  }
  reviewed_.clear();
}

std::vector<LoaderOrderChange> LoaderOrderWatch::Report(const VariableStore& store) const {
  std::vector<LoaderOrderChange> changes = deleted_;
  const std::vector<OptionReport> now = Listed(store);
  for (std::size_t from = 0; from < before_.size(); ++from) {
    const auto same = [&option = before_[from]](const OptionReport& other) { return SameOption(option, other); };
    const auto found = std::ranges::find_if(now, same);
    const auto to = static_cast<std::size_t>(found - now.begin());
    const bool candidate = IsLoader(before_[from]) && !before_[from].firmware && found != now.end();
    if (candidate && WasOvertaken(before_, from, now, to)) {
      changes.push_back(
          {LoaderOrderChange::Kind::Moved, before_[from].number, found->name, found->number, from + 1, to + 1});
    }
  }
  return changes;
}

}  // namespace sim

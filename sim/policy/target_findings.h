// What an author should know of one target as a whole: values that the engine will not take, elements that it looks at
// under a condition only or not at all, targets that select nothing.
#pragma once

#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "flexboot/policy_format.h"
#include "sim/policy/finding.h"
#include "sim/policy/loader_reading.h"

namespace sim {

struct TargetFinding {
  FindingKind kind;
  bds::TargetElement element;  // where; Unknown: of the target as a whole
  std::string text;
};

class TargetJudge {
 public:
  explicit TargetJudge(std::string_view bootType) : legacy_(bootType == "legacy"), uefi_(bootType == "uefi") {}

  // Targets are given in the policy's order, those that can be used only.
  std::vector<TargetFinding> Judge(const FLEXBOOT_TARGET& target, std::span<const LoaderText> loaders);

 private:
  void Say(FindingKind kind, bds::TargetElement element, std::string text);
  bool Given(bds::TargetElement element) const;
  std::uint64_t Number(bds::TargetElement element) const;
  std::string TextOf(bds::TargetElement element) const;
  void JudgeKind();
  void JudgeIgnored();
  void JudgeNumbers();
  void JudgeAdapter();
  void JudgeLoaders(std::span<const LoaderText> loaders);

  bool legacy_;
  bool uefi_;
  std::set<bds::TargetType> seen_;
  const FLEXBOOT_TARGET* target_ = nullptr;
  bds::TargetType type_ = bds::TargetType::Unknown;
  std::vector<TargetFinding> findings_;
};

// Where the type's layout puts the element; null when the type does not take it.
const bds::LayoutField* FindLayoutField(bds::TargetType type, bds::TargetElement element);

// "<PciVid"
std::string ElementToken(bds::TargetElement element);

}  // namespace sim

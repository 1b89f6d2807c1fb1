// What the machine measures of a boot: calls by service name, amounts by name, and complaints, the texts that say
// how the software on it broke a rule. All counts are exact and repeat from run to run.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Counters {
 public:
  // Adds to the count of that name ("GetVariable", "bmc.exchanges", "nvram.bytes"); made on first use.
  void Add(std::string_view name, std::uint64_t amount = 1);
  // The count of that name; 0 when it was never added to.
  std::uint64_t Of(std::string_view name) const;
  const std::map<std::string, std::uint64_t, std::less<>>& All() const { return counts_; }

  // Records a misuse: a double free, a protocol closed twice, a call above its task priority. The texts kept are
  // bounded (kMaxComplaints), the number is not.
  void Complain(std::string text);
  const std::vector<std::string>& Complaints() const { return complaints_; }
  // Who is to blame for what is complained of now: a name for software that is not under test, such as a loader, else
  // nothing. Its complaints are kept apart, with the name in front.
  void SetOffender(std::function<std::string()> offender) { offender_ = std::move(offender); }
  const std::vector<std::string>& ForeignComplaints() const { return foreignComplaints_; }
  std::uint64_t ComplaintCount() const { return complaintCount_; }
  // True when some complaint holds that text.
  bool HasComplaint(std::string_view part) const;

 private:
  static constexpr std::size_t kMaxComplaints = 1000;
  std::map<std::string, std::uint64_t, std::less<>> counts_;
  std::vector<std::string> complaints_;
  std::vector<std::string> foreignComplaints_;
  std::function<std::string()> offender_;
  std::uint64_t complaintCount_ = 0;
};

}  // namespace sim

// What must hold whatever the pair.
#pragma once

#include "tests/pairs/pair.h"

namespace sim::test {

struct Story {
  const World& start;
  const World& behind;  // behind the boots with the fault, and what happened then
  const Request& request;
  const std::string& fault;
  bool withdrawn = false;
  const std::vector<Seen>& faulty;
  const std::vector<Seen>& later;  // until nothing changes any more
  const Kept& expected;            // where the event alone leads
  bool expectedNetwork = false;    // which boots the network anyway
};

std::vector<Finding> Check(const Story& story);

}  // namespace sim::test

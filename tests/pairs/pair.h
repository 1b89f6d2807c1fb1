// One request, one fault and one event between two boots, all at once; and what must hold whatever they are.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tests/pairs/pair_server.h"

namespace sim::test {

struct Request {
  const char* name;
  bool csm;                        // the server has a CSM, and a request is a legacy one
  std::vector<std::string> words;  // ipmitool's; none: no request

  bool Asks() const { return !words.empty(); }
  bool Persistent() const { return words.size() > 1 && words.back() == "persistent"; }
};
std::span<const Request> Requests();

struct Pair {
  std::string start;
  const Request* request = nullptr;
  std::string fault;  // in bds-sim's words; none: empty
  std::string event;

  std::string Words() const;  // "settled/efi-once/late:6000x1@8/install"
  static std::optional<Pair> FromWords(const std::string& words);
};

// A boot as the checks see it.
struct Seen {
  BootEnd end{};
  bool started = false;
  bool network = false;  // the first thing that was tried is the network
  Ticks time = 0;
  std::vector<std::string> faults;  // a crash, leaks, misuse of services
  std::shared_ptr<const Kept> after;
};

struct Finding {
  std::string kind;  // accepted_losses.h
  std::string text;
};

// The pairs of one start and one request. Equal states are booted once.
class Bench {
 public:
  Bench(PairServer& server, const std::string& start, const Request& request);

  // Every fault that this start can meet, the empty one first.
  const std::vector<std::string>& Faults() const { return faults_; }
  std::vector<Finding> Try(const std::string& fault, const std::string& event);
  World Before() const { return start_; }
  World Behind(const std::string& fault, const std::string& event);
  std::uint64_t Boots() const { return boots_; }

 private:
  using Boots_ = std::vector<Seen>;
  struct Expected {
    Kept kept;  // settled
    bool network = false;
  };

  Seen Note(const BootReport& report, const Server& server);
  std::shared_ptr<const Kept> Intern(Kept kept);
  const Boots_& Faulty(const std::string& fault);
  const Boots_& Settle(const World& world);
  const Expected& Without(const std::string& event);
  void ListFaults();

  PairServer& server_;
  const std::string startName_;
  const Request& request_;
  World start_;
  std::vector<std::string> faults_;
  std::uint64_t boots_ = 0;
  std::map<std::string, std::uint64_t> counts_;  // of the boot without a fault
  std::unordered_map<std::string, std::shared_ptr<const Kept>> states_;
  std::unordered_map<std::string, Boots_> settled_;
  std::pair<std::string, Boots_> faulty_;  // the last one
  std::map<std::string, Expected> without_;
};

}  // namespace sim::test

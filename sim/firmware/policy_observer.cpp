#include "sim/firmware/policy_observer.h"

#include <utility>

namespace sim {
namespace {

std::function<void(const bds::POLICY_EVENT&)>& Listener() {
  static std::function<void(const bds::POLICY_EVENT&)> listener;
  return listener;
}

}  // namespace

void ListenToPolicy(std::function<void(const bds::POLICY_EVENT&)> listener) { Listener() = std::move(listener); }

}  // namespace sim

namespace bds {

void ObservePolicy(const POLICY_EVENT& event) {
  if (sim::Listener()) {
    sim::Listener()(event);
  }
}

}  // namespace bds

// The little that devices need of the firmware around them, so that they can be tried without a machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace sim {

struct BusContext {
  // Boot-services pool memory for what a caller frees; null when there is none.
  std::function<void*(std::size_t size)> allocatePool;
  // Lets virtual time pass: a transfer that times out takes its time.
  std::function<void(std::uint64_t milliseconds)> wait;
  // Whether somebody listens to what the driver does to network controllers' registers, and tells one access.
  std::function<bool()> tellsPci = {};
  std::function<void(const std::string& access)> tellPci = {};
  // After a write to a network controller's registers took effect.
  std::function<void()> onPciWrite = {};
};

}  // namespace sim

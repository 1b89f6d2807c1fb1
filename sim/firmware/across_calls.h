// A value that stays in use across calls into the software under test. EndBoot abandons the stack without running
// destructors; such a value belongs to the machine, which releases it when the boot has ended.
#pragma once

#include <list>
#include <memory>
#include <utility>

namespace sim {

// What the scopes on the stack of the running boot hold.
class HeldValues {
 public:
  using Place = std::list<std::shared_ptr<void>>::iterator;

  Place Add(std::shared_ptr<void> value) { return values_.insert(values_.end(), std::move(value)); }
  void Remove(Place place) { values_.erase(place); }
  // The scopes of an abandoned stack are never left: what they held goes here.
  void Clear() { values_.clear(); }
  std::size_t Count() const { return values_.size(); }

 private:
  std::list<std::shared_ptr<void>> values_;
};

//   AcrossCalls<std::vector<EFI_HANDLE>> children(machine.Held(), Children(controller));
//   for (EFI_HANDLE child : *children) { ... a driver's code runs ... }
template <typename Type>
class AcrossCalls {
 public:
  explicit AcrossCalls(HeldValues& held, Type value = {}) : held_(held) {
    auto made = std::make_shared<Type>(std::move(value));
    value_ = made.get();
    place_ = held_.Add(std::move(made));
  }
  ~AcrossCalls() { held_.Remove(place_); }
  AcrossCalls(const AcrossCalls&) = delete;
  AcrossCalls& operator=(const AcrossCalls&) = delete;

  Type& operator*() const { return *value_; }
  Type* operator->() const { return value_; }

 private:
  HeldValues& held_;
  Type* value_ = nullptr;
  HeldValues::Place place_;
};

}  // namespace sim

// Services without a This argument must find their model. One machine runs at a time, so each model is the current
// one of its kind from its construction to its destruction.
#pragma once

namespace sim {

template <typename Model>
class CurrentModel {
 public:
  CurrentModel(const CurrentModel&) = delete;
  CurrentModel& operator=(const CurrentModel&) = delete;
  // The model that lives now; null when none does.
  static Model* Current() { return current_; }

 protected:
  CurrentModel() { current_ = static_cast<Model*>(this); }
  ~CurrentModel() {
    if (current_ == static_cast<Model*>(this)) {
      current_ = nullptr;
    }
  }

 private:
  static inline Model* current_ = nullptr;
};

}  // namespace sim

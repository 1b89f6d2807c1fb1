// The messages of drivers about their controllers' health.
#pragma once

#include "platform/driver_health.h"

namespace bds {

// Shows messages through the setup front end, in a quiet boot only when that is allowed. Lives for one step.
class HealthMessages {
 public:
  explicit HealthMessages(bool showInQuietBoot) : showInQuietBoot_(showInQuietBoot) {}

  // list ends with a null HII handle; it may be null.
  void Show(const EFI_DRIVER_HEALTH_HII_MESSAGE* list);

 private:
  // Decided before the first message: whether anything may be shown.
  bool MayShow();
  void ShowOne(const EFI_DRIVER_HEALTH_HII_MESSAGE& message);

  bool showInQuietBoot_;
  bool decided_ = false;
  bool mayShow_ = false;
};

}  // namespace bds

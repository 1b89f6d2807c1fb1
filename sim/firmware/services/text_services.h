// The protocols that work on text and paths alone: device path to and from text, device path utilities, and Unicode
// collation under both of its GUIDs. One set serves every boot; nothing in them changes.
#pragma once

#include "platform/boot_services.h"
#include "platform/device_path_text.h"
#include "platform/device_path_utilities.h"
#include "platform/unicode_collation.h"
#include "sim/firmware/services/current.h"

namespace sim {

class TextServices : public CurrentModel<TextServices> {
 public:
  // Results that the standard gives in pool memory come from these boot services.
  explicit TextServices(EFI_BOOT_SERVICES* services);
  // Installs all of them on one new handle.
  EFI_STATUS Install();

  EFI_DEVICE_PATH_TO_TEXT_PROTOCOL* ToText() { return &toText_; }
  EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL* FromText() { return &fromText_; }
  EFI_DEVICE_PATH_UTILITIES_PROTOCOL* Utilities() { return &utilities_; }
  EFI_UNICODE_COLLATION_PROTOCOL* Collation() { return &collation_; }

  // A pool copy of these bytes; null when the pool is exhausted.
  void* PoolCopy(const void* data, std::size_t size);

 private:
  EFI_BOOT_SERVICES* services_;
  EFI_DEVICE_PATH_TO_TEXT_PROTOCOL toText_;
  EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL fromText_;
  EFI_DEVICE_PATH_UTILITIES_PROTOCOL utilities_;
  EFI_UNICODE_COLLATION_PROTOCOL collation_;
  EFI_UNICODE_COLLATION_PROTOCOL collationOld_;
};

}  // namespace sim

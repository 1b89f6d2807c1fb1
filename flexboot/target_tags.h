// Which tags a target of each type gets, in the order in which they are applied.
#pragma once

#include <span>

#include "flexboot/policy_format.h"

namespace bds {

enum class TagForm : UINT8 {
  Number,               // the value's number, when the policy gave it
  Flag,                 // 0x1 or 0x0, when the policy gave it
  Text,                 // the text, when the policy gave it
  Mac,                  // the address in a boot in UEFI mode, when the policy gave it
  PciIdentity,          // the tags of the PCI identity block
  VirtualAdapter,       // the address of the virtual function, or the managed slot
  ForgetBusWhenManaged  // a slot tells more than the bus does
};

struct TagRow {
  TagForm Form;
  const char* Name = nullptr;
  UINT16 Offset = 0;  // of the value in the type-specific data; the present flag is the byte behind it
  UINT8 Size = 1;
};

struct TargetRow {
  const char* Name = nullptr;      // of the target
  const char* FirstTag = nullptr;  // the tag that every target of the type begins with
  UINT8 AllowMultiple = 0;
  std::span<const TagRow> Tags = {};
};

// The row of a type; null for the types that give no target.
[[nodiscard]] const TargetRow* FindTargetRow(UINT8 type);

// Where the shared steps find a network's or a SAN's values.
struct VirtualAdapterFields {
  UINT16 OnVirtualAdapter;
  UINT16 Order;  // UINT64: instance within the slot
  UINT16 Slot;   // UINT64
};
[[nodiscard]] const VirtualAdapterFields& VirtualAdapterFieldsOf(TargetType type);

}  // namespace bds

// What the platform knows of a PCI function beyond its registers. One instance on the handle of each function.
#pragma once

#include "platform/uefi_base.h"

inline constexpr UINT16 kPciClassLomPort = 0x0080;         // a network port on the board
inline constexpr UINT16 kPciClassChipsetStorage = 0x0090;  // a port of the chipset's storage controller

struct VEYRA_PCI_IO_PROPERTIES {
  UINT8 Reserved0;  // must be 0; else the other fields say nothing
  UINT8 Reserved1;
  UINT16 Class;  // kPciClassLomPort, kPciClassChipsetStorage, or another number without a meaning here
};
static_assert(offsetof(VEYRA_PCI_IO_PROPERTIES, Class) == 2);

template <>
inline constexpr EFI_GUID ProtocolGuid<VEYRA_PCI_IO_PROPERTIES>{
    0xFA7023AD, 0x1CFC, 0x4F49, {0xB5, 0x4D, 0x9F, 0xE7, 0xF2, 0xE1, 0x18, 0xF8}};

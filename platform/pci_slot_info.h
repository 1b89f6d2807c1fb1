// The platform's slot information: for each PCI slot what is plugged in, and the buses behind it. One instance.
#pragma once

#include "platform/uefi_base.h"

inline constexpr UINT8 kPciSlotKindAdapter = 2;  // a slot that adapters are plugged into
inline constexpr UINT16 kPciSlotMlom = 3;        // the slot number of the modular network adapter

#pragma pack(push, 1)

// Fields called Reserved are the platform's own.
struct PCI_SLOT_ENTRY {
  UINT8 Reserved0[6];
  UINT8 SecondaryBus;    // the slot's own bus
  UINT8 SubordinateBus;  // the last bus behind it
  UINT16 VendorId;       // of the adapter
  UINT16 DeviceId;
  UINT8 Reserved12[2];
  UINT16 SubsystemVendorId;
  UINT16 SubsystemId;
  UINT8 Reserved18;
  UINT8 Kind;  // kPciSlotKindAdapter
  UINT8 Reserved20[2];
  UINT8 Enabled;  // 0: nothing there, or switched off
  UINT8 Reserved23;
  UINT16 SlotNumber;
  UINT8 Reserved26[7];
  const CHAR16* Name;  // NUL-terminated, the platform's memory
  UINT8 Reserved41[7];
};
static_assert(sizeof(PCI_SLOT_ENTRY) == 48);

// The entries follow. Offsets are those of the interface.
struct PCI_SLOT_INFO {
  UINT8 Reserved0[12];
  UINT32 Count;
  PCI_SLOT_ENTRY Entries[1];
};
static_assert(offsetof(PCI_SLOT_INFO, Count) == 12);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].SecondaryBus) == 22);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].SubordinateBus) == 23);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].VendorId) == 24);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].SubsystemVendorId) == 30);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].Kind) == 35);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].Enabled) == 38);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].SlotNumber) == 40);
static_assert(offsetof(PCI_SLOT_INFO, Entries[0].Name) == 49);

#pragma pack(pop)

template <>
inline constexpr EFI_GUID ProtocolGuid<PCI_SLOT_INFO>{
    0xE2A128FF, 0xE57B, 0xE56E, {0xED, 0xE8, 0xE3, 0xE7, 0xC7, 0xDC, 0xDF, 0xAC}};

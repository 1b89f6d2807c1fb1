// From the slots and instances by which a policy names virtual devices to PCI locations: the server's slots with their
// root ports, and the virtual NICs and HBAs of the interface cards behind them.
#pragma once

#include "platform/uefi_base.h"
#include "support/linked_list.h"

struct POLICY_PCI_IDENTITY;

namespace bds {

inline constexpr UINT8 kVirtualNic = 1;
inline constexpr UINT8 kVirtualHba = 2;

// One virtual function of an interface card.
struct VEYRA_ORLA {
  VEYRA_ORLA* Next = nullptr;
  VEYRA_ORLA* Previous = nullptr;
  UINT8 Kind = 0;         // kVirtualNic or kVirtualHba
  UINTN Instance = 0;     // from 1 in the order of discovery within the slot, both kinds counted together
  UINTN Slot = 0;         // from 1
  UINT16 SlotNumber = 0;  // the same, as it is printed
  UINT16 Bus = 0;
  UINT16 Device = 0;
  UINT16 Function = 0;
  const char* SlotName = nullptr;  // of the slot table; not owned
  UINT16 BbsIndex = 0xFFFF;        // of the BBS entry for it; 0xFFFF when legacy boot cannot start from it
};
using VEYRA_ORLA_LIST = LIST_HEADER<VEYRA_ORLA>;

// Builds gFlexBoot.VeyraOrlaList by a scan of every bus behind every slot. EFI_NOT_FOUND without the platform's memory
// block, EFI_OUT_OF_RESOURCES, EFI_DEVICE_ERROR when a slot cannot be read; the functions found so far are kept.
[[nodiscard]] EFI_STATUS CreateVeyraOrlaXlatTbl();
// Takes the riser's slot from the platform's hand-off block into gFlexBoot.BrightmereSlot. Always EFI_SUCCESS.
EFI_STATUS GetBrightmereSlot();

struct SLOT_BUSES {
  UINT8 SecondaryBus = 0xFF;  // the first bus behind the slot
  UINT8 SubordinateBus = 0;   // the last one; below the first when the slot's root ports are absent
  const char* Name = nullptr;
};
// The buses behind a slot (from 1). EFI_NOT_FOUND for a slot that the server does not have, or without the platform's
// memory block; otherwise the status of the reads.
[[nodiscard]] EFI_STATUS GetSlotBusNum(UINTN slot, SLOT_BUSES& buses);

// Fills in which virtual functions legacy boot can start from.
EFI_STATUS PostProcessOrlaList(VEYRA_ORLA_LIST& list);
// Puts the location of the function with that slot and instance into the identity and marks its address as present.
// EFI_NOT_FOUND, and nothing changed, when there is none. list may be null.
EFI_STATUS FindOrlaFunction(UINT64 slot, UINT64 instance, POLICY_PCI_IDENTITY& data, const VEYRA_ORLA_LIST* list);

}  // namespace bds

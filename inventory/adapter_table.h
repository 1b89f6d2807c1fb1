// The network controllers whose addresses are read from their own EEPROM or NVM, and what the inventory keeps of those
// that it found.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// How a controller is built in, which also says how its EEPROM or NVM is reached.
enum LOM_TYPE : UINT8 {
  LomTypeNone,
  Intel_i350_Lom,
  Intel_i350_Nic,
  Intel_Kestrelton,  // the modular adapter on the board
  Intel_x520_Lom,
  Intel_x520_Nic,
  Intel_x540_Lom,
  Intel_x540_Nic,
  Intel_x550_Nic,
  Intel_x710_Nic,
  Intel_x710_4P_Nic,
  Intel_xl710_Nic,
  LomTypeCount,
};

// A row of the table of supported controllers, or a controller that was found.
struct ADAPTER_RECORD {
  UINT64 Bus = 0xFF;  // 0xFF in a row, as are the next two
  UINT64 Device = 0xFF;
  UINT64 Function = 0xFF;
  UINT16 VendorId = 0;
  UINT16 DeviceId = 0;
  UINT8 ClassCode[3] = {};  // as configuration space holds it: interface, subclass, base class
  UINT16 SubsystemVendorId = 0;
  UINT16 SubsystemId = 0;  // 0 in a row: any
  UINT8 RevisionId = 0;
  const CHAR16* CardName = nullptr;  // of a controller that was found: a pool block that the inventory owns
  UINT8 LomType = LomTypeNone;
  UINT8 MacAddress[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  UINT8 LanPort = 0;  // of a controller that was found: counted from 1
};

inline constexpr UINT16 kIntelVendor = 0x8086;
inline constexpr UINT16 kBoardVendor = 0x1137;  // subsystem vendor of the adapters made for this server
inline constexpr UINT16 kI350Device = 0x1521;
inline constexpr UINT16 kI350LomSubsystem = 0x00D5;
inline constexpr UINT16 kEndOfAdapterTable = 0xFFFF;  // as vendor id

constexpr ADAPTER_RECORD SupportedAdapter(UINT16 device, UINT16 subsystemVendor, UINT16 subsystem, UINT8 lomType,
                                          const CHAR16* name) {
  ADAPTER_RECORD row;
  row.VendorId = kIntelVendor;
  row.DeviceId = device;
  row.SubsystemVendorId = subsystemVendor;
  row.SubsystemId = subsystem;
  row.LomType = lomType;
  row.CardName = name;
  return row;
}
constexpr ADAPTER_RECORD EndOfAdapters() {
  ADAPTER_RECORD row;
  row.VendorId = kEndOfAdapterTable;
  return row;
}

// The first row that fits a controller is its own.
inline constexpr ADAPTER_RECORD EEPROMSupported_AdapterTable[] = {
    SupportedAdapter(kI350Device, kBoardVendor, kI350LomSubsystem, Intel_i350_Lom,
                     u"I350 on-board controller, 4 ports"),
    SupportedAdapter(kI350Device, kBoardVendor, 0x00B9, Intel_i350_Nic, u"I350 adapter, 4 ports"),
    SupportedAdapter(kI350Device, kBoardVendor, 0x0133, Intel_Kestrelton, u"I350 modular adapter, 4 ports"),
    SupportedAdapter(0x10FB, kIntelVendor, 0x000C, Intel_x520_Nic, u"X520 adapter, 2 ports"),
    SupportedAdapter(0x10FB, kBoardVendor, 0x00BF, Intel_x540_Nic, u"X540 adapter, 2 ports"),
    SupportedAdapter(0x1528, kBoardVendor, 0x00BF, Intel_x540_Nic, u"X540 adapter, 2 ports"),
    SupportedAdapter(0x1563, kBoardVendor, 0, Intel_x550_Nic, u"X550 adapter, 2 ports"),
    SupportedAdapter(0x1572, kBoardVendor, 0, Intel_x710_Nic, u"X710 adapter, 2 ports"),
    SupportedAdapter(0x1572, kBoardVendor, 0, Intel_x710_4P_Nic, u"X710 adapter, 4 ports"),
    SupportedAdapter(0x1583, kBoardVendor, 0, Intel_xl710_Nic, u"XL710 adapter, 2 ports"),
    SupportedAdapter(0x1589, kBoardVendor, 0, Intel_xl710_Nic, u"XL710 adapter, 2 ports"),
    SupportedAdapter(0x158B, kBoardVendor, 0, Intel_xl710_Nic, u"XL710 adapter, 2 ports"),
    EndOfAdapters(),
};

// What identifies a controller in configuration space.
struct ADAPTER_IDS {
  UINT16 VendorId = 0;
  UINT16 DeviceId = 0;
  UINT16 SubsystemVendorId = 0;
  UINT16 SubsystemId = 0;
};

// The place of the controller's row in the table. False: it has none.
[[nodiscard]] bool FindSupportedAdapter(const ADAPTER_IDS& ids, UINTN& row);

}  // namespace bds

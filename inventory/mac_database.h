// The database of the server's network addresses as the BMC's file and the variable hold it: a header with one record
// per slot and one for the board, then one record per interface. Little-endian and packed; what is not filled is zero.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

inline constexpr EFI_GUID kMacDatabaseGuid{
    0x3DD0DE67, 0x02D7, 0x412C, {0x97, 0x4A, 0xA0, 0xCC, 0xDD, 0xEE, 0xEE, 0xEE}};
inline constexpr CHAR16 kMacDatabaseName[] = u"MacDB";
inline constexpr CHAR8 kMacDatabaseFile[] = "MacDB.bin";
// One variable per port of the board's own controller.
inline constexpr const CHAR16* kLomInterfaceNames[] = {u"LOMInterface0", u"LOMInterface1", u"LOMInterface2",
                                                       u"LOMInterface3"};

inline constexpr UINT8 kMacDatabaseSignature = 0xDB;
inline constexpr UINTN kMacDatabaseSlots = 6;
inline constexpr UINTN kMacDatabaseNameLength = 56;
inline constexpr UINT16 kSlotIdLom = 0x004C;  // 'L'
inline constexpr UINT16 kSlotIdMlom = 3;
inline constexpr UINT16 kLomMark = 0xFFFF;
inline constexpr CHAR8 kLomName[] = "Intel(R) I350 1 Gbps Network Controller";

#pragma pack(push, 1)

struct MAC_DATABASE_SLOT {
  UINT16 SlotId;
  UINT16 InterfaceCount;
  UINT8 Reserved4[4];
  CHAR8 Name[kMacDatabaseNameLength];  // without NUL when it fills the field
  UINT8 Reserved64[8];
};
static_assert(sizeof(MAC_DATABASE_SLOT) == 72);

struct MAC_DATABASE_HEADER {
  UINT8 Signature;
  UINT8 SlotCount;        // slot records filled
  UINT16 InterfaceCount;  // interface records behind the header
  UINT16 Size;            // of it all in bytes, low 16 bits
  UINT8 Reserved6[2];
  MAC_DATABASE_SLOT Slots[kMacDatabaseSlots];  // by the place of the slot in the platform's slot information
  MAC_DATABASE_SLOT Lom;
};
static_assert(offsetof(MAC_DATABASE_HEADER, Slots) == 8);
static_assert(offsetof(MAC_DATABASE_HEADER, Lom) == 440);
static_assert(sizeof(MAC_DATABASE_HEADER) == 512);

struct MAC_DATABASE_INTERFACE {
  UINT16 InterfaceId;  // from 1: port of the controller, or of the slot's ports in the order they were found
  UINT16 SlotId;       // slot number, kSlotIdMlom or kSlotIdLom
  UINT16 LomMark;      // kLomMark or 0
  UINT8 Reserved6[2];
  CHAR8 MacAddress[18];  // "%02x:%02x:%02x:%02x:%02x:%02x" with its NUL
  UINT8 Reserved26[14];
};
static_assert(offsetof(MAC_DATABASE_INTERFACE, MacAddress) == 8);
static_assert(sizeof(MAC_DATABASE_INTERFACE) == 40);

struct LOM_INTERFACE {
  UINT8 MacAddress[6];
  UINT8 LanPort;  // from 1
  UINT8 Reserved7[9];
};
static_assert(sizeof(LOM_INTERFACE) == 16);

#pragma pack(pop)

}  // namespace bds

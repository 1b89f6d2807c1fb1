// The policy record: a boot policy packed into one block of bytes. It is the interface of the FlexBootOrder protocol
// and the contents of the variable FlexBootOrder. Multi-byte numbers are little-endian and unaligned; texts are ASCII
// with their NUL; a value is followed by a byte that says whether the policy gave it.
#pragma once

#include <span>

#include "platform/flexboot_protocol.h"
#include "support/byte_reader.h"

#pragma pack(push, 1)

// NumBootTargets entries follow.
struct FLEXBOOT_ORDER_HEADER {
  CHAR8 Version[16];
  CHAR8 ServiceProfile[80];
  CHAR8 BootPolicyName[80];
  CHAR8 BootType[16];  // "legacy" or "uefi"; another text leaves the mode open
  CHAR8 BootPolicyUniqueId[128];
  UINT8 NumBootTargets;
};
static_assert(sizeof(FLEXBOOT_ORDER_HEADER) == 321);
static_assert(offsetof(FLEXBOOT_ORDER_HEADER, BootType) == 176);
static_assert(offsetof(FLEXBOOT_ORDER_HEADER, NumBootTargets) == 320);

inline constexpr UINTN kTargetDataSize = 260;

// In the policy's order. What Data holds depends on the type: one of the records below.
struct FLEXBOOT_TARGET {
  UINT8 Type;    // bds::TargetType
  UINT8 Valid;   // 1: a target that can be used
  CHAR8 RN[50];  // echoed by the report
  UINT8 Data[kTargetDataSize];
};
static_assert(sizeof(FLEXBOOT_TARGET) == 312);
static_assert(offsetof(FLEXBOOT_TARGET, Data) == 52);

// Which PCI function is meant; begins the data of the types that name an adapter.
struct POLICY_PCI_IDENTITY {
  UINT16 PciVid;
  UINT8 PciVidPresent;
  UINT16 PciDid;
  UINT8 PciDidPresent;
  UINT16 PciSubVid;
  UINT8 PciSubVidPresent;
  UINT16 PciSubDid;
  UINT8 PciSubDidPresent;
  UINT16 PciClassId;
  UINT8 PciClassIdPresent;
  UINT16 PciSubClassId;  // no element fills it
  UINT8 PciSubClassIdPresent;
  UINT8 PciSegment;
  UINT8 PciBus;  // 0xFF: any
  UINT8 PciDevice;
  UINT8 PciFunction;
  UINT8 PciAddressPresent;
  CHAR8 PciAddressText[16];  // as the policy wrote it
};
static_assert(sizeof(POLICY_PCI_IDENTITY) == 39);
static_assert(offsetof(POLICY_PCI_IDENTITY, PciSegment) == 18);
static_assert(offsetof(POLICY_PCI_IDENTITY, PciAddressText) == 23);

struct POLICY_LOCAL_HDD {
  POLICY_PCI_IDENTITY Pci;
  UINT8 ControllerId;
  UINT8 ControllerIdPresent;
  UINT8 LunId;
  UINT8 LunIdPresent;
  UINT8 RetrySameCategoryDevices;
  UINT8 RetryPresent;
  UINT8 SlotId;
  UINT8 SlotIdPresent;
};
static_assert(sizeof(POLICY_LOCAL_HDD) == 47);

struct POLICY_SAN {
  POLICY_PCI_IDENTITY Pci;
  CHAR8 WWNN[64];
  UINT8 WWNNPresent;
  CHAR8 WWPN[64];
  UINT8 WWPNPresent;
  CHAR8 PrimaryTargetWWPN[64];
  UINT8 PrimaryTargetWWPNPresent;
  UINT8 OnVirtualAdapter;
  UINT8 OnVirtualAdapterPresent;
  UINT64 VhbaOrder;
  UINT8 VhbaOrderPresent;
  UINT64 PhysicalAdaptorSlotNum;
  UINT8 PhysicalAdaptorSlotNumPresent;
  UINT8 LunId;
  UINT8 LunIdPresent;
  UINT8 RetrySameCategoryDevices;
  UINT8 RetryPresent;
  UINT8 SlotId;
  UINT8 SlotIdPresent;
};
static_assert(sizeof(POLICY_SAN) == kTargetDataSize);
static_assert(offsetof(POLICY_SAN, VhbaOrder) == 236);
static_assert(offsetof(POLICY_SAN, RetrySameCategoryDevices) == 256);

// Of LAN and ISCSI targets.
struct POLICY_LAN {
  POLICY_PCI_IDENTITY Pci;
  UINT8 MACAddress[6];
  UINT8 MACAddressPresent;
  UINT8 OnVirtualAdapter;
  UINT8 OnVirtualAdapterPresent;
  UINT64 VnicOrder;
  UINT8 VnicOrderPresent;
  UINT64 PhysicalAdaptorSlotNum;
  UINT8 PhysicalAdaptorSlotNumPresent;
  UINT8 RetrySameCategoryDevices;
  UINT8 RetryPresent;
  UINT8 SlotId;
  UINT8 SlotIdPresent;
  UINT8 PortNum;
  UINT8 PortNumPresent;
};
static_assert(sizeof(POLICY_LAN) == 72);
static_assert(offsetof(POLICY_LAN, VnicOrder) == 48);
static_assert(offsetof(POLICY_LAN, SlotId) == 68);

// Up to three one-byte values; which they are depends on the type.
struct POLICY_SMALL {
  struct {
    UINT8 Value;
    UINT8 Present;
  } Values[3];
};
static_assert(sizeof(POLICY_SMALL) == 6);

#pragma pack(pop)

namespace bds {

inline constexpr UINTN kPolicyHeaderElements = 6;

// The bytes of a whole record with that many targets.
constexpr UINTN FlexBootOrderSize(UINT8 targets) {
  return sizeof(FLEXBOOT_ORDER_HEADER) + UINTN{targets} * sizeof(FLEXBOOT_TARGET);
}
// The targets behind the header of a whole record.
inline std::span<FLEXBOOT_TARGET> PolicyTargets(FLEXBOOT_ORDER_HEADER& order) {
  return {reinterpret_cast<FLEXBOOT_TARGET*>(&order + 1), order.NumBootTargets};
}
inline std::span<const FLEXBOOT_TARGET> PolicyTargets(const FLEXBOOT_ORDER_HEADER& order) {
  return {reinterpret_cast<const FLEXBOOT_TARGET*>(&order + 1), order.NumBootTargets};
}
// The bytes are a record of the size that its header tells. False for anything else.
[[nodiscard]] bool IsWholeRecord(Bytes bytes);
// Puts a NUL at the end of every text of a record from outside. The record is whole.
void TerminateTexts(FLEXBOOT_ORDER_HEADER& order);

}  // namespace bds

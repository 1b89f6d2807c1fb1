// The policy's format as tables: the header's elements, the target types, the elements of a target, and for each type
// where the value of an element goes and how it is converted. A new target type is a row here; tools that check
// policies read the same rows.
#pragma once

#include <array>
#include <span>

#include "flexboot/policy_record.h"

namespace bds {

// A type's code in the record; its word in the policy is that of its row.
enum class TargetType : UINT8 {
  LocalStorageAny = 0,
  LocalHDDAny = 1,
  ISCSIAny = 2,
  OnboardHDD = 3,
  OnboardHDDAny = 4,
  LocalHDD = 5,
  SANAny = 6,
  SAN = 7,
  NVMEAny = 8,
  LANAny = 9,
  LAN = 10,
  ISCSI = 11,
  LocalCDD = 12,
  LocalFDD = 13,
  USB = 14,
  InternalUSB = 15,
  ExternalUSB = 16,
  SDCard = 17,
  VirtualMedia = 18,
  IXMOVMediaCDD = 19,
  KVMVMediaCDD = 20,
  IXMOVMediaHDD = 21,
  KVMVMediaHDD = 22,
  IXMOVMediaFDD = 23,
  KVMVMediaFDD = 24,
  UefiShell = 25,
  NonPolicyTarget = 26,
  Unknown = 27,  // a word that no type has
};
inline constexpr UINTN kTargetTypeCount = 28;

enum class TargetElement : UINT8 {
  RetrySameCategoryDevices = 0,
  PciVid = 1,
  PciDid = 2,
  PciSubVid = 3,
  PciSubDid = 4,
  PciClassId = 5,
  PciAddress = 7,
  PciSlotId = 8,
  ControllerId = 9,
  LunId = 10,
  WWPN = 11,
  WWNN = 12,
  PrimaryTargetWWPN = 13,
  MACAddress = 14,
  VeyraOrla = 15,
  Shell = 16,
  VnicOrder = 17,
  VhbaOrder = 18,
  PhysicalAdaptorSlotNum = 19,
  PortNum = 20,
  VMSubType = 21,
  USBSubType = 22,
  HDDSlot = 23,
  RN = 24,
  UniquePartitionGUID = 25,  // this one and the next two: of the loader, read apart from the type's layout
  BootLoaderPath = 26,
  BootLoaderName = 27,
  Unknown = 28,
};

// Element names as the tokenizer gives them, compared without regard to letter case.
struct TargetElementRow {
  const char* Token;
  TargetElement Id;
};
inline constexpr TargetElementRow kTargetElements[] = {
    {"<RetrySameCategoryDevices", TargetElement::RetrySameCategoryDevices},
    {"<PciVid", TargetElement::PciVid},
    {"<PciDid", TargetElement::PciDid},
    {"<PciSubVid", TargetElement::PciSubVid},
    {"<PciSubDid", TargetElement::PciSubDid},
    {"<PciClassId", TargetElement::PciClassId},
    {"<PciAddress", TargetElement::PciAddress},
    {"<PciSlotId", TargetElement::PciSlotId},
    {"<ControllerId", TargetElement::ControllerId},
    {"<LunId", TargetElement::LunId},
    {"<WWPN", TargetElement::WWPN},
    {"<WWNN", TargetElement::WWNN},
    {"<PrimaryTargetWWPN", TargetElement::PrimaryTargetWWPN},
    {"<MACAddress", TargetElement::MACAddress},
    {"<VeyraOrla", TargetElement::VeyraOrla},
    {"<Shell", TargetElement::Shell},
    {"<VnicOrder", TargetElement::VnicOrder},
    {"<VhbaOrder", TargetElement::VhbaOrder},
    {"<PhysicalAdaptorSlotNum", TargetElement::PhysicalAdaptorSlotNum},
    {"<PortNum", TargetElement::PortNum},
    {"<VMSubType", TargetElement::VMSubType},
    {"<USBSubType", TargetElement::USBSubType},
    {"<HDDSlot", TargetElement::HDDSlot},
    {"<RN", TargetElement::RN},
    {"<UniquePartitionGUID", TargetElement::UniquePartitionGUID},
    {"<BootLoaderPath", TargetElement::BootLoaderPath},
    {"<BootLoaderName", TargetElement::BootLoaderName},
};

enum class Conversion : UINT8 {
  YesNo,        // "yes" 1, "no" 0; another text leaves the value and counts as given
  YesOnly,      // the same, but only "yes" counts as given
  Hexadecimal,  // bare digits: a prefix ends the number
  Decimal,
  WordOnly,    // one of the row's words, else 0
  Text,        // cut to the field
  ReportName,  // the text of the entry's RN field; no present flag
  PciAddress,  // segment, bus, device, function; the text as it is follows the present flag
  MacAddress,  // six bytes; left alone when the text is none
};

// A word that stands for a number in an element's value, compared without regard to letter case.
struct ValueWord {
  const char* Word;
  UINT8 Number;
};

// Where an element's value goes in the type-specific data. The present flag is the byte behind the value.
struct LayoutField {
  TargetElement Element;
  Conversion How;
  UINT16 Offset = 0;
  UINT8 Size = 1;
  std::span<const ValueWord> Words = {};  // taken before the conversion
  bool IgnoreEmpty = false;               // an empty text counts as not given
  bool IgnoreZero = false;                // so does a PCI address of bus, device and function 0
  const char* IfEmpty = nullptr;          // logged then; null: nothing
  const char* IfZero = nullptr;
};

struct TargetTypeRow {
  const char* Word;                          // of the type in the policy; null: of no word
  const char* Message;                       // the type in messages
  const char* Extractor;                     // the routine that reads it, in messages
  std::span<const LayoutField> Pci = {};     // the PCI identity's fields, for types that have one
  std::span<const LayoutField> Fields = {};  // the others
  bool Usable = true;                        // false: an entry of this type is not Valid
  bool ShortMessage = false;                 // a tag that cannot be read is logged without its status
};

namespace policy_format {

using enum Conversion;

inline constexpr ValueWord kLocalHddSlots[] = {
    {"M", 'M'}, {"HBA", 4}, {"SBMezz1", 255}, {"SBMezz2", 255}, {"IOEMezz1", 255}};
inline constexpr ValueWord kAdapterSlots[] = {
    {"MLOM", 3}, {"IOESlot1", 255}, {"IOESlot2", 255}, {"SIOC1", 255}, {"SIOC2", 255}};
inline constexpr ValueWord kNetworkSlots[] = {{"L", 'L'},     {"MLOM", 3},       {"SIOC1", 255},
                                              {"SIOC2", 255}, {"IOESlot1", 255}, {"IOESlot2", 255}};
inline constexpr ValueWord kUsbSubTypes[] = {{"FDD", 1}, {"HDD", 2}, {"CD", 3}};
inline constexpr ValueWord kVirtualMediaSubTypes[] = {
    {"KVMVMediaCDD", 1}, {"IXMOVMediaCDD", 2}, {"KVMVMediaHDD", 3}, {"IXMOVMediaHDD", 4}, {"KVMVMediaFDD", 5}};

// What the types with a PCI identity do differently with values that say nothing.
struct PciRules {
  bool IgnoreEmpty = true;
  bool IgnoreZeroAddress = false;
  const char* IfEmpty[4] = {};  // by vendor, device, subsystem vendor, subsystem
  const char* IfZeroAddress = nullptr;
};

consteval std::array<LayoutField, 6> PciFields(const PciRules& rules) {
  constexpr TargetElement kIds[] = {TargetElement::PciVid, TargetElement::PciDid, TargetElement::PciSubVid,
                                    TargetElement::PciSubDid};
  constexpr UINT16 kOffsets[] = {offsetof(POLICY_PCI_IDENTITY, PciVid), offsetof(POLICY_PCI_IDENTITY, PciDid),
                                 offsetof(POLICY_PCI_IDENTITY, PciSubVid), offsetof(POLICY_PCI_IDENTITY, PciSubDid)};
  std::array<LayoutField, 6> fields{};
  for (UINTN i = 0; i < std::size(kIds); ++i) {
    fields[i] = {kIds[i], Hexadecimal, kOffsets[i], 2, {}, rules.IgnoreEmpty, false, rules.IfEmpty[i]};
  }
  fields[4] = {TargetElement::PciClassId, Hexadecimal, offsetof(POLICY_PCI_IDENTITY, PciClassId), 2};
  fields[5] = {TargetElement::PciAddress,
               PciAddress,
               offsetof(POLICY_PCI_IDENTITY, PciSegment),
               4,
               {},
               rules.IgnoreEmpty,
               rules.IgnoreZeroAddress,
               nullptr,
               rules.IfZeroAddress};
  return fields;
}

inline constexpr auto kLocalHddPci = PciFields({});
inline constexpr auto kSanPci = PciFields({.IgnoreEmpty = false});
inline constexpr auto kLanPci = PciFields({.IgnoreZeroAddress = true});
inline constexpr auto kIscsiPci =
    PciFields({.IgnoreZeroAddress = true,
               .IfEmpty = {"NULL PCI VID \n", "NULL PCI DID \n", "NULL PCI SUB VID \n", "NULL PCI SUB DID \n"},
               .IfZeroAddress = "ISCSI : BUS , DEV , FUNC values are ZERO \n"});

// The value pairs of the types with small data.
constexpr UINT16 Small(UINTN index) { return static_cast<UINT16>(index * sizeof(POLICY_SMALL::Values[0])); }
consteval LayoutField Retry(UINTN offset, Conversion how = YesNo) {
  return {TargetElement::RetrySameCategoryDevices, how, static_cast<UINT16>(offset)};
}
inline constexpr LayoutField kReportName{TargetElement::RN, ReportName};

inline constexpr LayoutField kAny[] = {Retry(Small(0)), kReportName};
inline constexpr LayoutField kOnboardHdd[] = {{TargetElement::HDDSlot, Hexadecimal, Small(0)}, kReportName};
inline constexpr LayoutField kOnboardHddAny[] = {kReportName};
inline constexpr LayoutField kLun[] = {{TargetElement::LunId, Hexadecimal, Small(0)}, Retry(Small(1))};
inline constexpr LayoutField kInternalUsb[] = {{TargetElement::LunId, Hexadecimal, Small(0)}, Retry(Small(1), YesOnly)};
inline constexpr LayoutField kUsb[] = {{TargetElement::USBSubType, WordOnly, Small(0), 1, kUsbSubTypes}, kReportName};
inline constexpr LayoutField kVirtualMedia[] = {
    {TargetElement::VMSubType, WordOnly, Small(0), 1, kVirtualMediaSubTypes}, kReportName};
inline constexpr LayoutField kSdCard[] = {{TargetElement::ControllerId, Hexadecimal, Small(0)},
                                          {TargetElement::LunId, Hexadecimal, Small(1)},
                                          Retry(Small(2)),
                                          kReportName};
inline constexpr LayoutField kShell[] = {{TargetElement::Shell, Hexadecimal, Small(0)}, Retry(Small(1)), kReportName};

inline constexpr LayoutField kLocalHdd[] = {
    {TargetElement::ControllerId, Hexadecimal, offsetof(POLICY_LOCAL_HDD, ControllerId)},
    {TargetElement::LunId, Hexadecimal, offsetof(POLICY_LOCAL_HDD, LunId)},
    Retry(offsetof(POLICY_LOCAL_HDD, RetrySameCategoryDevices)),
    {TargetElement::PciSlotId, Hexadecimal, offsetof(POLICY_LOCAL_HDD, SlotId), 1, kLocalHddSlots},
    kReportName,
};
inline constexpr LayoutField kSan[] = {
    {TargetElement::WWNN, Text, offsetof(POLICY_SAN, WWNN), sizeof(POLICY_SAN::WWNN)},
    {TargetElement::WWPN, Text, offsetof(POLICY_SAN, WWPN), sizeof(POLICY_SAN::WWPN)},
    {TargetElement::PrimaryTargetWWPN, Text, offsetof(POLICY_SAN, PrimaryTargetWWPN),
     sizeof(POLICY_SAN::PrimaryTargetWWPN)},
    {TargetElement::VeyraOrla, YesNo, offsetof(POLICY_SAN, OnVirtualAdapter)},
    {TargetElement::VhbaOrder, Decimal, offsetof(POLICY_SAN, VhbaOrder), sizeof(POLICY_SAN::VhbaOrder)},
    {TargetElement::PhysicalAdaptorSlotNum, Decimal, offsetof(POLICY_SAN, PhysicalAdaptorSlotNum),
     sizeof(POLICY_SAN::PhysicalAdaptorSlotNum), kAdapterSlots},
    {TargetElement::LunId, Hexadecimal, offsetof(POLICY_SAN, LunId)},
    Retry(offsetof(POLICY_SAN, RetrySameCategoryDevices)),
    {TargetElement::PciSlotId, Hexadecimal, offsetof(POLICY_SAN, SlotId), 1, kAdapterSlots},
    kReportName,
};

// LAN and ISCSI differ in the port's number alone.
consteval std::array<LayoutField, 8> NetworkFields(Conversion port) {
  return {{
      {TargetElement::MACAddress, MacAddress, offsetof(POLICY_LAN, MACAddress), sizeof(POLICY_LAN::MACAddress)},
      {TargetElement::VeyraOrla, YesNo, offsetof(POLICY_LAN, OnVirtualAdapter)},
      {TargetElement::VnicOrder, Decimal, offsetof(POLICY_LAN, VnicOrder), sizeof(POLICY_LAN::VnicOrder)},
      {TargetElement::PhysicalAdaptorSlotNum, Decimal, offsetof(POLICY_LAN, PhysicalAdaptorSlotNum),
       sizeof(POLICY_LAN::PhysicalAdaptorSlotNum), kAdapterSlots},
      Retry(offsetof(POLICY_LAN, RetrySameCategoryDevices)),
      {TargetElement::PciSlotId, Hexadecimal, offsetof(POLICY_LAN, SlotId), 1, kNetworkSlots},
      {TargetElement::PortNum, port, offsetof(POLICY_LAN, PortNum)},
      kReportName,
  }};
}
inline constexpr auto kLan = NetworkFields(Decimal);
inline constexpr auto kIscsi = NetworkFields(Hexadecimal);

}  // namespace policy_format

// By TargetType.
inline constexpr TargetTypeRow kTargetTypes[] = {
    {"LocalStorageAny", "LocalStorageAny", "ExtractLocalStorageAnyTarget", {}, policy_format::kAny},
    {"LocalHDDAny", "LocalHDDAny", "ExtractLocalHDDAnyTarget", {}, policy_format::kAny},
    {"ISCSIAny", "ISCSIAny", "ExtractISCSIAnyTarget", {}, policy_format::kAny},
    {"OnboardHDD", "OnboardHDD", "ExtractOnboardHDDTarget", {}, policy_format::kOnboardHdd},
    {"OnboardHDDAny", "OnboardHDD", "ExtractOnboardHDDAnyTarget", {}, policy_format::kOnboardHddAny},
    {"LocalHDD", "LocalHDD", "ExtractLocalHDDTarget", policy_format::kLocalHddPci, policy_format::kLocalHdd},
    {"SANAny", "SANAny", "ExtractSANAnyTarget", {}, policy_format::kAny, true, true},
    {"SAN", "SAN", "ExtractSANTarget", policy_format::kSanPci, policy_format::kSan},
    {"NVMEAny", "NVMEAny", "ExtractNVMEAnyTarget", {}, policy_format::kAny, true, true},
    {"LANAny", "LANAny", "ExtractLANAnyTarget", {}, policy_format::kAny},
    {"LAN", "LAN", "ExtractLANTarget", policy_format::kLanPci, policy_format::kLan},
    {"ISCSI", "ISCSI", "ExtractISCSITarget", policy_format::kIscsiPci, policy_format::kIscsi},
    {"LocalCDD", "LocalCDD", "ExtractLocalCDDTarget", {}, policy_format::kLun},
    {"LocalFDD", "LocalFDD", "ExtractLocalFDDTarget", {}, policy_format::kLun},
    {"USB", "USB", "ExtractUSBTarget", {}, policy_format::kUsb},
    {"InternalUSB", "InternalUSB", "ExtractInternalUSBTarget", {}, policy_format::kInternalUsb},
    {"ExternalUSB", "ExternalUSB", "ExtractExternalUSBTarget", {}, policy_format::kLun},
    {"SDCard", "SDStorage", "ExtractSDStorageTarget", {}, policy_format::kSdCard},
    {"VirtualMedia", "VirtualMedia", "ExtractVirtualMediaTarget", {}, policy_format::kVirtualMedia},
    {"IXMOVMediaCDD", "IXMOVMediaCDD", "ExtractIXMOVMediaCDDTarget", {}, policy_format::kLun},
    {"KVMVMediaCDD", "KVMVMediaCDD", "ExtractKVMVMediaCDDTarget", {}, policy_format::kLun},
    {"IXMOVMediaHDD", "IXMOVMediaHDD", "ExtractIXMOVMediaHDDTarget", {}, policy_format::kLun},
    {"KVMVMediaHDD", "KVMVMediaHDD", "ExtractKVMVMediaHDDTarget", {}, policy_format::kLun},
    {"IXMOVMediaFDD", "IXMOVMediaFDD", "ExtractIXMOVMediaFDDTarget", {}, policy_format::kLun},
    {"KVMVMediaFDD", "KVMVMediaFDD", "ExtractKVMVMediaFDDTarget", {}, policy_format::kLun},
    {"UefiShell", "UefiShell", "ExtractUefiShell", {}, policy_format::kShell},
    {"NonPolicyTarget", "Unsupported", "ExtractUnsupportedTargetTag", {}, {}, false},
    {nullptr, "Unsupported", "ExtractUnsupportedTargetTag", {}, {}, false},
};
static_assert(std::size(kTargetTypes) == kTargetTypeCount);

constexpr const TargetTypeRow& TypeRow(TargetType type) { return kTargetTypes[static_cast<UINTN>(type)]; }

// The header's elements; NumBootTargets is a hexadecimal number, the others are texts.
struct HeaderElementRow {
  const char* Token;
  UINT16 Offset;  // in FLEXBOOT_ORDER_HEADER
  UINT8 Size;
  Conversion How = Conversion::Text;
};
inline constexpr HeaderElementRow kHeaderElements[] = {
    {"<Version", offsetof(FLEXBOOT_ORDER_HEADER, Version), sizeof(FLEXBOOT_ORDER_HEADER::Version)},
    {"<ServiceProfile", offsetof(FLEXBOOT_ORDER_HEADER, ServiceProfile), sizeof(FLEXBOOT_ORDER_HEADER::ServiceProfile)},
    {"<BootPolicyName", offsetof(FLEXBOOT_ORDER_HEADER, BootPolicyName), sizeof(FLEXBOOT_ORDER_HEADER::BootPolicyName)},
    {"<BootType", offsetof(FLEXBOOT_ORDER_HEADER, BootType), sizeof(FLEXBOOT_ORDER_HEADER::BootType)},
    {"<BootPolicyUniqueId", offsetof(FLEXBOOT_ORDER_HEADER, BootPolicyUniqueId),
     sizeof(FLEXBOOT_ORDER_HEADER::BootPolicyUniqueId)},
    {"<NumBootTargets", offsetof(FLEXBOOT_ORDER_HEADER, NumBootTargets), 1, Conversion::Hexadecimal},
};
static_assert(std::size(kHeaderElements) == kPolicyHeaderElements);

// The tags that hold the policy together, as the tokenizer gives them.
inline constexpr char kHeaderGroup[] = "<FlexBootOrderHeader";
inline constexpr char kHeaderGroupEnd[] = "</FlexBootOrderHeader";
inline constexpr char kTargetsGroup[] = "<FlexBootTargets";
inline constexpr char kTargetsGroupEnd[] = "</FlexBootTargets";
inline constexpr char kTargetGroup[] = "<FlexBootTarget";
inline constexpr char kTargetGroupEnd[] = "</FlexBootTarget";
// The elements of the loader; these are compared with regard to letter case.
inline constexpr char kPartitionGuidToken[] = "<UniquePartitionGUID";
inline constexpr char kLoaderPathToken[] = "<BootLoaderPath";
inline constexpr char kLoaderNameToken[] = "<BootLoaderName";
inline constexpr char kLoaderDeviceNameToken[] = "<DeviceName";
inline constexpr char kPrimaryLoaderGroup[] = "<PrimaryTargetUEFIBootParam";
inline constexpr char kPrimaryLoaderGroupEnd[] = "</PrimaryTargetUEFIBootParam";
inline constexpr char kSecondaryLoaderGroup[] = "<SecondaryTargetUEFIBootParam";
inline constexpr char kSecondaryLoaderGroupEnd[] = "</SecondaryTargetUEFIBootParam";

}  // namespace bds

#include "flexboot/target_tags.h"

namespace bds {
namespace {

constexpr char kRetry[] = "RetrySameCategoryDevices";

constexpr UINT16 Small(UINTN index) { return policy_format::Small(index); }

constexpr TagRow kAny[] = {{TagForm::Flag, kRetry, Small(0)}};
constexpr TagRow kRetryBehindLun[] = {{TagForm::Flag, kRetry, Small(1)}};
constexpr TagRow kOnboardHdd[] = {{TagForm::Number, "HDDSlot", Small(0)}};
constexpr TagRow kUsb[] = {{TagForm::Number, "USBSubType", Small(0)}};
constexpr TagRow kVirtualMedia[] = {{TagForm::Number, "VMSubType", Small(0)}};
constexpr TagRow kSdCard[] = {{TagForm::Number, "ControllerId", Small(0)},
                              {TagForm::Number, "LunId", Small(1)},
                              {TagForm::Flag, kRetry, Small(2)}};
constexpr TagRow kShell[] = {{TagForm::Number, "Shell", Small(0)}, {TagForm::Flag, kRetry, Small(1)}};

constexpr TagRow kLocalHdd[] = {
    {TagForm::ForgetBusWhenManaged},
    {TagForm::PciIdentity},
    {TagForm::Number, "ControllerId", offsetof(POLICY_LOCAL_HDD, ControllerId)},
    {TagForm::Flag, kRetry, offsetof(POLICY_LOCAL_HDD, RetrySameCategoryDevices)},
    {TagForm::Number, "SlotID", offsetof(POLICY_LOCAL_HDD, SlotId)},
};
constexpr TagRow kSan[] = {
    {TagForm::VirtualAdapter},
    {TagForm::PciIdentity},
    {TagForm::Text, "WWNN", offsetof(POLICY_SAN, WWNN), sizeof(POLICY_SAN::WWNN)},
    {TagForm::Text, "WWPN", offsetof(POLICY_SAN, WWPN), sizeof(POLICY_SAN::WWPN)},
    {TagForm::Text, "PrimaryTargetWWPN", offsetof(POLICY_SAN, PrimaryTargetWWPN),
     sizeof(POLICY_SAN::PrimaryTargetWWPN)},
    {TagForm::Flag, kRetry, offsetof(POLICY_SAN, RetrySameCategoryDevices)},
    {TagForm::Number, "SlotID", offsetof(POLICY_SAN, SlotId)},
};

constexpr TagRow kMac{TagForm::Mac, "MACAddress", offsetof(POLICY_LAN, MACAddress), sizeof(POLICY_LAN::MACAddress)};
constexpr TagRow kNetworkRetry{TagForm::Flag, kRetry, offsetof(POLICY_LAN, RetrySameCategoryDevices)};
constexpr TagRow kNetworkSlot{TagForm::Number, "SlotID", offsetof(POLICY_LAN, SlotId)};
constexpr TagRow kNetworkPort{TagForm::Number, "PortNum", offsetof(POLICY_LAN, PortNum)};
constexpr TagRow kLan[] = {
    kMac,
    {TagForm::VirtualAdapter},
    {TagForm::PciIdentity},
    {TagForm::Flag, "IsVeyraOrla", offsetof(POLICY_LAN, OnVirtualAdapter)},
    kNetworkRetry,
    kNetworkSlot,
    kNetworkPort,
};
constexpr TagRow kIscsi[] = {
    {TagForm::VirtualAdapter}, {TagForm::PciIdentity}, kMac, kNetworkRetry, kNetworkSlot, kNetworkPort,
};

// By TargetType.
constexpr TargetRow kTargetRows[] = {
    {"LocalStorageAny", "LocalStorageAny", 1, kAny},
    {"LocalHDDAny", "LocalHDDAny", 1, kAny},
    {"ISCSIAny", "ISCSIAny", 1, kAny},
    {"OnboardHDD", "OnboardHDD", 1, kOnboardHdd},
    {"OnboardHDDAny", "OnboardHDDAny", 1},
    {"LocalHDD", "LocalHDD", 1, kLocalHdd},
    {"SANAny", "SANAny", 1, kAny},
    {"SAN", "SAN", 1, kSan},
    {"NVMEAny", "NVMEAny", 1, kAny},
    {"LANAny", "LANAny", 1, kAny},
    {"LAN", "LAN", 1, kLan},
    {"ISCSI", "ISCSI", 1, kIscsi},
    {"LocalCDD", "LocalCDD", 1, kRetryBehindLun},
    {"LocalFDD", "LocalFDD", 0, kRetryBehindLun},
    {"USB", "USB", 1, kUsb},
    {"InternalUsb", "InternalUSB", 0, kRetryBehindLun},
    {"ExternalUSB", "ExternalUSB", 1, kRetryBehindLun},
    {"SDStorage", "SDStorage", 1, kSdCard},
    {"VirtualMedia", "VirtualMedia", 1, kVirtualMedia},
    {"IXMOVMediaCDD", "IXMOVMediaCDD", 0, kRetryBehindLun},
    {"KVMVMediaCDD", "KVMVMediaCDD", 0, kRetryBehindLun},
    {"IXMOVMediaHDD", "IXMOVMediaHDD", 0, kRetryBehindLun},
    {"KVMVMediaHDD", "KVMVMediaHDD", 0, kRetryBehindLun},
    {"IXMOVMediaFDD", "IXMOVMediaFDD", 0, kRetryBehindLun},
    {"KVMVMediaFDD", "KVMVMediaFDD", 0, kRetryBehindLun},
    {"UefiShell", "UefiShell", 1, kShell},
};
static_assert(std::size(kTargetRows) == static_cast<UINTN>(TargetType::NonPolicyTarget));

constexpr VirtualAdapterFields kSanAdapter{offsetof(POLICY_SAN, OnVirtualAdapter), offsetof(POLICY_SAN, VhbaOrder),
                                           offsetof(POLICY_SAN, PhysicalAdaptorSlotNum)};
constexpr VirtualAdapterFields kNetworkAdapter{offsetof(POLICY_LAN, OnVirtualAdapter), offsetof(POLICY_LAN, VnicOrder),
                                               offsetof(POLICY_LAN, PhysicalAdaptorSlotNum)};

}  // namespace

const TargetRow* FindTargetRow(UINT8 type) { return type < std::size(kTargetRows) ? &kTargetRows[type] : nullptr; }

const VirtualAdapterFields& VirtualAdapterFieldsOf(TargetType type) {
  return type == TargetType::SAN ? kSanAdapter : kNetworkAdapter;
}

}  // namespace bds

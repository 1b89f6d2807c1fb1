// Tags on addresses that a device path holds: a network port's MAC address, a Fibre Channel target's port name.
#include "bootopt/bbs_table.h"
#include "flexboot/xml_cursor.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/option_path.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

constexpr UINTN kMaxAddressBytes = 8;

// An address as text and the nodes that may hold it.
struct ADDRESS_TAG {
  const char* TagName;
  UINTN Bytes;        // of the address; two digits each, with a colon between them
  UINT8 SubTypes[2];  // of the messaging nodes
  UINTN Offset;       // of the address in the node
};
constexpr ADDRESS_TAG kMacAddress{"MACAddress", 6, {MSG_MAC_ADDR_DP, MSG_MAC_ADDR_DP}, 4};
constexpr ADDRESS_TAG kWwpn{"PrimaryTargetWWPN", 8, {MSG_FIBRECHANNEL_DP, MSG_FIBRECHANNELEX_DP}, 8};

// False when the text does not have the shape of the address.
bool ParseAddress(const char* text, const ADDRESS_TAG& tag, UINT8 (&address)[kMaxAddressBytes]) {
  constexpr UINTN kGroup = 3;  // two digits and what follows them
  constexpr UINT32 kHexadecimal = 16;
  const UINTN length = TextLength(text);
  for (UINTN group = 1; group < tag.Bytes; ++group) {
    const UINTN colon = group * kGroup - 1;
    if (colon >= length || text[colon] != ':') {
      return false;
    }
  }
  for (UINTN group = 0; group < tag.Bytes; ++group) {
    const char* end = nullptr;
    address[group] = static_cast<UINT8>(XmlStrToInt(text + group * kGroup, &end, kHexadecimal));
  }
  return true;
}

// The handle whose path tells the device: for a legacy option the one that the CSM recorded.
EFI_HANDLE HandleOf(const BOOT_OPTION& option) {
  return IsLegacyOption(option) && option.BbsEntry != nullptr ? BbsHandle(*option.BbsEntry) : option.DeviceHandle;
}

bool HoldsAddress(const DevicePath* node, const ADDRESS_TAG& tag, const UINT8* address) {
  const Bytes bytes = NodeBytes(node);
  const bool kind =
      IsNode(node, MESSAGING_DEVICE_PATH, tag.SubTypes[0]) || IsNode(node, MESSAGING_DEVICE_PATH, tag.SubTypes[1]);
  return kind && bytes.size() >= tag.Offset + tag.Bytes && EqualMemory(bytes.data() + tag.Offset, address, tag.Bytes);
}

bool PathHoldsAddress(const DevicePath* path, const ADDRESS_TAG& tag, const UINT8* address) {
  if (!IsAcpiNode(path)) {
    return false;
  }
  for (DevicePathWalker walker(path); walker.Node() != nullptr && !IsEnd(walker.Node()); walker.Next()) {
    if (HoldsAddress(walker.Node(), tag, address)) {
      return true;
    }
  }
  return false;
}

EFI_STATUS MatchAddress(TAG_CALL& call, const ADDRESS_TAG& tag, const UINT8* address) {
  WalkOptions(call, {.Eligible = false}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    const EFI_HANDLE handle = HandleOf(*wrapper.Option);
    return SelectOrRefuse(handle != nullptr && PathHoldsAddress(DevicePathOf(handle), tag, address));
  });
  SayWhenNothingMatched(call, tag.TagName);
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS MacAddressTag(TAG_CALL& call) {
  UINT8 address[kMaxAddressBytes];
  if (!ParseAddress(call.TagValue, kMacAddress, address)) {
    SetTagMessage(call, "Something wrong with the MAC address %s.", call.TagValue);
    return EFI_INVALID_PARAMETER;
  }
  return MatchAddress(call, kMacAddress, address);
}

EFI_STATUS ProcPrimaryTargetWWPN(TAG_CALL& call) {
  UINT8 name[kMaxAddressBytes];
  if (!ParseAddress(call.TagValue, kWwpn, name)) {
    SetTagMessage(call, "Something wrong with the WWPN %s.", call.TagValue);
    return EFI_INVALID_PARAMETER;
  }
  return MatchAddress(call, kWwpn, name);
}

}  // namespace bds

// Tags on addresses that a device path holds: a network port's MAC address, a Fibre Channel target's port name.
#include "flexboot/xml_cursor.h"
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
  FormatString<const char*> Malformed;
};
constexpr ADDRESS_TAG kMacAddress{
    "MACAddress", 6, {MSG_MAC_ADDR_DP, MSG_MAC_ADDR_DP}, 4, "Something wrong with the MAC address %s."};
constexpr ADDRESS_TAG kWwpn{
    "PrimaryTargetWWPN", 8, {MSG_FIBRECHANNEL_DP, MSG_FIBRECHANNELEX_DP}, 8, "Something wrong with the WWPN %s."};

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

// The path that tells the device: for a legacy option that of the handle which the CSM recorded.
const DevicePath* DevicePathOfOption(const VBOOT_OPTION_WRAPPER& wrapper) {
  const BOOT_OPTION& option = *wrapper.Option;
  return IsLegacyOption(option) && option.BbsEntry != nullptr ? wrapper.BbsHandlePath : wrapper.HandlePath;
}

// The address that the node holds; empty for another node.
Bytes AddressOf(const DevicePath* node, const ADDRESS_TAG& tag) {
  const Bytes bytes = NodeBytes(node);
  const bool kind =
      IsNode(node, MESSAGING_DEVICE_PATH, tag.SubTypes[0]) || IsNode(node, MESSAGING_DEVICE_PATH, tag.SubTypes[1]);
  return kind && bytes.size() >= tag.Offset + tag.Bytes ? bytes.subspan(tag.Offset, tag.Bytes) : Bytes{};
}

TagVerdict CompareAddress(TAG_CALL& call, const DevicePath* path, const ADDRESS_TAG& tag, const UINT8* address) {
  if (IsAcpiNode(path)) {
    for (DevicePathWalker walker(path); walker.Node() != nullptr && !IsEnd(walker.Node()); walker.Next()) {
      const Bytes found = AddressOf(walker.Node(), tag);
      if (found.empty()) {
        continue;
      }
      call.Found.Address = found;
      if (EqualMemory(found.data(), address, tag.Bytes)) {
        return TagVerdict::Select;
      }
    }
  }
  return call.Found.Address.empty() ? RefuseBecause(call, "its path holds no such address") : TagVerdict::Refuse;
}

EFI_STATUS MatchAddress(TAG_CALL& call, const ADDRESS_TAG& tag) {
  UINT8 address[kMaxAddressBytes];
  if (!ParseAddress(call.TagValue, tag, address)) {
    SetTagMessage(call, tag.Malformed, call.TagValue);
    return EFI_INVALID_PARAMETER;
  }
  WalkOptions(call, {.Eligible = false}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    return CompareAddress(call, DevicePathOfOption(wrapper), tag, address);
  });
  SayWhenNothingMatched(call, tag.TagName);
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS MacAddressTag(TAG_CALL& call) { return MatchAddress(call, kMacAddress); }
EFI_STATUS ProcPrimaryTargetWWPN(TAG_CALL& call) { return MatchAddress(call, kWwpn); }

}  // namespace bds

#include "bootopt/names/node_words.h"

#include "bootopt/boot_option.h"
#include "bootopt/names/name_writer.h"
#include "bootopt/names/strings.h"

namespace bds {
namespace {

constexpr DriverString kNoWord{};

struct NodeWordRow {
  UINT8 Type;
  UINT8 SubType;
  DriverString Word;
};
constexpr NodeWordRow kNodeWords[] = {
    {MESSAGING_DEVICE_PATH, MSG_ATAPI_DP, DriverString::Atapi},
    {MESSAGING_DEVICE_PATH, MSG_SCSI_DP, DriverString::Scsi},
    {MESSAGING_DEVICE_PATH, MSG_USB_DP, DriverString::Usb},
    {MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP, DriverString::NetworkCard},
    {MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, DriverString::HardDrive},
    {MEDIA_DEVICE_PATH, MEDIA_CDROM_DP, DriverString::OpticalDrive},
};

struct BbsWordRow {
  UINT16 DeviceType;
  DriverString Word;
};
constexpr BbsWordRow kBbsWords[] = {
    {BBS_TYPE_FLOPPY, DriverString::RemovableDrive},
    {BBS_TYPE_HARDDRIVE, DriverString::HardDrive},
    {BBS_TYPE_CDROM, DriverString::OpticalDrive},
    {BBS_TYPE_PCMCIA, DriverString::PcmciaDevice},
    {BBS_TYPE_USB, DriverString::Usb},
    {BBS_TYPE_EMBEDDED_NETWORK, DriverString::NetworkCard},
    {BBS_TYPE_BEV, DriverString::BevDevice},
};

DriverString BbsWord(const DevicePath* node) {
  if (NodeLength(node) < sizeof(DevicePath) + sizeof(UINT16)) {
    return DriverString::UnknownDevice;
  }
  const auto deviceType = LoadUnaligned<UINT16>(node + 1);
  for (const BbsWordRow& row : kBbsWords) {
    if (row.DeviceType == deviceType) {
      return row.Word;
    }
  }
  return DriverString::UnknownDevice;
}

DriverString NodeWord(const DevicePath* node) {
  if (IsBuiltInApplicationNode(node)) {
    return DriverString::BuiltInShell;
  }
  if (IsNode(node, BBS_DEVICE_PATH, BBS_BBS_DP)) {
    return BbsWord(node);
  }
  for (const NodeWordRow& row : kNodeWords) {
    if (IsNode(node, row.Type, row.SubType)) {
      return row.Word;
    }
  }
  return kNoWord;
}

}  // namespace

UINTN BuildNodeWords(DevicePathWalker walker, std::span<CHAR16> buffer) {
  NameWriter writer(buffer);
  for (; walker.Node() != nullptr; walker.Next()) {
    const DriverString word = NodeWord(walker.Node());
    const PoolPtr<CHAR16> text = word != kNoWord ? GetDriverString(static_cast<UINT16>(word)) : nullptr;
    if (text) {
      writer.Append(text.get());
      writer.Append(u" ");
    }
  }
  writer.TrimBlanks();
  return writer.Length();
}

}  // namespace bds

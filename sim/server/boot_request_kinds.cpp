#include "sim/server/boot_request_kinds.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

constexpr std::uint32_t kFloppyHid = 0x060441D0;  // PNP0604
using Action = RequestAction;

constexpr RequestKind kNone{Action::Nothing, "nothing"};
constexpr RequestKind kUnknown{Action::Unknown, "a remote or reserved device"};
constexpr RequestKind kDisk{Action::Device,    "a hard disk",     BBS_TYPE_HARDDRIVE, 0,
                            MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP};
constexpr RequestKind kKinds[16] = {
    kNone,
    {Action::Device, "a network device", BBS_TYPE_BEV, BBS_TYPE_EMBEDDED_NETWORK, MESSAGING_DEVICE_PATH,
     MSG_MAC_ADDR_DP},
    kDisk,
    kDisk,  // safe mode
    kDisk,  // diagnostic partition
    {Action::Device, "a CD or DVD drive", BBS_TYPE_CDROM, 0, MEDIA_DEVICE_PATH, MEDIA_CDROM_DP},
    {Action::Setup, "setup"},
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    kUnknown,
    {Action::Device, "a floppy drive", BBS_TYPE_FLOPPY, 0, ACPI_DEVICE_PATH, ACPI_DP},
};

using Node = EFI_DEVICE_PATH_PROTOCOL;

bool HasNode(const DevicePath& path, std::uint8_t type, std::uint8_t subType) {
  return std::ranges::any_of(PathNodes(path), [type, subType](std::span<const std::byte> node) {
    return node[0] == std::byte{type} && node[1] == std::byte{subType};
  });
}

bool BeginsWithFloppy(const DevicePath& path) {
  std::uint32_t hid = 0;
  const auto bytes = path.Bytes();
  if (path.Get()->Type != ACPI_DEVICE_PATH || bytes.size() < sizeof(Node) + sizeof(hid)) {
    return false;
  }
  std::memcpy(&hid, bytes.data() + sizeof(Node), sizeof(hid));
  return hid == kFloppyHid;
}

std::uint16_t BbsType(const LoadOption& option) {
  std::uint16_t type = 0;
  const auto bytes = option.paths.front().Bytes();
  if (bytes.size() >= sizeof(Node) + sizeof(type)) {
    std::memcpy(&type, bytes.data() + sizeof(Node), sizeof(type));
  }
  return type;
}

}  // namespace

const RequestKind& KindOfRequest(std::uint8_t selector) { return kKinds[selector & 0x0F]; }

bool IsOfKind(const LoadOption& option, const RequestKind& kind, bool efi) {
  if (option.paths.empty() || option.paths.front().Empty() || option.GroupMarked() || option.Legacy() == efi) {
    return false;
  }
  const DevicePath& path = option.paths.front();
  if (!efi) {
    const std::uint16_t type = BbsType(option);
    return type == kind.bbsType || (kind.otherBbsType != 0 && type == kind.otherBbsType);
  }
  if (kind.bbsType == BBS_TYPE_FLOPPY) {
    return BeginsWithFloppy(path) ||
           (HasNode(path, MESSAGING_DEVICE_PATH, MSG_USB_DP) && !HasNode(path, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP) &&
            !HasNode(path, MEDIA_DEVICE_PATH, MEDIA_CDROM_DP));
  }
  return HasNode(path, kind.nodeType, kind.nodeSubType);
}

std::vector<std::uint16_t> OptionsOfKind(const VariableStore& store, const RequestKind& kind, bool efi) {
  std::vector<std::uint16_t> numbers;
  for (const Variable& variable : store.All()) {
    const auto number = variable.guid == gEfiGlobalVariableGuid ? BootOptionNumber(variable.name) : std::nullopt;
    const auto option = number ? ParseLoadOption(variable.data) : std::nullopt;
    if (option && !option->Hidden() && IsOfKind(*option, kind, efi)) {
      numbers.push_back(*number);
    }
  }
  return numbers;
}

}  // namespace sim

#include "bootopt/names/option_name.h"

#include "bootopt/names/bbs_names.h"
#include "bootopt/names/name_writer.h"
#include "bootopt/names/network_name.h"
#include "bootopt/names/node_words.h"
#include "bootopt/names/strings.h"
#include "support/format.h"
#include "support/protocols.h"

namespace bds {
namespace {

using NameDecorator = UINTN (*)(const BOOT_OPTION& option, std::span<CHAR16> rest);

// The name is written where the entry keeps its description; the BBS description below reads it there.
UINTN RewritePortName(const BOOT_OPTION& option, std::span<CHAR16>) {
  if (option.BbsEntry != nullptr) {
    RewriteLegacyPortName(*option.BbsEntry);
  }
  return 0;
}

UINTN WordsOfHandle(const BOOT_OPTION& option, std::span<CHAR16> rest) {
  return BuildNodeWords(DevicePathWalker(DevicePathOf(option.DeviceHandle)), rest);
}

UINTN WordsOfFilePath(const BOOT_OPTION& option, std::span<CHAR16> rest) {
  const auto* path = reinterpret_cast<const std::byte*>(option.FilePathList.get());
  return BuildNodeWords(DevicePathWalker(Bytes{path, path != nullptr ? option.FilePathListLength : 0}), rest);
}

// The first that answers gives the name.
constexpr NameDecorator kNameDecorators[] = {
    RewritePortName, BuildNetworkName, BuildBbsName, WordsOfHandle, WordsOfFilePath,
};

void AppendBody(const BOOT_OPTION& option, NameWriter& name) {
  for (const NameDecorator decorate : kNameDecorators) {
    const UINTN length = decorate(option, name.Rest());
    if (length != 0) {
      name.Advance(length);
      return;
    }
  }
  name.Append(DriverText(DriverString::UnknownDevice).Or(u"Unknown Device"));
}

void AppendPartition(const BOOT_OPTION& option, NameWriter& name) {
  const DevicePath* node = FindNode(DevicePathOf(option.DeviceHandle), MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP);
  if (node == nullptr || NodeLength(node) < sizeof(HARDDRIVE_DEVICE_PATH)) {
    return;
  }
  const DriverText word(DriverString::Partition);
  const UINT32 number = LoadUnaligned<HARDDRIVE_DEVICE_PATH>(node).PartitionNumber;
  name.Advance(FormatUtf16(name.Rest(), ", %s %d", word.Or(u"Partition"), number));
}

}  // namespace

UINTN BuildBootOptionName(BOOT_OPTION& option) {
  const auto buffer = AllocateArray<CHAR16>(kNameCapacity);
  if (!buffer) {
    return 0;
  }
  NameWriter name({buffer.get(), kNameCapacity});
  const bool uefi = !IsLegacyOption(option);
  if (uefi) {
    name.Append(DriverText(DriverString::UefiPrefix).Or(u"UEFI: "));
  }
  AppendBody(option, name);
  if (uefi) {
    AppendPartition(option, name);
  }
  option.Description = CopyText(buffer.get(), name.Length());
  return option.Description ? name.Length() : 0;
}

}  // namespace bds

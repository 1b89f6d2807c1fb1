#include "bootopt/load_option_image.h"

#include "bootopt/file_path_builders.h"
#include "bootopt/load_option.h"
#include "bootopt/orphan_mask.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr UINTN kHeaderSize = sizeof(UINT32) + sizeof(UINT16);  // Attributes, FilePathListLength

UINTN DescriptionSize(const BOOT_OPTION& option) { return (TextLength(option.Description.get()) + 1) * sizeof(CHAR16); }

UINTN OptionalDataSize(const BOOT_OPTION& option) { return option.OptionalData ? option.OptionalDataSize : 0; }

// The option alone, without marker and members.
UINTN BareSize(const BOOT_OPTION& option) {
  return kHeaderSize + DescriptionSize(option) + option.FilePathListLength + OptionalDataSize(option);
}

UINTN MemberRecordSize(const BOOT_OPTION& member) {
  return kMemberHeaderSize + BareSize(member) + sizeof(OptionMarker);
}

// Up to the end of the paths.
void WriteFront(ByteWriter& writer, const BOOT_OPTION& option) {
  constexpr CHAR16 kNoDescription[] = u"";
  writer.Write(option.Attributes);
  writer.Write(static_cast<UINT16>(option.FilePathListLength));
  writer.WriteBytes(option.Description ? option.Description.get() : kNoDescription, DescriptionSize(option));
  writer.WriteBytes(option.FilePathList.get(), option.FilePathListLength);
}

void WriteMember(ByteWriter& writer, const BOOT_OPTION& member) {
  writer.Write(kMemberMarker);
  writer.Write(static_cast<UINT32>(MemberRecordSize(member)));
  WriteFront(writer, member);
  writer.Write(kFirmwareMarker);
  writer.WriteBytes(member.OptionalData.get(), OptionalDataSize(member));
}

void WriteFirmwareRecords(ByteWriter& writer, const BOOT_OPTION& option) {
  const BOOT_OPTION* member = NextMember(option, option);
  writer.Write(member != nullptr || option.GroupHeader != FALSE ? kGroupMarker : kFirmwareMarker);
  for (; member != nullptr; member = NextMember(option, *member)) {
    WriteMember(writer, *member);
  }
}

bool SameBytes(Bytes a, Bytes b) { return a.size() == b.size() && EqualMemory(a.data(), b.data(), a.size()); }

}  // namespace

bool HasSavablePath(const BOOT_OPTION& option) {
  return option.FilePathList && option.FilePathListLength != 0 && option.FilePathListLength <= kMaxFilePathListLength;
}

BOOT_OPTION* NextMember(const BOOT_OPTION& header, const BOOT_OPTION& previous) {
  BOOT_OPTION* candidate = previous.Next;
  const bool member = header.FwBootOption != FALSE && candidate != nullptr &&
                      candidate->BootOptionNumber == header.BootOptionNumber && HasSavablePath(*candidate);
  return member ? candidate : nullptr;
}

UINTN LoadOptionImageSize(const BOOT_OPTION& option) {
  UINTN size = BareSize(option) + (option.FwBootOption != FALSE ? sizeof(OptionMarker) : 0);
  for (const BOOT_OPTION* member = NextMember(option, option); member != nullptr;
       member = NextMember(option, *member)) {
    size += MemberRecordSize(*member);
  }
  return size;
}

Bytes WriteLoadOptionImage(const BOOT_OPTION& option, std::span<std::byte> room) {
  ByteWriter writer(room);
  WriteFront(writer, option);
  if (option.FwBootOption != FALSE) {
    WriteFirmwareRecords(writer, option);
  }
  writer.WriteBytes(option.OptionalData.get(), OptionalDataSize(option));
  return room.first(writer.Position());
}

bool IsSameLoadOption(Bytes a, Bytes b) {
  LoadOptionView first;
  LoadOptionView second;
  return ViewLoadOption(a, first) && ViewLoadOption(b, second) && SameBytes(first.Description, second.Description) &&
         SameBytes(BehindOrphanMask(first.FilePathList), BehindOrphanMask(second.FilePathList)) &&
         SameBytes(first.OptionalData, second.OptionalData);
}

}  // namespace bds

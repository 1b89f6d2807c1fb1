// The dump of a Boot#### image as it lies in NVRAM.
#include "bootopt/bbs_table.h"
#include "bootopt/dumps/dumps.h"
#include "bootopt/load_option.h"
#include "support/debug_print.h"
#include "support/device_path.h"

namespace bds {
namespace {

constexpr UINTN kTianoDataSize = sizeof(BBS_TABLE) + sizeof(UINT16);

void PrintDescription(Bytes description) {
  // The image need not be aligned; the formatter reads its characters one by one.
  DebugPrint("%S\n", reinterpret_cast<const CHAR16*>(description.data()));
}

bool IsTianoLegacyOption(const LoadOptionView& view) {
  return IsNode(reinterpret_cast<const DevicePath*>(view.FilePathList.data()), BBS_DEVICE_PATH, BBS_BBS_DP) &&
         view.OptionalData.size() == kTianoDataSize;
}

void DumpTianoData(Bytes data) {
  const auto entry = LoadUnaligned<BBS_TABLE>(data.data());
  const auto index = LoadUnaligned<UINT16>(data.data() + sizeof(BBS_TABLE));
  DebugPrint("Tiano format legacy option\n");
  DebugPrint("Legacy boot option, attached BBS info is as follows:\n");
  DebugPrint("   NO  Prio bb/dd/ff cl/sc Type Stat Bseg:Boff Mseg:Moff Dseg:Doff\n");
  DebugPrint("   %02x: %04x %02x/%02x/%02x %02x/%02x %04x %04x", index, UINT16{entry.BootPriority}, UINT32{entry.Bus},
             UINT32{entry.Device}, UINT32{entry.Function}, entry.Class, entry.SubClass, UINT16{entry.DeviceType},
             UINT16{entry.StatusFlags});
  DebugPrint(" %04x:%04x %04x:%04x %04x:%04x\n", UINT16{entry.BootHandlerSegment}, UINT16{entry.BootHandlerOffset},
             UINT16{entry.MfgStringSegment}, UINT16{entry.MfgStringOffset}, UINT16{entry.DescStringSegment},
             UINT16{entry.DescStringOffset});
  const BbsText manufacturer = CopyBbsText(BbsManufacturer(entry));
  DebugPrint("   MFG Str: %a \n", manufacturer.Text);
  const BbsText description = CopyBbsText(BbsDescription(entry));
  DebugPrint("   DESC Str: %a\n", description.Text);
}

// A character for the log: whatever the variable holds, it must not steer a terminal.
char Shown(std::byte value) {
  const auto character = static_cast<char>(value);
  return character >= ' ' && character <= '~' ? character : '.';
}

void DumpImage(Bytes image, UINT32 depth);

// Dumps the record at hand and moves behind it; false ends the walk.
bool DumpRecord(ByteReader& reader, UINT32 depth) {
  if (reader.SkipIfEqual(kFirmwareMarker) || reader.SkipIfEqual(kGroupMarker)) {
    return true;
  }
  Bytes word;
  ByteReader ahead = reader;
  if (!ahead.Take(sizeof(OptionMarker), word)) {
    DebugPrint("fail buffer check\n");
    return false;
  }
  if (!EqualMemory(word.data(), kMemberMarker.data(), word.size())) {
    DebugPrint("doesn't look like a valid sig (%c%c%c%c), quitting\n", Shown(word[0]), Shown(word[1]), Shown(word[2]),
               Shown(word[3]));
    return false;
  }
  Bytes member;
  UINTN recordSize = 0;
  if (depth == kMaxGroupDepth || !ViewMemberRecord(reader.Rest(), member, recordSize)) {
    DebugPrint("fail buffer check\n");
    return false;
  }
  DebugPrint("nested option:\n");
  DumpImage(member, depth + 1);
  return reader.Skip(recordSize);
}

void DumpImage(Bytes image, UINT32 depth) {
  LoadOptionView view;
  if (!ViewLoadOption(image, view)) {
    DebugPrint("fail buffer check\n");
    return;
  }
  PrintDescription(view.Description);
  PrintDevicePaths(view.FilePathList);
  if ((view.Attributes & LOAD_OPTION_ACTIVE) != 0) {
    DebugPrint("Option is active\n");
  } else {
    DebugPrint("Option is inactive\n");
  }
  if (IsTianoLegacyOption(view)) {
    DumpTianoData(view.OptionalData);
    return;
  }
  ByteReader reader(view.OptionalData);
  while (reader.Remaining() != 0 && DumpRecord(reader, depth)) {
  }
}

}  // namespace

void DumpLoadOption(Bytes image, bool nested) { DumpImage(image, nested ? 1 : 0); }

}  // namespace bds

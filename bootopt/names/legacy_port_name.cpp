// The CSM's boot menu shows a disk under its entry's description. For SATA and PATA disks this driver writes there the
// slot or channel that the disk is plugged into, and its model.
#include "bootopt/bbs_table.h"
#include "bootopt/names/bbs_names.h"
#include "bootopt/names/identify_data.h"
#include "platform/disk_info.h"
#include "platform/legacy_region.h"
#include "support/debug_print.h"
#include "support/legacy_memory.h"
#include "support/memory.h"
#include "support/protocols.h"

namespace bds {
namespace {

constexpr UINT8 kSubClassIde = 1;
constexpr UINT8 kSubClassSata = 6;
constexpr UINTN kModelLength = 20;
constexpr UINTN kPortNameLength = 32;
constexpr UINTN kPrefixLength = 11;

// 32 bytes as they are written, zeros behind the text.
struct PortName {
  char Text[kPortNameLength] = {};
};

// The chipset's SATA controllers are functions of one device.
UINTN ControllerNumber(UINT32 function) {
  switch (function) {
    case 5:
      return 1;
    case 4:
      return 2;
    default:
      return 0;
  }
}

char Digit(UINTN value) { return static_cast<char>('0' + value); }

// ATA strings hold two characters to a word, the first in the high byte.
void PutModel(char* text, const UINT8* identify) {
  for (UINTN i = 0; i < kModelLength; ++i) {
    text[i] = static_cast<char>(identify[kModelOffset + (i ^ 1)]);
  }
}

constexpr char kSlotTemplate[] = "HDD Slot x:";
constexpr char kChipsetTemplate[] = "PCH SATA x:";
constexpr UINTN kTemplateDigit = 9;

// What the x of the template becomes; it stays where the port has no number of one digit in that template.
char SlotDigit(UINTN controller, UINTN port) {
  const UINTN first = controller == 2 ? 5 : 1;
  const bool numbered = controller == 2 || port <= 3;
  return numbered && port + first <= 9 ? Digit(port + first) : 'x';
}
char ChipsetDigit(UINTN controller, UINTN port) {
  if (controller == 2 || port < 4 || port > 99) {
    return 'x';
  }
  return port == 4 ? '1' : '2';
}

PortName SataName(UINTN controller, UINTN port, const UINT8* identify) {
  DebugPrint("ControllerNo = %d  PortNumber = %d\n", controller, port);
  const bool chipset = port == 4 || port == 5;
  PortName name;
  CopyMemory(name.Text, chipset ? kChipsetTemplate : kSlotTemplate, kPrefixLength);
  name.Text[kTemplateDigit] = chipset ? ChipsetDigit(controller, port) : SlotDigit(controller, port);
  PutModel(name.Text + kPrefixLength, identify);
  return name;
}

// Word 76 (ACS-3, 7.12.7.41): the Serial ATA generations that a drive supports; 0 and 0xFFFF for a parallel drive.
bool IsSerialDrive(const UINT8* identify) {
  constexpr UINTN kSataCapabilities = 76 * sizeof(UINT16);
  constexpr UINT16 kGenerations = 0x0006;
  const auto word = LoadUnaligned<UINT16>(identify + kSataCapabilities);
  return word != 0xFFFF && (word & kGenerations) != 0;
}

PortName IdeName(UINTN controller, UINT32 channel, UINT32 drive, const UINT8* identify) {
  char text[kPrefixLength + 1] = "xPATAx XX: ";
  text[5] = Digit(controller);
  text[7] = channel == 1 ? 'S' : 'P';
  text[8] = drive == 1 ? 'S' : 'M';
  if (IsSerialDrive(identify)) {
    text[1] = 'S';
    if (controller == 2) {
      text[0] = 's';
      text[5] = ' ';
    }
  }
  const UINTN skipped = text[0] == 's' ? 0 : 1;
  PortName name;
  CopyMemory(name.Text, text + skipped, kPrefixLength - skipped);
  PutModel(name.Text + kPrefixLength - skipped, identify);
  return name;
}

void WriteDescription(const BBS_TABLE& entry, const PortName& name) {
  const std::span<char> target = LegacyBytes(entry.DescStringSegment, entry.DescStringOffset, kPortNameLength);
  auto* region = LocateProtocol<LEGACY_REGION_PROTOCOL>();
  if (target.size() != kPortNameLength || region == nullptr) {
    return;
  }
  const auto start = static_cast<UINT32>(reinterpret_cast<UINTN>(target.data()));
  UINT32 granularity = 0;
  if (EFI_ERROR(region->UnLock(region, start, kPortNameLength, &granularity))) {
    return;
  }
  CopyMemory(target.data(), name.Text, kPortNameLength);
  static_cast<void>(region->Lock(region, start, kPortNameLength, &granularity));
}

}  // namespace

void RewriteLegacyPortName(const BBS_TABLE& entry) {
  if (entry.SubClass != kSubClassSata && entry.SubClass != kSubClassIde) {
    return;
  }
  const EFI_HANDLE handle = BbsHandle(entry);
  auto* diskInfo = HandleProtocol<EFI_DISK_INFO_PROTOCOL>(handle);
  const PoolPtr<UINT8> identify = ReadIdentifyData(handle);
  UINT32 channel = 0;  // of an AHCI controller: the port
  UINT32 drive = 0;
  if (!identify || EFI_ERROR(diskInfo->WhichIde(diskInfo, &channel, &drive))) {
    return;
  }
  const UINTN controller = ControllerNumber(entry.Function);
  WriteDescription(entry, entry.SubClass == kSubClassSata ? SataName(controller, channel, identify.get())
                                                          : IdeName(controller, channel, drive, identify.get()));
}

}  // namespace bds

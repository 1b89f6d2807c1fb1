// Tags on what PCI configuration space says of an option's function: class, subclass and identifiers.
#include "platform/pci_config.h"
#include "support/debug_print.h"
#include "vboot/option_pci.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

enum class LegacyField : UINT8 { None, Class, SubClass };

// One register and how a tag is compared with it.
struct PCI_REGISTER_TAG {
  const char* Processor;
  const char* TagName;
  EFI_PCI_IO_PROTOCOL_WIDTH Width;
  UINT32 Offset;
  LegacyField Legacy;       // the BBS entry's field that a legacy option is compared with
  bool RefusesLargeValues;  // all above 254, or 255 alone
  RangeText TooLarge;
  const char* ReadFailed;
};
constexpr auto kByte = EfiPciIoWidthUint8;
constexpr auto kWord = EfiPciIoWidthUint16;
constexpr char kNoClass[] = "Failed to read class code.";
constexpr char kNoSubClass[] = "Failed to read subclass code.";

constexpr PCI_REGISTER_TAG kClass{
    "PciClassTag",           "PciClassId", kByte, PCI_BASE_CLASS_OFFSET, LegacyField::Class, true,
    RangeText::WithOriginal, kNoClass};
constexpr PCI_REGISTER_TAG kSubClass{"PciSubClassTag",      "PciSubClassId", kByte,           PCI_SUBCLASS_OFFSET,
                                     LegacyField::SubClass, false,           RangeText::Bare, kNoSubClass};
constexpr PCI_REGISTER_TAG kVendorId{"PciVIDTag", "PciVid",         kWord,   PCI_VENDOR_ID_OFFSET, LegacyField::None,
                                     false,       RangeText::Plain, kNoClass};
constexpr PCI_REGISTER_TAG kDeviceId{"PciDIDTag", "PciDid",         kWord,   PCI_DEVICE_ID_OFFSET, LegacyField::None,
                                     false,       RangeText::Plain, kNoClass};
constexpr PCI_REGISTER_TAG kSubsystemVendorId{
    "PciSVIDTag", "PciSubVid",      kWord,   PCI_SUBSYSTEM_VENDOR_ID_OFFSET, LegacyField::None,
    false,        RangeText::Plain, kNoClass};
constexpr PCI_REGISTER_TAG kSubsystemId{
    "PciSSIDTag", "PciSubDid", kWord, PCI_SUBSYSTEM_ID_OFFSET, LegacyField::None, false, RangeText::Plain, kNoClass};

EFI_STATUS ReadRegisterValue(TAG_CALL& call, const PCI_REGISTER_TAG& tag, UINT32& value) {
  constexpr UINT32 kRefused = 255;
  if (const EFI_STATUS status = ParseTagValue(call, value); EFI_ERROR(status)) {
    return status;
  }
  const bool refused = tag.RefusesLargeValues ? value >= kRefused : value == kRefused;
  return refused ? RefuseTagValue(call, value, tag.TooLarge) : EFI_SUCCESS;
}

TagVerdict CompareLegacy(TAG_CALL& call, UINT8 found, UINT32 wanted) {
  DebugPrint("0x%x\n", found);
  DebugPrintText(found == wanted ? "Legacy match\n" : "Legacy no match\n");
  return CompareFound(call, found, wanted);
}

EFI_STATUS MatchPciRegister(TAG_CALL& call, const PCI_REGISTER_TAG& tag) {
  DebugPrint("Found tag %a\n", tag.TagName);
  UINT32 value = 0;
  if (const EFI_STATUS status = ReadRegisterValue(call, tag, value); EFI_ERROR(status)) {
    return status;
  }
  DebugPrint("Trying to match 0x%x...", value);
  const UINT32 wanted = tag.Width == kWord ? value & 0xFFFF : value;
  EFI_STATUS result = EFI_SUCCESS;
  WalkOptions(call, {tag.Processor, true, "Has non matching tag\n", " Already has a priority\n"},
              [&](VBOOT_OPTION_WRAPPER& wrapper) {
                if (IsLegacyOption(*wrapper.Option) && tag.Legacy != LegacyField::None) {
                  const BBS_TABLE* entry = wrapper.Option->BbsEntry;
                  if (entry == nullptr) {
                    return TagVerdict::Keep;
                  }
                  return CompareLegacy(call, tag.Legacy == LegacyField::Class ? entry->Class : entry->SubClass, wanted);
                }
                UINT16 found = 0;
                PoolPtr<char> message;
                const EFI_STATUS status = ReadOptionPciConfig(wrapper, tag.Width, tag.Offset, &found, message);
                if (status == EFI_INVALID_PARAMETER) {
                  return TagVerdict::Keep;
                }
                if (EFI_ERROR(status)) {
                  result = EFI_DEVICE_ERROR;
                  return TagVerdict::Stop;
                }
                return CompareFound(call, found, wanted);
              });
  if (EFI_ERROR(result)) {
    SetTagMessage(call, "%s", tag.ReadFailed);
    return result;
  }
  SayWhenNothingMatched(call, tag.TagName);
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS PciClassTag(TAG_CALL& call) { return MatchPciRegister(call, kClass); }
EFI_STATUS PciSubClassTag(TAG_CALL& call) { return MatchPciRegister(call, kSubClass); }
EFI_STATUS PciVIDTag(TAG_CALL& call) { return MatchPciRegister(call, kVendorId); }
EFI_STATUS PciDIDTag(TAG_CALL& call) { return MatchPciRegister(call, kDeviceId); }
EFI_STATUS PciSVIDTag(TAG_CALL& call) { return MatchPciRegister(call, kSubsystemVendorId); }
EFI_STATUS PciSSIDTag(TAG_CALL& call) { return MatchPciRegister(call, kSubsystemId); }

}  // namespace bds

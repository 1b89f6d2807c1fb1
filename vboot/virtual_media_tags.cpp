// Tags on the media that the BMC, or its KVM console, maps onto a port of the USB bus: one unit each.
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/port_path.h"
#include "vboot/tag_processors.h"
#include "vboot/tag_walk.h"

namespace bds {
namespace {

// One kind of medium: its port, and what is said on a platform without it.
struct VIRTUAL_MEDIUM {
  const CHAR16* Port;
  const char* Missing;
};
constexpr VIRTUAL_MEDIUM kKvmDvd{u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)",
                                 "KVM vDVD not supported by vBoot."};
constexpr VIRTUAL_MEDIUM kKvmDisk{u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)/Unit(0x1)",
                                  "KVM vHDD not supported by vBoot."};
constexpr VIRTUAL_MEDIUM kKvmFloppy{u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)/Unit(0x2)",
                                    "KVM vFDD not supported by vBoot."};
constexpr VIRTUAL_MEDIUM kIxmoDvd{u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)/Unit(0x3)",
                                  "IXMO vDVD not supported by vBoot."};
constexpr VIRTUAL_MEDIUM kIxmoDisk{u"PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)/Unit(0x4)",
                                   "IXMO vHDD not supported by vBoot."};
constexpr VIRTUAL_MEDIUM kIxmoFloppy{kUndefinedPort, "IXMO vFDD not supported by vBoot."};

EFI_STATUS SelectMedium(TAG_CALL& call, const VIRTUAL_MEDIUM& medium) {
  if (TextEqual(medium.Port, kUndefinedPort)) {
    SetTagMessage(call, "%s", medium.Missing);
    return EFI_NOT_FOUND;
  }
  return SelectFirstOptionAtPath(medium.Port, call);
}

// By sub-type, from 1 on; 0 stands for all of them, in this order.
constexpr const VIRTUAL_MEDIUM* kBySubType[] = {&kKvmDvd, &kIxmoDvd, &kKvmDisk, &kIxmoDisk, &kKvmFloppy};

}  // namespace

EFI_STATUS KvmVMediaCDDTag(TAG_CALL& call) { return SelectMedium(call, kKvmDvd); }
EFI_STATUS KvmVMediaHDDTag(TAG_CALL& call) { return SelectMedium(call, kKvmDisk); }
EFI_STATUS KvmVMediaFDDTag(TAG_CALL& call) { return SelectMedium(call, kKvmFloppy); }
EFI_STATUS IxmoVMediaCDDTag(TAG_CALL& call) { return SelectMedium(call, kIxmoDvd); }
EFI_STATUS IxmoVMediaHDDTag(TAG_CALL& call) { return SelectMedium(call, kIxmoDisk); }
EFI_STATUS IxmoVMediaFDDTag(TAG_CALL& call) { return SelectMedium(call, kIxmoFloppy); }

EFI_STATUS VMediaSubTypeTag(TAG_CALL& call) {
  constexpr UINT32 kAll = 0;
  UINT32 subType = 0;
  if (const EFI_STATUS status = ReadTagValue(call, subType); EFI_ERROR(status)) {
    return status;
  }
  UINT32 number = 0;
  for (const VIRTUAL_MEDIUM* medium : kBySubType) {
    ++number;
    if (subType == kAll || subType == number) {
      static_cast<void>(SelectMedium(call, *medium));
      ClearRefusalMarks(call.Wrappers);
    }
  }
  call.Message.reset();
  SayWhenNothingMatched(call, "VMSubType");
  return EFI_SUCCESS;
}

EFI_STATUS VMediaFDDTag(TAG_CALL& call) {
  DebugPrint("ProcessingRemoveVMediaFDD \n");
  const PortPath floppy(kKvmFloppy.Port);
  WalkOptions(call, {}, [&](const VBOOT_OPTION_WRAPPER& wrapper) {
    if (!OptionIsUnder(floppy, wrapper)) {
      return TagVerdict::Keep;
    }
    DebugPrint("Eliminating KVM FDD \n");
    return TagVerdict::Refuse;
  });
  return EFI_SUCCESS;
}

}  // namespace bds

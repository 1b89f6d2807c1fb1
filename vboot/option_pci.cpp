#include "vboot/option_pci.h"

#include <utility>

#include "platform/pci_config.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/text.h"
#include "vboot/option_path.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

// False when the function does not tell.
bool ReadPlace(EFI_PCI_IO_PROTOCOL* pciIo, PCI_PLACE& place) {
  UINTN segment = 0;
  place.PciIo = pciIo;
  return pciIo != nullptr &&
         !EFI_ERROR(pciIo->GetLocation(pciIo, &segment, &place.Bus, &place.Device, &place.Function));
}

bool IsBbsLocation(const PCI_PLACE& place, const BBS_TABLE& entry) {
  return place.Bus == entry.Bus && place.Device == entry.Device && place.Function == entry.Function;
}

bool SitsAtBbsLocation(EFI_PCI_IO_PROTOCOL& pciIo, const BBS_TABLE& entry) {
  PCI_PLACE place;
  return ReadPlace(&pciIo, place) && IsBbsLocation(place, entry);
}

// Adapters of these two vendors list their disks under a function that need not be the one of the path.
bool IsKnownByItsVendor(EFI_PCI_IO_PROTOCOL& pciIo) {
  constexpr UINT16 kFibreChannelVendor = 0x10DF;
  constexpr UINT16 kConvergedVendor = 0x19A2;
  UINT16 vendor = 0;
  return !EFI_ERROR(pciIo.Pci.Read(&pciIo, EfiPciIoWidthUint16, PCI_VENDOR_ID_OFFSET, 1, &vendor)) &&
         vendor != kFibreChannelVendor && vendor != kConvergedVendor;
}

// Asks every function once for all options and tags. A list that could not be made is tried again.
void ListPciPlaces() {
  const HandleBuffer handles = HandlesWith<EFI_PCI_IO_PROTOCOL>();
  PoolPtr<PCI_PLACE> places = AllocateArray<PCI_PLACE>(handles.size());
  UINTN count = 0;
  for (UINTN i = 0; places && i < handles.size(); ++i) {
    places[count] = {};
    count += ReadPlace(HandleProtocol<EFI_PCI_IO_PROTOCOL>(handles[i]), places[count]) ? 1 : 0;
  }
  gPolicyEngine.PciPlaceCount = count;
  gPolicyEngine.PciPlaces = std::move(places);
}

EFI_PCI_IO_PROTOCOL* FindAtBbsLocation(const BBS_TABLE& entry) {
  if (gPolicyEngine.PciPlaceCount == 0) {
    ListPciPlaces();
  }
  for (UINTN i = 0; i < gPolicyEngine.PciPlaceCount; ++i) {
    if (IsBbsLocation(gPolicyEngine.PciPlaces[i], entry)) {
      return gPolicyEngine.PciPlaces[i].PciIo;
    }
  }
  return nullptr;
}

// The interface that is the option's, or null.
EFI_PCI_IO_PROTOCOL* Verify(const BOOT_OPTION& option, EFI_PCI_IO_PROTOCOL* pciIo) {
  if (option.BbsIndex == kNoBbsIndex || option.BbsEntry == nullptr) {
    return pciIo;
  }
  if (pciIo != nullptr && (IsKnownByItsVendor(*pciIo) || SitsAtBbsLocation(*pciIo, *option.BbsEntry))) {
    return pciIo;
  }
  return FindAtBbsLocation(*option.BbsEntry);
}

}  // namespace

EFI_HANDLE LocatePciIo(const DevicePath* path, VBOOT_OPTION_WRAPPER& wrapper) {
  auto* remaining = const_cast<DevicePath*>(path);
  EFI_HANDLE handle = nullptr;
  if (EFI_ERROR(BootServices()->LocateDevicePath(&ProtocolGuid<EFI_PCI_IO_PROTOCOL>, &remaining, &handle))) {
    return nullptr;
  }
  wrapper.PciHandle = handle;
  wrapper.PciIo = HandleProtocol<EFI_PCI_IO_PROTOCOL>(handle);
  return handle;
}

void ForgetPciPlaces() {
  gPolicyEngine.PciPlaces.reset();
  gPolicyEngine.PciPlaceCount = 0;
}

EFI_STATUS ReadOptionPciConfig(VBOOT_OPTION_WRAPPER& wrapper, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT32 offset,
                               void* buffer, PoolPtr<char>& message) {
  if (wrapper.PciIo == nullptr) {
    const DevicePath* start = FindPciPathStart(*wrapper.Option, wrapper.DiskDevicePath.get());
    const PoolPtr<DevicePath> path = TrimToPciNode(start);
    if (!path) {
      return EFI_INVALID_PARAMETER;
    }
    LocatePciIo(path.get(), wrapper);
    wrapper.PciIo = Verify(*wrapper.Option, wrapper.PciIo);
    DebugPrintText(wrapper.PciIo != nullptr ? "PCI IO protocol verified/corrected\n"
                                            : "Unable to verify device, no go.\n");
  }
  if (wrapper.PciIo == nullptr) {
    constexpr char kFailed[] = "Failed to locate PCI IO.";
    DebugPrint("%a\n", kFailed);
    message = CopyText(kFailed, TextLength(kFailed));
    return EFI_DEVICE_ERROR;
  }
  return wrapper.PciIo->Pci.Read(wrapper.PciIo, width, offset, 1, buffer);
}

}  // namespace bds

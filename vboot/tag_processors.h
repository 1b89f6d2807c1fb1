// The tag processors, by what they look at. Each follows the contract of tag_processor.h; the table in tag_dispatch.cpp
// gives each its tag.
#pragma once

#include "vboot/tag_processor.h"

namespace bds {

// PCI identity (pci_tags.cpp, pci_place_tags.cpp).
EFI_STATUS PciClassTag(TAG_CALL& call);
EFI_STATUS PciSubClassTag(TAG_CALL& call);
EFI_STATUS PciVIDTag(TAG_CALL& call);
EFI_STATUS PciDIDTag(TAG_CALL& call);
EFI_STATUS PciSVIDTag(TAG_CALL& call);
EFI_STATUS PciSSIDTag(TAG_CALL& call);
EFI_STATUS PciBusTag(TAG_CALL& call);
EFI_STATUS PciDevTag(TAG_CALL& call);
EFI_STATUS PciFuncTag(TAG_CALL& call);

// Device categories made of class and subclass (category_tags.cpp).
EFI_STATUS LocalHDDTag(TAG_CALL& call);
EFI_STATUS LocalHDDAnyTag(TAG_CALL& call);
EFI_STATUS ProcNVMEAnyTag(TAG_CALL& call);
EFI_STATUS ProcLocalStorageAnyTag(TAG_CALL& call);
EFI_STATUS LANTag(TAG_CALL& call);
EFI_STATUS ProcLANAnyTag(TAG_CALL& call);
EFI_STATUS SANTag(TAG_CALL& call);
EFI_STATUS ProcSANAnyTag(TAG_CALL& call);
EFI_STATUS ISCSITag(TAG_CALL& call);
EFI_STATUS ISCSIAnyTag(TAG_CALL& call);

// Disks on the board's SATA ports (onboard_disk_tags.cpp).
EFI_STATUS PCHAnyTag(TAG_CALL& call);
EFI_STATUS HDDLunTag(TAG_CALL& call);

// Slots, ports and addresses (place_tags.cpp, address_tags.cpp).
EFI_STATUS PortNumTag(TAG_CALL& call);
EFI_STATUS SlotIDTag(TAG_CALL& call);
EFI_STATUS SlotTag(TAG_CALL& call);
EFI_STATUS MacAddressTag(TAG_CALL& call);
EFI_STATUS ProcPrimaryTargetWWPN(TAG_CALL& call);

// USB, SD card and legacy types (removable_tags.cpp, sd_lun_tag.cpp).
EFI_STATUS ExternalUsbTag(TAG_CALL& call);
EFI_STATUS InternalUsbTag(TAG_CALL& call);
EFI_STATUS LocalCDDTag(TAG_CALL& call);
EFI_STATUS LocalFDDTag(TAG_CALL& call);
EFI_STATUS SDStorageTag(TAG_CALL& call);
EFI_STATUS SDLUNTag(TAG_CALL& call);
EFI_STATUS USBSubTypeTag(TAG_CALL& call);
EFI_STATUS EfiShellTag(TAG_CALL& call);
// Not in the table: keeps the legacy options of one BBS device type, which the value names.
EFI_STATUS BbsTypeTag(TAG_CALL& call);

// Media that the BMC maps onto a USB port (virtual_media_tags.cpp).
EFI_STATUS KvmVMediaCDDTag(TAG_CALL& call);
EFI_STATUS KvmVMediaHDDTag(TAG_CALL& call);
EFI_STATUS KvmVMediaFDDTag(TAG_CALL& call);
EFI_STATUS IxmoVMediaCDDTag(TAG_CALL& call);
EFI_STATUS IxmoVMediaHDDTag(TAG_CALL& call);
EFI_STATUS IxmoVMediaFDDTag(TAG_CALL& call);
EFI_STATUS VMediaSubTypeTag(TAG_CALL& call);
// Not in the table: refuses floppies that the BMC maps.
EFI_STATUS VMediaFDDTag(TAG_CALL& call);

// Loaders by path and name (loader_tags.cpp, san_loader_tags.cpp).
EFI_STATUS ProcBootloaderPath(TAG_CALL& call);
EFI_STATUS ProcBootloaderName(TAG_CALL& call);
EFI_STATUS PathInSANity(TAG_CALL& call);
EFI_STATUS NameInSANity(TAG_CALL& call);

}  // namespace bds

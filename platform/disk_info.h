// The disk info protocol (PI 1.7, volume 5): what a disk says about itself, and where it hangs on its controller.
#pragma once

#include "platform/uefi_base.h"

// Sizes are in bytes: in, of the buffer; out, of the data.
struct EFI_DISK_INFO_PROTOCOL {
  EFI_GUID Interface;  // the kind of bus, one of the GUIDs below
  EFI_STATUS(EFIAPI* Inquiry)(EFI_DISK_INFO_PROTOCOL* This, VOID* InquiryData, UINT32* InquiryDataSize);
  EFI_STATUS(EFIAPI* Identify)(EFI_DISK_INFO_PROTOCOL* This, VOID* IdentifyData, UINT32* IdentifyDataSize);
  EFI_STATUS(EFIAPI* SenseData)
  (EFI_DISK_INFO_PROTOCOL* This, VOID* SenseData, UINT32* SenseDataSize, UINT8* SenseDataNumber);
  // IDE: channel 0 primary, 1 secondary; device 0 master, 1 slave. AHCI: port, and port multiplier port.
  EFI_STATUS(EFIAPI* WhichIde)(EFI_DISK_INFO_PROTOCOL* This, UINT32* IdeChannel, UINT32* IdeDevice);
};
static_assert(offsetof(EFI_DISK_INFO_PROTOCOL, Inquiry) == 16);
static_assert(offsetof(EFI_DISK_INFO_PROTOCOL, Identify) == 24);
static_assert(offsetof(EFI_DISK_INFO_PROTOCOL, WhichIde) == 40);
static_assert(sizeof(EFI_DISK_INFO_PROTOCOL) == 48);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DISK_INFO_PROTOCOL>{
    0xD432A67F, 0x14DC, 0x484B, {0xB3, 0xBB, 0x3F, 0x02, 0x91, 0x84, 0x93, 0x27}};

inline constexpr EFI_GUID gEfiDiskInfoIdeInterfaceGuid{
    0x5E948FE3, 0x26D3, 0x42B5, {0xAF, 0x17, 0x61, 0x02, 0x87, 0x18, 0x8D, 0xEC}};
inline constexpr EFI_GUID gEfiDiskInfoScsiInterfaceGuid{
    0x08F74BAA, 0xEA36, 0x41D9, {0x95, 0x21, 0x21, 0xA7, 0x0F, 0x87, 0x80, 0xBC}};
inline constexpr EFI_GUID gEfiDiskInfoUsbInterfaceGuid{
    0xCB871572, 0xC11A, 0x47B5, {0xB4, 0x92, 0x67, 0x5E, 0xAF, 0xA7, 0x77, 0x27}};
inline constexpr EFI_GUID gEfiDiskInfoAhciInterfaceGuid{
    0x9E498932, 0x4ABC, 0x45AF, {0xA3, 0x4D, 0x02, 0x47, 0x78, 0x7B, 0xE7, 0xC6}};
inline constexpr EFI_GUID gEfiDiskInfoNvmeInterfaceGuid{
    0x3AB14680, 0x5D3F, 0x4A4D, {0xBC, 0xDC, 0xCC, 0x38, 0x00, 0x18, 0xC7, 0xF7}};

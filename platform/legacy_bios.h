// The Legacy BIOS protocol and the BBS table (Intel CSM 0.98, 3.2.1.3): how legacy devices are seen.
#pragma once

#include "platform/device_path.h"

// Real-mode code and data of the CSM, below 1 MiB.
#pragma pack(push, 1)

// One entry of the BIOS boot table; strings are real-mode segment:offset pointers.
struct BBS_TABLE {
  UINT16 BootPriority;  // 0xFFFF: empty entry; 0: the entry that LegacyBoot boots
  UINT32 Bus;
  UINT32 Device;
  UINT32 Function;
  UINT8 Class;
  UINT8 SubClass;
  UINT16 MfgStringOffset;
  UINT16 MfgStringSegment;
  UINT16 DeviceType;   // BBS_TYPE_*
  UINT16 StatusFlags;  // BBS_STATUS_FLAGS
  UINT16 BootHandlerOffset;
  UINT16 BootHandlerSegment;
  UINT16 DescStringOffset;
  UINT16 DescStringSegment;
  UINT32 InitPerReserved;
  UINT32 AdditionalIrq13Handler;
  UINT32 AdditionalIrq18Handler;
  UINT32 AdditionalIrq19Handler;
  UINT32 AdditionalIrq40Handler;
  UINT8 AssignedDriveNumber;
  UINT32 AdditionalIrq41Handler;
  UINT32 AdditionalIrq46Handler;
  UINT32 IBV1;  // low half of the handle behind the entry
  UINT32 IBV2;  // high half
};

#pragma pack(pop)

static_assert(sizeof(BBS_TABLE) == 69);
static_assert(offsetof(BBS_TABLE, Class) == 14);
static_assert(offsetof(BBS_TABLE, DeviceType) == 20);
static_assert(offsetof(BBS_TABLE, DescStringOffset) == 28);
static_assert(offsetof(BBS_TABLE, AssignedDriveNumber) == 52);
static_assert(offsetof(BBS_TABLE, IBV1) == 61);

// BBS_STATUS_FLAGS: bits 3:0 old position, 8 enabled, 9 failed, 11:10 media present.
inline constexpr UINT16 BBS_STATUS_ENABLED = 1 << 8;
inline constexpr UINT16 BBS_STATUS_FAILED = 1 << 9;
inline constexpr UINT16 BBS_STATUS_MEDIA_PRESENT = 2 << 10;

// Drive data of one IDE channel (identify data of master and slave).
struct HDD_INFO {
  UINT16 Status;
  UINT32 Bus;
  UINT32 Device;
  UINT32 Function;
  UINT16 CommandBaseAddress;
  UINT16 ControlBaseAddress;
  UINT16 BusMasterAddress;
  UINT8 HddIrq;
  UINT8 IdentifyDrive[2][512];
};
inline constexpr UINTN kMaxIdeControllers = 8;

struct EFI_IA32_REGISTER_SET;

struct EFI_LEGACY_BIOS_PROTOCOL {
  BOOLEAN(EFIAPI* Int86)(EFI_LEGACY_BIOS_PROTOCOL* This, UINT8 BiosInt, EFI_IA32_REGISTER_SET* Regs);
  BOOLEAN(EFIAPI* FarCall86)
  (EFI_LEGACY_BIOS_PROTOCOL* This, UINT16 Segment, UINT16 Offset, EFI_IA32_REGISTER_SET* Regs, VOID* Stack,
   UINTN StackSize);
  EFI_STATUS(EFIAPI* CheckPciRom)
  (EFI_LEGACY_BIOS_PROTOCOL* This, EFI_HANDLE PciHandle, VOID** RomImage, UINTN* RomSize, UINTN* Flags);
  EFI_STATUS(EFIAPI* InstallPciRom)
  (EFI_LEGACY_BIOS_PROTOCOL* This, EFI_HANDLE PciHandle, VOID** RomImage, UINTN* Flags, UINT8* DiskStart,
   UINT8* DiskEnd, VOID** RomShadowAddress, UINT32* ShadowedRomSize);
  EFI_STATUS(EFIAPI* LegacyBoot)
  (EFI_LEGACY_BIOS_PROTOCOL* This, BBS_BBS_DEVICE_PATH* BootOption, UINT32 LoadOptionsSize, VOID* LoadOptions);
  EFI_STATUS(EFIAPI* UpdateKeyboardLedStatus)(EFI_LEGACY_BIOS_PROTOCOL* This, UINT8 Leds);
  EFI_STATUS(EFIAPI* GetBbsInfo)
  (EFI_LEGACY_BIOS_PROTOCOL* This, UINT16* HddCount, HDD_INFO** HddInfo, UINT16* BbsCount, BBS_TABLE** BbsTable);
  EFI_STATUS(EFIAPI* ShadowAllLegacyOproms)(EFI_LEGACY_BIOS_PROTOCOL* This);
  EFI_STATUS(EFIAPI* PrepareToBootEfi)(EFI_LEGACY_BIOS_PROTOCOL* This, UINT16* BbsCount, BBS_TABLE** BbsTable);
  EFI_STATUS(EFIAPI* GetLegacyRegion)
  (EFI_LEGACY_BIOS_PROTOCOL* This, UINTN LegacyMemorySize, UINTN Region, UINTN Alignment, VOID** LegacyMemoryAddress);
  EFI_STATUS(EFIAPI* CopyLegacyRegion)
  (EFI_LEGACY_BIOS_PROTOCOL* This, UINTN LegacyMemorySize, VOID* LegacyMemoryAddress, VOID* LegacyMemorySourceAddress);
  EFI_STATUS(EFIAPI* BootUnconventionalDevice)
  (EFI_LEGACY_BIOS_PROTOCOL* This, UINT32 Attributes, UINTN BbsEntry, VOID* BeerData, VOID* ServiceAreaData);
};
static_assert(offsetof(EFI_LEGACY_BIOS_PROTOCOL, LegacyBoot) == 32);
static_assert(offsetof(EFI_LEGACY_BIOS_PROTOCOL, GetBbsInfo) == 48);
static_assert(offsetof(EFI_LEGACY_BIOS_PROTOCOL, ShadowAllLegacyOproms) == 56);
static_assert(offsetof(EFI_LEGACY_BIOS_PROTOCOL, CopyLegacyRegion) == 80);
static_assert(sizeof(EFI_LEGACY_BIOS_PROTOCOL) == 96);

template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_LEGACY_BIOS_PROTOCOL>{
    0xDB9A1E3D, 0x45CB, 0x4ABB, {0x85, 0x3B, 0xE5, 0x38, 0x7F, 0xDB, 0x2E, 0x2D}};

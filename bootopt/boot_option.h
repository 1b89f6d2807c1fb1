// The two record types that all boot option work is done on, and the rules derived from their fields.
#pragma once

#include "platform/device_path.h"
#include "platform/legacy_bios.h"
#include "platform/uefi_base.h"
#include "support/pool.h"

namespace bds {

inline constexpr UINT16 kNoBootOptionNumber = 0xFFFF;
inline constexpr UINT16 kNoBbsIndex = 0xFFFF;
inline constexpr UINT32 kUnassigned = 0xFFFFFFFF;  // of a Priority or Tag

// One boot option. Lives in BootOptionList, which owns it.
struct BOOT_OPTION {
  BOOT_OPTION* Next = nullptr;
  BOOT_OPTION* Previous = nullptr;
  UINT32 Attributes = LOAD_OPTION_ACTIVE;          // EFI_LOAD_OPTION attributes
  PoolPtr<CHAR16> Description;                     // the option's name; null when it has none
  PoolPtr<EFI_DEVICE_PATH_PROTOCOL> FilePathList;  // device paths one after the other, each with its end node
  UINTN FilePathListLength = 0;                    // bytes of FilePathList
  PoolPtr<std::byte> OptionalData;                 // without the driver's own marker records
  UINTN OptionalDataSize = 0;                      // bytes of OptionalData
  UINT16 BootOptionNumber = kNoBootOptionNumber;   // the #### of its Boot#### variable
  UINT32 Priority = kUnassigned;                   // position key within the boot order
  UINT32 Tag = kUnassigned;                        // group key: group position << 16 | group id
  EFI_HANDLE DeviceHandle = nullptr;               // device matched this boot
  UINT16 BbsIndex = kNoBbsIndex;                   // index of the matched BBS entry
  BBS_TABLE* BbsEntry = nullptr;                   // matched legacy device; belongs to the CSM
  BOOLEAN FwBootOption = FALSE;                    // it belongs to the firmware
  BOOLEAN GroupHeader = FALSE;                     // it stands for all legacy devices of one type; members follow it
  UINT16 StoredNumber = kNoBootOptionNumber;       // the #### that it was loaded from; it may be numbered anew since
  BOOLEAN Repeated = FALSE;                        // BootOrder listed its number before; such options go before saving
};

// Where a device is found by paths. Written by the matching step before it compares the device with all options; the
// pointers are the firmware's and valid within that step.
struct DEVICE_PLACE {
  BOOLEAN Known = FALSE;                                    // written; else whoever needs it asks the handle
  const EFI_DEVICE_PATH_PROTOCOL* Path = nullptr;           // of the handle; null without one
  UINTN PathSize = 0;                                       // bytes of its first instance, without the end
  const EFI_DEVICE_PATH_PROTOCOL* PartitionNode = nullptr;  // its last node when the handle is a partition's
};

// One bootable device found this boot. Lives in BootDeviceList, which owns it.
struct BOOT_DEVICE {
  BOOT_DEVICE* Next = nullptr;
  BOOT_DEVICE* Previous = nullptr;
  EFI_HANDLE DeviceHandle = nullptr;  // for a BBS entry the handle kept in IBV1/IBV2, possibly null
  UINT16 BbsIndex = kNoBbsIndex;
  BBS_TABLE* BbsEntry = nullptr;  // null for a UEFI device; belongs to the CSM
  PoolPtr<char> DeviceName;       // null when no name was found
  DEVICE_PLACE Place;
};

// FilePathList present: its first node is a BBS node; otherwise: it has a BBS entry.
[[nodiscard]] bool IsLegacyOption(const BOOT_OPTION& option);
// A device of this boot claimed it.
[[nodiscard]] bool IsMatched(const BOOT_OPTION& option);
// Not a group header, and no device of this boot claimed it.
[[nodiscard]] bool IsOrphan(const BOOT_OPTION& option);
// Its path begins with a hard-drive media node.
[[nodiscard]] bool IsUefiHardDiskOption(const BOOT_OPTION& option);
// Its path begins with the built-in application node (the shell).
[[nodiscard]] bool IsBuiltInApplicationOption(const BOOT_OPTION& option);
// The node itself: a vendor-defined media node with the GUID below and nothing behind it. node may be null.
[[nodiscard]] bool IsBuiltInApplicationNode(const EFI_DEVICE_PATH_PROTOCOL* node);
// The UINT16 at byte 4 of its first path node (a BBS node's device type); false when the path is too short.
[[nodiscard]] bool FirstNodeDeviceType(const BOOT_OPTION& option, UINT16& deviceType);

// The vendor-defined media node that stands for the built-in application.
inline constexpr EFI_GUID kBuiltInApplicationGuid{
    0x5023B95C, 0xDB26, 0x429B, {0xA6, 0x48, 0xBD, 0x47, 0x66, 0x4C, 0x80, 0x12}};

}  // namespace bds

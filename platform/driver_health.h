// The driver health protocol (UEFI 2.10, 11.10): what a driver thinks of its controllers, and their repair.
#pragma once

#include "platform/hii_package_list.h"
#include "platform/uefi_base.h"

enum EFI_DRIVER_HEALTH_STATUS : UINT32 {
  EfiDriverHealthStatusHealthy,
  EfiDriverHealthStatusRepairRequired,
  EfiDriverHealthStatusConfigurationRequired,
  EfiDriverHealthStatusFailed,
  EfiDriverHealthStatusReconnectRequired,
  EfiDriverHealthStatusRebootRequired,
};

// A list of these ends with a null HiiHandle.
struct EFI_DRIVER_HEALTH_HII_MESSAGE {
  EFI_HII_HANDLE HiiHandle;
  EFI_STRING_ID StringId;
  UINT64 MessageCode;
};
static_assert(offsetof(EFI_DRIVER_HEALTH_HII_MESSAGE, MessageCode) == 16);
static_assert(sizeof(EFI_DRIVER_HEALTH_HII_MESSAGE) == 24);

// Told how far a repair is: Value out of Limit; Limit 0: not known.
using EFI_DRIVER_HEALTH_REPAIR_NOTIFY = EFI_STATUS(EFIAPI*)(UINTN Value, UINTN Limit);

struct EFI_DRIVER_HEALTH_PROTOCOL {
  // ControllerHandle null: the health of all that the driver manages. MessageList is pool memory that the caller
  // frees; it and FormHiiHandle may be null pointers.
  EFI_STATUS(EFIAPI* GetHealthStatus)
  (EFI_DRIVER_HEALTH_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE ChildHandle,
   EFI_DRIVER_HEALTH_STATUS* HealthStatus, EFI_DRIVER_HEALTH_HII_MESSAGE** MessageList, EFI_HII_HANDLE* FormHiiHandle);
  EFI_STATUS(EFIAPI* Repair)
  (EFI_DRIVER_HEALTH_PROTOCOL* This, EFI_HANDLE ControllerHandle, EFI_HANDLE ChildHandle,
   EFI_DRIVER_HEALTH_REPAIR_NOTIFY RepairNotify);
};
static_assert(offsetof(EFI_DRIVER_HEALTH_PROTOCOL, Repair) == 8);
static_assert(sizeof(EFI_DRIVER_HEALTH_PROTOCOL) == 16);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_DRIVER_HEALTH_PROTOCOL>{
    0x2A534210, 0x9280, 0x41D8, {0xAE, 0x79, 0xCA, 0xDA, 0x01, 0xA2, 0xB1, 0x27}};

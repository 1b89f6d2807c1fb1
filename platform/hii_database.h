// The HII database protocol (UEFI 2.10, 34.8).
#pragma once

#include "platform/hii_package_list.h"

using EFI_HII_DATABASE_NOTIFY_TYPE = UINTN;
using EFI_HII_DATABASE_NOTIFY = EFI_STATUS(EFIAPI*)(UINT8 PackageType, const EFI_GUID* PackageGuid,
                                                    const EFI_HII_PACKAGE_HEADER* Package, EFI_HII_HANDLE Handle,
                                                    EFI_HII_DATABASE_NOTIFY_TYPE NotifyType);

struct EFI_HII_DATABASE_PROTOCOL {
  EFI_STATUS(EFIAPI* NewPackageList)
  (const EFI_HII_DATABASE_PROTOCOL* This, const EFI_HII_PACKAGE_LIST_HEADER* PackageList, EFI_HANDLE DriverHandle,
   EFI_HII_HANDLE* Handle);
  EFI_STATUS(EFIAPI* RemovePackageList)(const EFI_HII_DATABASE_PROTOCOL* This, EFI_HII_HANDLE Handle);
  EFI_STATUS(EFIAPI* UpdatePackageList)
  (const EFI_HII_DATABASE_PROTOCOL* This, EFI_HII_HANDLE Handle, const EFI_HII_PACKAGE_LIST_HEADER* PackageList);
  EFI_STATUS(EFIAPI* ListPackageLists)
  (const EFI_HII_DATABASE_PROTOCOL* This, UINT8 PackageType, const EFI_GUID* PackageGuid, UINTN* HandleBufferLength,
   EFI_HII_HANDLE* Handle);
  EFI_STATUS(EFIAPI* ExportPackageLists)
  (const EFI_HII_DATABASE_PROTOCOL* This, EFI_HII_HANDLE Handle, UINTN* BufferSize,
   EFI_HII_PACKAGE_LIST_HEADER* Buffer);
  EFI_STATUS(EFIAPI* RegisterPackageNotify)
  (const EFI_HII_DATABASE_PROTOCOL* This, UINT8 PackageType, const EFI_GUID* PackageGuid,
   EFI_HII_DATABASE_NOTIFY PackageNotifyFn, EFI_HII_DATABASE_NOTIFY_TYPE NotifyType, EFI_HANDLE* NotifyHandle);
  EFI_STATUS(EFIAPI* UnregisterPackageNotify)(const EFI_HII_DATABASE_PROTOCOL* This, EFI_HANDLE NotificationHandle);
  EFI_STATUS(EFIAPI* FindKeyboardLayouts)
  (const EFI_HII_DATABASE_PROTOCOL* This, UINT16* KeyGuidBufferLength, EFI_GUID* KeyGuidBuffer);
  EFI_STATUS(EFIAPI* GetKeyboardLayout)
  (const EFI_HII_DATABASE_PROTOCOL* This, const EFI_GUID* KeyGuid, UINT16* KeyboardLayoutLength, VOID* KeyboardLayout);
  EFI_STATUS(EFIAPI* SetKeyboardLayout)(const EFI_HII_DATABASE_PROTOCOL* This, const EFI_GUID* KeyGuid);
  EFI_STATUS(EFIAPI* GetPackageListHandle)
  (const EFI_HII_DATABASE_PROTOCOL* This, EFI_HII_HANDLE PackageListHandle, EFI_HANDLE* DriverHandle);
};
static_assert(offsetof(EFI_HII_DATABASE_PROTOCOL, GetPackageListHandle) == 80);

template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_HII_DATABASE_PROTOCOL>{
    0xEF9FC172, 0xA1B2, 0x4693, {0xB3, 0x27, 0x6D, 0x32, 0xFC, 0x41, 0x60, 0x42}};

// The boot services table (UEFI 2.10, 4.4 and chapter 7), complete and in order: images started by the driver,
// and foreign images started by the simulated server, call through these very offsets.
#pragma once

#include "platform/device_path.h"
#include "platform/uefi_base.h"

struct EFI_TABLE_HEADER {
  UINT64 Signature;
  UINT32 Revision;
  UINT32 HeaderSize;
  UINT32 CRC32;
  UINT32 Reserved;
};
static_assert(sizeof(EFI_TABLE_HEADER) == 24);

inline constexpr UINT64 EFI_BOOT_SERVICES_SIGNATURE = 0x56524553544F4F42;     // "BOOTSERV"
inline constexpr UINT64 EFI_RUNTIME_SERVICES_SIGNATURE = 0x56524553544E5552;  // "RUNTSERV"
inline constexpr UINT64 EFI_SYSTEM_TABLE_SIGNATURE = 0x5453595320494249;      // "IBI SYST"
inline constexpr UINT32 EFI_2_70_SYSTEM_TABLE_REVISION = (2 << 16) | 70;

enum EFI_ALLOCATE_TYPE : UINT32 { AllocateAnyPages, AllocateMaxAddress, AllocateAddress, MaxAllocateType };

enum EFI_MEMORY_TYPE : UINT32 {
  EfiReservedMemoryType,
  EfiLoaderCode,
  EfiLoaderData,
  EfiBootServicesCode,
  EfiBootServicesData,
  EfiRuntimeServicesCode,
  EfiRuntimeServicesData,
  EfiConventionalMemory,
  EfiUnusableMemory,
  EfiACPIReclaimMemory,
  EfiACPIMemoryNVS,
  EfiMemoryMappedIO,
  EfiMemoryMappedIOPortSpace,
  EfiPalCode,
  EfiMaxMemoryType,
};

struct EFI_MEMORY_DESCRIPTOR {
  UINT32 Type;
  UINT32 Pad;
  EFI_PHYSICAL_ADDRESS PhysicalStart;
  EFI_VIRTUAL_ADDRESS VirtualStart;
  UINT64 NumberOfPages;  // of 4 KiB
  UINT64 Attribute;
};
static_assert(sizeof(EFI_MEMORY_DESCRIPTOR) == 40);

inline constexpr EFI_TPL TPL_APPLICATION = 4;
inline constexpr EFI_TPL TPL_CALLBACK = 8;
inline constexpr EFI_TPL TPL_NOTIFY = 16;
inline constexpr EFI_TPL TPL_HIGH_LEVEL = 31;

inline constexpr UINT32 EVT_TIMER = 0x80000000;
inline constexpr UINT32 EVT_RUNTIME = 0x40000000;
inline constexpr UINT32 EVT_NOTIFY_WAIT = 0x00000100;
inline constexpr UINT32 EVT_NOTIFY_SIGNAL = 0x00000200;
inline constexpr UINT32 EVT_SIGNAL_EXIT_BOOT_SERVICES = 0x00000201;
inline constexpr UINT32 EVT_SIGNAL_VIRTUAL_ADDRESS_CHANGE = 0x60000202;

enum EFI_TIMER_DELAY : UINT32 { TimerCancel, TimerPeriodic, TimerRelative };
enum EFI_INTERFACE_TYPE : UINT32 { EFI_NATIVE_INTERFACE };
enum EFI_LOCATE_SEARCH_TYPE : UINT32 { AllHandles, ByRegisterNotify, ByProtocol };

inline constexpr UINT32 EFI_OPEN_PROTOCOL_BY_HANDLE_PROTOCOL = 0x01;
inline constexpr UINT32 EFI_OPEN_PROTOCOL_GET_PROTOCOL = 0x02;
inline constexpr UINT32 EFI_OPEN_PROTOCOL_TEST_PROTOCOL = 0x04;
inline constexpr UINT32 EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER = 0x08;
inline constexpr UINT32 EFI_OPEN_PROTOCOL_BY_DRIVER = 0x10;
inline constexpr UINT32 EFI_OPEN_PROTOCOL_EXCLUSIVE = 0x20;

struct EFI_OPEN_PROTOCOL_INFORMATION_ENTRY {
  EFI_HANDLE AgentHandle;
  EFI_HANDLE ControllerHandle;
  UINT32 Attributes;
  UINT32 OpenCount;
};
static_assert(sizeof(EFI_OPEN_PROTOCOL_INFORMATION_ENTRY) == 24);

using EFI_EVENT_NOTIFY = void(EFIAPI*)(EFI_EVENT Event, VOID* Context);

// Every member is a function pointer of the standard's signature; input GUIDs, paths and names are const here,
// which changes nothing in the binary interface.
struct EFI_BOOT_SERVICES {
  EFI_TABLE_HEADER Hdr;

  EFI_TPL(EFIAPI* RaiseTPL)(EFI_TPL NewTpl);
  VOID(EFIAPI* RestoreTPL)(EFI_TPL OldTpl);

  EFI_STATUS(EFIAPI* AllocatePages)
  (EFI_ALLOCATE_TYPE Type, EFI_MEMORY_TYPE MemoryType, UINTN Pages, EFI_PHYSICAL_ADDRESS* Memory);
  EFI_STATUS(EFIAPI* FreePages)(EFI_PHYSICAL_ADDRESS Memory, UINTN Pages);
  EFI_STATUS(EFIAPI* GetMemoryMap)
  (UINTN* MemoryMapSize, EFI_MEMORY_DESCRIPTOR* MemoryMap, UINTN* MapKey, UINTN* DescriptorSize,
   UINT32* DescriptorVersion);
  EFI_STATUS(EFIAPI* AllocatePool)(EFI_MEMORY_TYPE PoolType, UINTN Size, VOID** Buffer);
  EFI_STATUS(EFIAPI* FreePool)(VOID* Buffer);

  EFI_STATUS(EFIAPI* CreateEvent)
  (UINT32 Type, EFI_TPL NotifyTpl, EFI_EVENT_NOTIFY NotifyFunction, VOID* NotifyContext, EFI_EVENT* Event);
  EFI_STATUS(EFIAPI* SetTimer)(EFI_EVENT Event, EFI_TIMER_DELAY Type, UINT64 TriggerTime);
  EFI_STATUS(EFIAPI* WaitForEvent)(UINTN NumberOfEvents, EFI_EVENT* Event, UINTN* Index);
  EFI_STATUS(EFIAPI* SignalEvent)(EFI_EVENT Event);
  EFI_STATUS(EFIAPI* CloseEvent)(EFI_EVENT Event);
  EFI_STATUS(EFIAPI* CheckEvent)(EFI_EVENT Event);

  EFI_STATUS(EFIAPI* InstallProtocolInterface)
  (EFI_HANDLE* Handle, const EFI_GUID* Protocol, EFI_INTERFACE_TYPE InterfaceType, VOID* Interface);
  EFI_STATUS(EFIAPI* ReinstallProtocolInterface)
  (EFI_HANDLE Handle, const EFI_GUID* Protocol, VOID* OldInterface, VOID* NewInterface);
  EFI_STATUS(EFIAPI* UninstallProtocolInterface)(EFI_HANDLE Handle, const EFI_GUID* Protocol, VOID* Interface);
  EFI_STATUS(EFIAPI* HandleProtocol)(EFI_HANDLE Handle, const EFI_GUID* Protocol, VOID** Interface);
  VOID* Reserved;
  EFI_STATUS(EFIAPI* RegisterProtocolNotify)(const EFI_GUID* Protocol, EFI_EVENT Event, VOID** Registration);
  EFI_STATUS(EFIAPI* LocateHandle)
  (EFI_LOCATE_SEARCH_TYPE SearchType, const EFI_GUID* Protocol, VOID* SearchKey, UINTN* BufferSize, EFI_HANDLE* Buffer);
  EFI_STATUS(EFIAPI* LocateDevicePath)
  (const EFI_GUID* Protocol, EFI_DEVICE_PATH_PROTOCOL** DevicePath, EFI_HANDLE* Device);
  EFI_STATUS(EFIAPI* InstallConfigurationTable)(const EFI_GUID* Guid, VOID* Table);

  EFI_STATUS(EFIAPI* LoadImage)
  (BOOLEAN BootPolicy, EFI_HANDLE ParentImageHandle, EFI_DEVICE_PATH_PROTOCOL* DevicePath, VOID* SourceBuffer,
   UINTN SourceSize, EFI_HANDLE* ImageHandle);
  EFI_STATUS(EFIAPI* StartImage)(EFI_HANDLE ImageHandle, UINTN* ExitDataSize, CHAR16** ExitData);
  EFI_STATUS(EFIAPI* Exit)(EFI_HANDLE ImageHandle, EFI_STATUS ExitStatus, UINTN ExitDataSize, CHAR16* ExitData);
  EFI_STATUS(EFIAPI* UnloadImage)(EFI_HANDLE ImageHandle);
  EFI_STATUS(EFIAPI* ExitBootServices)(EFI_HANDLE ImageHandle, UINTN MapKey);

  EFI_STATUS(EFIAPI* GetNextMonotonicCount)(UINT64* Count);
  EFI_STATUS(EFIAPI* Stall)(UINTN Microseconds);
  EFI_STATUS(EFIAPI* SetWatchdogTimer)(UINTN Timeout, UINT64 WatchdogCode, UINTN DataSize, CHAR16* WatchdogData);

  EFI_STATUS(EFIAPI* ConnectController)
  (EFI_HANDLE ControllerHandle, EFI_HANDLE* DriverImageHandle, EFI_DEVICE_PATH_PROTOCOL* RemainingDevicePath,
   BOOLEAN Recursive);
  EFI_STATUS(EFIAPI* DisconnectController)
  (EFI_HANDLE ControllerHandle, EFI_HANDLE DriverImageHandle, EFI_HANDLE ChildHandle);

  EFI_STATUS(EFIAPI* OpenProtocol)
  (EFI_HANDLE Handle, const EFI_GUID* Protocol, VOID** Interface, EFI_HANDLE AgentHandle, EFI_HANDLE ControllerHandle,
   UINT32 Attributes);
  EFI_STATUS(EFIAPI* CloseProtocol)
  (EFI_HANDLE Handle, const EFI_GUID* Protocol, EFI_HANDLE AgentHandle, EFI_HANDLE ControllerHandle);
  EFI_STATUS(EFIAPI* OpenProtocolInformation)
  (EFI_HANDLE Handle, const EFI_GUID* Protocol, EFI_OPEN_PROTOCOL_INFORMATION_ENTRY** EntryBuffer, UINTN* EntryCount);

  EFI_STATUS(EFIAPI* ProtocolsPerHandle)
  (EFI_HANDLE Handle, EFI_GUID*** ProtocolBuffer, UINTN* ProtocolBufferCount);
  EFI_STATUS(EFIAPI* LocateHandleBuffer)
  (EFI_LOCATE_SEARCH_TYPE SearchType, const EFI_GUID* Protocol, VOID* SearchKey, UINTN* NoHandles, EFI_HANDLE** Buffer);
  EFI_STATUS(EFIAPI* LocateProtocol)(const EFI_GUID* Protocol, VOID* Registration, VOID** Interface);
  EFI_STATUS(EFIAPI* InstallMultipleProtocolInterfaces)(EFI_HANDLE* Handle, ...);
  EFI_STATUS(EFIAPI* UninstallMultipleProtocolInterfaces)(EFI_HANDLE Handle, ...);

  EFI_STATUS(EFIAPI* CalculateCrc32)(VOID* Data, UINTN DataSize, UINT32* Crc32);
  VOID(EFIAPI* CopyMem)(VOID* Destination, const VOID* Source, UINTN Length);
  VOID(EFIAPI* SetMem)(VOID* Buffer, UINTN Size, UINT8 Value);
  EFI_STATUS(EFIAPI* CreateEventEx)
  (UINT32 Type, EFI_TPL NotifyTpl, EFI_EVENT_NOTIFY NotifyFunction, const VOID* NotifyContext,
   const EFI_GUID* EventGroup, EFI_EVENT* Event);
};
static_assert(offsetof(EFI_BOOT_SERVICES, RaiseTPL) == 24);
static_assert(offsetof(EFI_BOOT_SERVICES, AllocatePool) == 64);
static_assert(offsetof(EFI_BOOT_SERVICES, CreateEvent) == 80);
static_assert(offsetof(EFI_BOOT_SERVICES, InstallProtocolInterface) == 128);
static_assert(offsetof(EFI_BOOT_SERVICES, HandleProtocol) == 152);
static_assert(offsetof(EFI_BOOT_SERVICES, LocateHandle) == 176);
static_assert(offsetof(EFI_BOOT_SERVICES, LoadImage) == 200);
static_assert(offsetof(EFI_BOOT_SERVICES, Stall) == 248);
static_assert(offsetof(EFI_BOOT_SERVICES, ConnectController) == 264);
static_assert(offsetof(EFI_BOOT_SERVICES, OpenProtocol) == 280);
static_assert(offsetof(EFI_BOOT_SERVICES, LocateHandleBuffer) == 312);
static_assert(offsetof(EFI_BOOT_SERVICES, LocateProtocol) == 320);
static_assert(offsetof(EFI_BOOT_SERVICES, CopyMem) == 352);
static_assert(sizeof(EFI_BOOT_SERVICES) == 376);

// UEFI 2.10, 7.1 and PI 1.7: event groups that the driver signals or joins.
inline constexpr EFI_GUID gEfiEventReadyToBootGuid{
    0x7CE88FB3, 0x4BD7, 0x4679, {0x87, 0xA8, 0xA8, 0xD8, 0xDE, 0xE5, 0x0D, 0x2B}};
inline constexpr EFI_GUID gEfiEventLegacyBootGuid{
    0x2A571201, 0x4966, 0x47F6, {0x8B, 0x86, 0xF3, 0x1E, 0x41, 0xF3, 0x2F, 0x10}};
inline constexpr EFI_GUID gEfiEndOfDxeEventGroupGuid{
    0x02CE967A, 0xDD7E, 0x4FFC, {0x9E, 0xE7, 0x81, 0x0C, 0xF0, 0x47, 0x08, 0x80}};
inline constexpr EFI_GUID gEfiEventExitBootServicesGuid{
    0x27ABF055, 0xB1B8, 0x4C26, {0x80, 0x48, 0x74, 0x8F, 0x37, 0xBA, 0xA2, 0xDF}};

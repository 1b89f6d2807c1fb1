// The simple file system and file protocols (UEFI 2.10, 13.4 and 13.5) and the records that files describe
// themselves with.
#pragma once

#include "platform/runtime_services.h"

struct EFI_FILE_PROTOCOL;

inline constexpr UINT64 EFI_SIMPLE_FILE_SYSTEM_PROTOCOL_REVISION = 0x00010000;

struct EFI_SIMPLE_FILE_SYSTEM_PROTOCOL {
  UINT64 Revision;
  EFI_STATUS(EFIAPI* OpenVolume)(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* This, EFI_FILE_PROTOCOL** Root);
};
static_assert(sizeof(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL) == 16);
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>{
    0x964E5B22, 0x6459, 0x11D2, {0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

inline constexpr UINT64 EFI_FILE_MODE_READ = 0x1;
inline constexpr UINT64 EFI_FILE_MODE_WRITE = 0x2;
inline constexpr UINT64 EFI_FILE_MODE_CREATE = 0x8000000000000000;

inline constexpr UINT64 EFI_FILE_READ_ONLY = 0x01;
inline constexpr UINT64 EFI_FILE_HIDDEN = 0x02;
inline constexpr UINT64 EFI_FILE_SYSTEM = 0x04;
inline constexpr UINT64 EFI_FILE_RESERVED = 0x08;
inline constexpr UINT64 EFI_FILE_DIRECTORY = 0x10;
inline constexpr UINT64 EFI_FILE_ARCHIVE = 0x20;
inline constexpr UINT64 EFI_FILE_VALID_ATTR = 0x37;

struct EFI_FILE_IO_TOKEN {
  EFI_EVENT Event;  // null: the call blocks
  EFI_STATUS Status;
  UINTN BufferSize;
  VOID* Buffer;
};
static_assert(sizeof(EFI_FILE_IO_TOKEN) == 32);

inline constexpr UINT64 EFI_FILE_PROTOCOL_REVISION = 0x00010000;
inline constexpr UINT64 EFI_FILE_PROTOCOL_REVISION2 = 0x00020000;

// An opened file or directory; it has no GUID, a volume hands it out. The Ex members exist from revision 2 on.
struct EFI_FILE_PROTOCOL {
  UINT64 Revision;
  EFI_STATUS(EFIAPI* Open)
  (EFI_FILE_PROTOCOL* This, EFI_FILE_PROTOCOL** NewHandle, const CHAR16* FileName, UINT64 OpenMode, UINT64 Attributes);
  EFI_STATUS(EFIAPI* Close)(EFI_FILE_PROTOCOL* This);
  EFI_STATUS(EFIAPI* Delete)(EFI_FILE_PROTOCOL* This);
  EFI_STATUS(EFIAPI* Read)(EFI_FILE_PROTOCOL* This, UINTN* BufferSize, VOID* Buffer);
  EFI_STATUS(EFIAPI* Write)(EFI_FILE_PROTOCOL* This, UINTN* BufferSize, const VOID* Buffer);
  EFI_STATUS(EFIAPI* GetPosition)(EFI_FILE_PROTOCOL* This, UINT64* Position);
  EFI_STATUS(EFIAPI* SetPosition)(EFI_FILE_PROTOCOL* This, UINT64 Position);
  EFI_STATUS(EFIAPI* GetInfo)
  (EFI_FILE_PROTOCOL* This, const EFI_GUID* InformationType, UINTN* BufferSize, VOID* Buffer);
  EFI_STATUS(EFIAPI* SetInfo)
  (EFI_FILE_PROTOCOL* This, const EFI_GUID* InformationType, UINTN BufferSize, const VOID* Buffer);
  EFI_STATUS(EFIAPI* Flush)(EFI_FILE_PROTOCOL* This);
  EFI_STATUS(EFIAPI* OpenEx)
  (EFI_FILE_PROTOCOL* This, EFI_FILE_PROTOCOL** NewHandle, const CHAR16* FileName, UINT64 OpenMode, UINT64 Attributes,
   EFI_FILE_IO_TOKEN* Token);
  EFI_STATUS(EFIAPI* ReadEx)(EFI_FILE_PROTOCOL* This, EFI_FILE_IO_TOKEN* Token);
  EFI_STATUS(EFIAPI* WriteEx)(EFI_FILE_PROTOCOL* This, EFI_FILE_IO_TOKEN* Token);
  EFI_STATUS(EFIAPI* FlushEx)(EFI_FILE_PROTOCOL* This, EFI_FILE_IO_TOKEN* Token);
};
static_assert(offsetof(EFI_FILE_PROTOCOL, Read) == 32);
static_assert(offsetof(EFI_FILE_PROTOCOL, GetInfo) == 64);
static_assert(offsetof(EFI_FILE_PROTOCOL, OpenEx) == 88);
static_assert(sizeof(EFI_FILE_PROTOCOL) == 120);

// The name of the file, NUL-terminated, takes the rest of the record; Size counts it.
struct EFI_FILE_INFO {
  UINT64 Size;
  UINT64 FileSize;      // in bytes
  UINT64 PhysicalSize;  // bytes taken on the volume
  EFI_TIME CreateTime;
  EFI_TIME LastAccessTime;
  EFI_TIME ModificationTime;
  UINT64 Attribute;
  CHAR16 FileName[1];
};
static_assert(offsetof(EFI_FILE_INFO, CreateTime) == 24);
static_assert(offsetof(EFI_FILE_INFO, Attribute) == 72);
static_assert(offsetof(EFI_FILE_INFO, FileName) == 80);
inline constexpr EFI_GUID gEfiFileInfoGuid{
    0x09576E92, 0x6D3F, 0x11D2, {0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

// The label, NUL-terminated, takes the rest of the record; Size counts it.
struct EFI_FILE_SYSTEM_INFO {
  UINT64 Size;
  BOOLEAN ReadOnly;
  UINT64 VolumeSize;  // in bytes
  UINT64 FreeSpace;   // in bytes
  UINT32 BlockSize;
  CHAR16 VolumeLabel[1];
};
static_assert(offsetof(EFI_FILE_SYSTEM_INFO, VolumeSize) == 16);
static_assert(offsetof(EFI_FILE_SYSTEM_INFO, VolumeLabel) == 36);
inline constexpr EFI_GUID gEfiFileSystemInfoGuid{
    0x09576E93, 0x6D3F, 0x11D2, {0x8E, 0x39, 0x00, 0xA0, 0xC9, 0x69, 0x72, 0x3B}};

struct EFI_FILE_SYSTEM_VOLUME_LABEL {
  CHAR16 VolumeLabel[1];  // NUL-terminated
};
inline constexpr EFI_GUID gEfiFileSystemVolumeLabelInfoIdGuid{
    0xDB47D7D3, 0xFE81, 0x11D3, {0x9A, 0x35, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}};

// Graphics output (UEFI 2.10, 12.9).
#pragma once

#include "platform/uefi_base.h"

struct EFI_PIXEL_BITMASK {
  UINT32 RedMask;
  UINT32 GreenMask;
  UINT32 BlueMask;
  UINT32 ReservedMask;
};

enum EFI_GRAPHICS_PIXEL_FORMAT : UINT32 {
  PixelRedGreenBlueReserved8BitPerColor,
  PixelBlueGreenRedReserved8BitPerColor,
  PixelBitMask,
  PixelBltOnly,
  PixelFormatMax,
};

struct EFI_GRAPHICS_OUTPUT_MODE_INFORMATION {
  UINT32 Version;
  UINT32 HorizontalResolution;
  UINT32 VerticalResolution;
  EFI_GRAPHICS_PIXEL_FORMAT PixelFormat;
  EFI_PIXEL_BITMASK PixelInformation;
  UINT32 PixelsPerScanLine;
};
static_assert(sizeof(EFI_GRAPHICS_OUTPUT_MODE_INFORMATION) == 36);

struct EFI_GRAPHICS_OUTPUT_PROTOCOL_MODE {
  UINT32 MaxMode;
  UINT32 Mode;
  EFI_GRAPHICS_OUTPUT_MODE_INFORMATION* Info;
  UINTN SizeOfInfo;
  EFI_PHYSICAL_ADDRESS FrameBufferBase;
  UINTN FrameBufferSize;
};

struct EFI_GRAPHICS_OUTPUT_BLT_PIXEL {
  UINT8 Blue;
  UINT8 Green;
  UINT8 Red;
  UINT8 Reserved;
};

enum EFI_GRAPHICS_OUTPUT_BLT_OPERATION : UINT32 {
  EfiBltVideoFill,
  EfiBltVideoToBltBuffer,
  EfiBltBufferToVideo,
  EfiBltVideoToVideo,
  EfiGraphicsOutputBltOperationMax,
};

struct EFI_GRAPHICS_OUTPUT_PROTOCOL {
  EFI_STATUS(EFIAPI* QueryMode)
  (EFI_GRAPHICS_OUTPUT_PROTOCOL* This, UINT32 ModeNumber, UINTN* SizeOfInfo,
   EFI_GRAPHICS_OUTPUT_MODE_INFORMATION** Info);
  EFI_STATUS(EFIAPI* SetMode)(EFI_GRAPHICS_OUTPUT_PROTOCOL* This, UINT32 ModeNumber);
  EFI_STATUS(EFIAPI* Blt)
  (EFI_GRAPHICS_OUTPUT_PROTOCOL* This, EFI_GRAPHICS_OUTPUT_BLT_PIXEL* BltBuffer,
   EFI_GRAPHICS_OUTPUT_BLT_OPERATION BltOperation, UINTN SourceX, UINTN SourceY, UINTN DestinationX,
   UINTN DestinationY, UINTN Width, UINTN Height, UINTN Delta);
  EFI_GRAPHICS_OUTPUT_PROTOCOL_MODE* Mode;
};
template <>
inline constexpr EFI_GUID ProtocolGuid<EFI_GRAPHICS_OUTPUT_PROTOCOL>{
    0x9042A9DE, 0x23DC, 0x4A38, {0x96, 0xFB, 0x7A, 0xDE, 0xD0, 0x80, 0x51, 0x6A}};

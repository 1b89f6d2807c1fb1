// Access to the I/O port space. Two implementations exist: processor instructions in the EFI image
// (io_ports_x86.cpp) and the simulated server's registers in host programs.
#pragma once

#include "platform/uefi_base.h"

UINT8 IoRead8(UINT16 Port);
UINT32 IoRead32(UINT16 Port);
void IoWrite8(UINT16 Port, UINT8 Value);

// Writes Count bytes to one byte-wide port, in order (one string instruction in the image).
void IoWriteString8(UINT16 Port, const UINT8* Data, UINTN Count);

// Processor time-stamp counter.
UINT64 ReadTimeStampCounter();

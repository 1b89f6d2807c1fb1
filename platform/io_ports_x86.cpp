// Port access by processor instructions; linked into the EFI image only.
#include "platform/io_ports.h"

UINT8 IoRead8(UINT16 Port) {
  UINT8 value;
  asm volatile("inb %1, %0" : "=a"(value) : "d"(Port) : "memory");
  return value;
}

UINT32 IoRead32(UINT16 Port) {
  UINT32 value;
  asm volatile("inl %1, %0" : "=a"(value) : "d"(Port) : "memory");
  return value;
}

void IoWrite8(UINT16 Port, UINT8 Value) { asm volatile("outb %0, %1" : : "a"(Value), "d"(Port) : "memory"); }

void IoWriteString8(UINT16 Port, const UINT8* Data, UINTN Count) {
  asm volatile("rep outsb" : "+S"(Data), "+c"(Count) : "d"(Port) : "memory");
}

UINT64 ReadTimeStampCounter() {
  UINT32 low;
  UINT32 high;
  asm volatile("rdtsc" : "=a"(low), "=d"(high));
  return (UINT64{high} << 32) | low;
}

// The driver's port functions in host programs: the simulated registers.
#include "platform/io_ports.h"
#include "sim/firmware/machine.h"

UINT8 IoRead8(UINT16 Port) { return static_cast<UINT8>(sim::Machine::Current().Ports().In(Port, 1)); }

UINT32 IoRead32(UINT16 Port) { return sim::Machine::Current().Ports().In(Port, 4); }

void IoWrite8(UINT16 Port, UINT8 Value) { sim::Machine::Current().Ports().Out(Port, Value, 1); }

void IoWriteString8(UINT16 Port, const UINT8* Data, UINTN Count) {
  sim::Machine::Current().Ports().OutString(Port, {Data, Count});
}

UINT64 ReadTimeStampCounter() { return sim::Machine::Current().Time().ReadTimeStampCounter(); }

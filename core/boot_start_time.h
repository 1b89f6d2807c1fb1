// The time stamp that the firmware performance table keeps of the moment at which an operating system is started.
#pragma once

namespace bds {

// From now on the stamp is written whenever the boot-start signal is installed.
void RegisterBootStartTimeStamp();

// Writes the time into the boot performance record. Any missing piece leaves everything unchanged.
void StampBootStartTime();

}  // namespace bds

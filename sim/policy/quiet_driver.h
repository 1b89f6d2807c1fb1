// Routines of the driver used by a tool, without a machine: their messages go nowhere and their state is put back.
#pragma once

#include "flexboot/state.h"
#include "support/debug_print.h"

namespace sim {

class QuietDriver {
 public:
  QuietDriver() { bds::gDebug.Mask = 0; }
  ~QuietDriver() {
    bds::gDebug.Mask = mask_;
    bds::gFlexBoot.mXmlLength = length_;
  }
  QuietDriver(const QuietDriver&) = delete;
  QuietDriver& operator=(const QuietDriver&) = delete;

 private:
  UINT64 mask_ = bds::gDebug.Mask;
  UINT64 length_ = bds::gFlexBoot.mXmlLength;
};

}  // namespace sim

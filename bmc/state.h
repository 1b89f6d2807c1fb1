// Everything of the BMC subsystem that outlives a routine.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// Reset by the entry point.
struct BMC_STATE {
  BOOLEAN ZephanConfigMode = FALSE;  // managed and in config mode; set by DetectZephanConfigMode, read by later steps

  // The boot request, decoded by SetIpmiBootOptionPriorities from the BMC's boot flags or their copy in NVRAM.
  BOOLEAN IpmiEfiBoot = FALSE;     // 1: a UEFI option is asked for, 0: a legacy one
  BOOLEAN IpmiPersistent = FALSE;  // the request holds for later boots too
  UINT32 IpmiBootDevice = 0;       // the device selector, 0 to 15; 0 asks for nothing
  UINT8 IpmiDeviceInstance = 0;    // bit 4: an instance is asked for, bits 3:0: which

  // A restore did not hear of the BMC's copy of BootOrder, or had no time left for every option; set by
  // RestoreEfiBootVariablesFromBMC, keeps SaveEfiBootVaiablesToBMC from replacing what was not restored.
  BOOLEAN CopiesUnread = FALSE;

  // A restore was told that the BMC has no copy; a copy that SaveEfiBootVaiablesToBMC then finds was never restored.
  BOOLEAN NoCopyToRestore = FALSE;

  // A request was given up unanswered in this boot, so that its answer may still come and be taken for another's;
  // written by BtExchange.
  BOOLEAN AnswerOwed = FALSE;

  // Microseconds that file exchanges without a valid answer have waited this boot; written by BtExchange, which
  // leaves the BMC alone once they reach kBtPatience.
  UINT64 FruitlessWait = 0;

  // The same of all file exchanges, and kBtEndurance.
  UINT64 ExchangeWait = 0;
};
extern constinit BMC_STATE gBmc;

}  // namespace bds

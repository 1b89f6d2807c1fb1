// Everything of the BMC subsystem that outlives a routine.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

// What the restore of this boot came to, and so what its save may do with the copies on the BMC.
enum class BOOT_COPIES : UINT8 {
  MayBeReplaced,  // there was nothing to restore, or it was restored
  Denied,         // the BMC said that it has none: one that it then shows was never restored
  NotRestored,    // not heard, out of time, NVRAM did not take the order, or does not say whether it was done
  OptionRefused,  // NVRAM did not take an option: they stay for the next boot's restore
};

// Reset by the entry point.
struct BMC_STATE {
  BOOLEAN ZephanConfigMode = FALSE;  // managed and in config mode; set by DetectZephanConfigMode, read by later steps

  // The boot request, decoded by SetIpmiBootOptionPriorities from the BMC's boot flags or their copy in NVRAM.
  BOOLEAN IpmiEfiBoot = FALSE;     // 1: a UEFI option is asked for, 0: a legacy one
  BOOLEAN IpmiPersistent = FALSE;  // the request holds for later boots too
  UINT32 IpmiBootDevice = 0;       // the device selector, 0 to 15; 0 asks for nothing
  UINT8 IpmiDeviceInstance = 0;    // bit 4: an instance is asked for, bits 3:0: which

  // The request is carried out in this boot, and nothing is kept of it: a reset would lose it.
  BOOLEAN OneTimeRequestInForce = FALSE;

  // The same of a policy for one boot, which the BMC was told is used up; set by HandleOneTimeBootStale.
  BOOLEAN OneTimePolicyInForce = FALSE;

  // Bytes of a written block of the boot order table; 0 until the BMC was asked, or after an error.
  UINT8 BotBlockSize = 0;

  BOOT_COPIES Copies = BOOT_COPIES::MayBeReplaced;  // set by RestoreEfiBootVariablesFromBMC

  // The opcodes, a bit each, of requests that were given up, so that their answers may still come;
  // bmc/bt_owed_answers.h.
  UINT32 OwedAnswers = 0;

  // Microseconds that file exchanges have waited since the BMC last answered one; kBtPatience ends them.
  UINT64 SilentWait = 0;

  // Microseconds that all file exchanges of this boot have waited; kBtEndurance ends them.
  UINT64 ExchangeWait = 0;
};
extern constinit BMC_STATE gBmc;

}  // namespace bds

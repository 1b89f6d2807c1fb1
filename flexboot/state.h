// Everything of the policy intake that outlives a routine.
#pragma once

#include "flexboot/actual_order_record.h"
#include "flexboot/loader_text.h"
#include "flexboot/policy_record.h"
#include "flexboot/policy_targets.h"
#include "flexboot/slot_ports.h"
#include "flexboot/slot_translation.h"
#include "flexboot/used_policy.h"
#include "platform/unicode_collation.h"

namespace bds {

// What this boot knows of a policy for one boot.
enum class ONE_TIME_POLICY : UINT8 {
  None,     // there is none, or the BMC was told that it was used
  Read,     // the policy read from the BMC is one
  Applied,  // its targets chose the options, and the report is made
};

// Reset by the entry point. Nothing here is freed before the boot ends but what a new value replaces.
struct FLEXBOOT_STATE {
  // The length of the text that the tokenizer reads; set by StartXml, stays after the policy was read.
  UINT64 mXmlLength = 0;
  // Which elements of the policy's header were taken: each is, once a boot. Written by IsolateBootHeader.
  BOOLEAN HeaderElementFound[kPolicyHeaderElements] = {};

  // The handle that carries the policy's protocol, null while none is in force; written by ExtractZephBootOrder and by
  // whoever withdraws a stale policy.
  EFI_HANDLE mFlexBootHandle = nullptr;
  // The record behind that protocol, also after the policy was withdrawn: the interface may still be in use.
  KeptPtr<FLEXBOOT_ORDER_HEADER> FlexBootOrder;

  // Written by the intake, by GenerateReportStruct and by HandleOneTimeBootStale.
  ONE_TIME_POLICY OneTimePolicy = ONE_TIME_POLICY::None;
  // Of its text; written by WasUsedBefore.
  POLICY_DIGEST OneTimeDigest;

  // The report's handle, null until one is installed, and the record behind it; written by GenerateReportStruct.
  EFI_HANDLE mActualOrderHandle = nullptr;
  KeptPtr<ACTUAL_BOOT_ORDER> ActualOrder;
  // The same for a boot on which no policy decides, or no longer; on a handle of its own.
  KeptPtr<ACTUAL_BOOT_ORDER> OrderWithoutPolicy;

  // One target per target of the policy, in its order, with what the policy says of loaders as tags. Null until a
  // policy was read. Filled by ExtractUefiParameters, emptied into the engine's targets by GenerateListFromPolicy.
  KeptPtr<POLICY_TARGET_LIST> mUefiParamTargets;
  // The policy was withdrawn: none of them gets an option any more. The list is not freed for that, since a
  // notification may withdraw the policy while it is walked.
  BOOLEAN LoadersWithdrawn = FALSE;
  // The loaders of the SAN target at hand, by SAN_OPERATION; null where there is none. Written by SanLoaderData.
  KeptPtr<char> SanLoader[kSanTextCount];

  // Compares file names; located on first use.
  EFI_UNICODE_COLLATION_PROTOCOL* Collation = nullptr;

  // The slot that holds the riser, 0 without one; written by GetBrightmereSlot.
  UINT8 BrightmereSlot = 0;
  // The virtual functions by slot and instance. Null until CreateVeyraOrlaXlatTbl builds it, once a boot.
  KeptPtr<VEYRA_ORLA_LIST> VeyraOrlaList;

  // Written by CreateSlotPortInfo.
  SLOT_PORT_ENTRY SlotPortTable[kSlotPortCapacity] = {};
  UINT32 SlotPortCount = 0;
};
extern constinit FLEXBOOT_STATE gFlexBoot;

}  // namespace bds

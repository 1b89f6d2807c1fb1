// The step that tells the BMC what this boot made of the order.
#include "bmc/bot_build.h"
#include "bmc/bot_format.h"
#include "bmc/bot_transfer.h"
#include "bmc/management_mode.h"
#include "bmc/steps.h"
#include "bootopt/dumps/dumps.h"
#include "flexboot/actual_order.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kBuild[] = "BuildBootOrderTable";

// With a policy in force the BMC gets the fixed table: the policy is its own, and it reads the report.
EFI_STATUS MakeTable(bool policy, PoolBuffer& built, Bytes& table) {
  if (policy) {
    DebugPrint("%a:Creating a 'default' BOT.\n", kBuild);
    table = DefaultBootOrderTable();
    return EFI_SUCCESS;
  }
  const EFI_STATUS status = CreateSmBotData(built);
  if (EFI_ERROR(status)) {
    DebugPrint("BOT:CreateSmBotData failed:%0x\n", status);
  }
  table = built.Bytes();
  return status;
}

bool IsPolicyInForce() {
  const bool policy = HaveVbootPolicy();
  if (policy && !IsStbuEfiEnabled()) {
    DebugPrint("%a:Obtained FlexBOOT policy\n", kBuild);
    return true;
  }
  DebugPrint("(%r) Creating boot order table from order\n", policy ? EFI_SUCCESS : EFI_NOT_FOUND);
  if (IsRackZephan() == 0) {
    ReportOrderWithoutPolicy();
  }
  return false;
}

}  // namespace

void BuildBootOrderTable() {
  IpmiTransport* transport = nullptr;
  if (const EFI_STATUS status = LocateProtocol(transport); EFI_ERROR(status)) {
    DebugPrint("BOT: Failed locating IPMI:%0x\n", status);
    return;
  }
  DumpBootOptionList(BootOptionList, "BootOptionList before CreateSmBotData()");
  PoolBuffer built;
  Bytes table;
  if (EFI_ERROR(MakeTable(IsPolicyInForce(), built, table))) {
    return;
  }
  if (const EFI_STATUS status = WriteBMCBOT(*transport, table); EFI_ERROR(status)) {
    DebugPrint("BOT:WriteBMCBOT failed:%0x\n", status);
    return;
  }
  static_cast<void>(KeepBootOrderTable(kBotCopyName, table));
}

}  // namespace bds

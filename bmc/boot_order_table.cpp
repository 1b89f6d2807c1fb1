// The step that reads what the BMC wants of the boot order: the boot policy, and the boot order table, of which NVRAM
// holds a copy for a BMC that lost its own.
#include "bmc/bot_format.h"
#include "bmc/bot_transfer.h"
#include "bmc/management_mode.h"
#include "bmc/saved_boot_order.h"
#include "bmc/steps.h"
#include "flexboot/actual_order.h"
#include "flexboot/intake.h"
#include "flexboot/stale_policy.h"
#include "support/debug_print.h"
#include "support/event.h"
#include "support/protocols.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr char kEntryPoint[] = "BootOrderTableEntryPoint";

bool Register(const EFI_GUID& guid, EFI_EVENT_NOTIFY notify) {
  const EFI_STATUS status = NotifyOnProtocol(guid, notify);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Protocol registration failed:%r\n", kEntryPoint, status);
  }
  return !EFI_ERROR(status);
}

// True when a policy was obtained. A standalone server without one reports its actual order all the same.
bool ObtainPolicy(bool standalone) {
  FLEXBOOT_ORDER_HEADER* order = nullptr;
  if (!EFI_ERROR(ExtractZephBootOrder(&order))) {
    DebugPrint("%a:Obtained FlexBOOT policy\n", kEntryPoint);
    return true;
  }
  if (standalone && !Register(ProtocolGuid<ACTUAL_BOOT_ORDER>, ExportActualOrderXML)) {
    DebugPrint("Cannot fetch the actual Order \n");
  }
  DebugPrint("%a:Do not have FlexBOOT policy, going traditional way\n", kEntryPoint);
  return false;
}

constexpr UINT16 kFirstTableSize = 1024;
constexpr UINTN kRoomBehindTable = 16;

// Reads the BMC's table with a buffer of this size; size becomes the table's, or what is needed.
EFI_STATUS ReadTable(IpmiTransport& transport, PoolBuffer& table, UINT16& size) {
  table.Data = AllocateArray<std::byte>(size + kRoomBehindTable);
  if (!table.Data) {
    DebugPrint("BOT:Failed allocation\n");
    return EFI_OUT_OF_RESOURCES;
  }
  const EFI_STATUS status = ReadBMCBOT(transport, table.Data.get(), size);
  table.Size = EFI_ERROR(status) ? 0 : size;
  return status;
}

EFI_STATUS ReadTableOfAnySize(IpmiTransport& transport, PoolBuffer& table) {
  UINT16 size = kFirstTableSize;
  const EFI_STATUS status = ReadTable(transport, table, size);
  if (!EFI_ERROR(status) || !table.Data) {
    return status;
  }
  DebugPrint("BOT:ReadBMCBOT Size Status:%0x\n", status);
  return status == EFI_BUFFER_TOO_SMALL ? ReadTable(transport, table, size) : status;
}

// The sum counts what follows the table too, but only the table itself can be sent.
bool IsGoodCopy(Bytes copy) {
  BOT_HEADER header;
  return BotSum(copy) == 0 && ReadBotHeader(copy, header) && BotSum(copy.first(header.Length)) == 0;
}

// The copy may be of a table that the BMC had changed. Sent back like that, it would pass for a new change at the next
// boot and undo what was set up since.
void ClearChangedMark(std::byte* table) {
  auto header = LoadUnaligned<BOT_HEADER>(table);
  if ((header.Flags & kBotChanged) != 0) {
    header.Flags = static_cast<UINT8>(header.Flags & ~kBotChanged);
    header.Checksum = static_cast<UINT8>(header.Checksum + kBotChanged);
    CopyMemory(table, &header, sizeof(header));
  }
}

// Gives a BMC without a good table the last one that was exchanged with it.
void SendBackupCopy(IpmiTransport& transport) {
  PoolBuffer table;
  if (EFI_ERROR(ReadVariable(kBotCopyName, kBotVariablesGuid, table))) {
    DebugPrint("BOT:No SMBOT in both BMC and BIOS\n");
    return;
  }
  if (!IsGoodCopy(table.Bytes())) {
    DebugPrint("BOT:Bad Backup copy in BIOS\n");
    static_cast<void>(DeleteVariable(kBotCopyName, kBotVariablesGuid));
    return;
  }
  ClearChangedMark(table.Data.get());
  if (const EFI_STATUS status = WriteBMCBOT(transport, table.Bytes()); EFI_ERROR(status)) {
    DebugPrint("BOT:WriteBMCBOT failed:%0x\n", status);
    return;
  }
  DebugPrint("BOT:WriteBMCBOT Completed \n");
}

// No Boot#### is deleted for it: the options keep their place within their group, whosever they are.
void TakeChangedTable(Bytes table) {
  gPolicyEngine.BotUpdatedOldWay = 1;
  if (!KeepBootOrderTable(kBotChangedName, table)) {
    // An earlier change must not pass for this one; the copy has the order too.
    static_cast<void>(DeleteVariable(kBotChangedName, kBotVariablesGuid));
  }
  DebugPrint("BOT:BMC updated SMBOT\n");
  DebugPrint("Handling stale FlexBoot policy (if it exists)\n");
  static_cast<void>(HandleStalePolicy());
}

void TakeTable(Bytes table) {
  const auto header = LoadUnaligned<BOT_HEADER>(table.data());
  DebugPrint("Boot order table obtained from the BMC:\n");
  DumpBootOrderTable(table);
  DebugPrint("Boot order table obtained from the BMC (size %d):\n", table.size());
  static_cast<void>(KeepBootOrderTable(kBotCopyName, table));
  if ((header.Flags & kBotChanged) != 0) {
    TakeChangedTable(table);
  }
}

void ExchangeTable(bool havePolicy) {
  IpmiTransport* transport = nullptr;
  if (const EFI_STATUS status = LocateProtocol(transport); EFI_ERROR(status)) {
    DebugPrint("BOT:Failed locating IPMI:%0x\n", status);
    return;
  }
  PoolBuffer table;
  const EFI_STATUS status = ReadTableOfAnySize(*transport, table);
  if (!EFI_ERROR(status)) {
    TakeTable(table.Bytes());
  } else if (!havePolicy) {
    DebugPrint("BOT:ReadBMCBOT Status:%0x\n", status);
    if (status != EFI_OUT_OF_RESOURCES) {  // this side's lack: the BMC may hold a good table, and a user's change in it
      SendBackupCopy(*transport);
    }
  }
}

}  // namespace

void BootOrderTableEntryPoint() {
  const bool standalone = IsRackZephan() == 0;
  gPolicyEngine.BotUpdatedOldWay = 0;
  if (standalone) {
    static_cast<void>(Register(kPolicyStaleSignalGuid, RackHandleStalePolicy));
  }
  const UINT8 havePolicy = ObtainPolicy(standalone) ? 1 : 0;
  const EFI_STATUS status =
      SetVariableReplacing(kHavePboName, kPolicyVariablesGuid, kNonVolatileBoot, AsBytes(havePolicy));
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing %s:%r\n", kEntryPoint, kHavePboName, status);
  }
  RestoreSavedBootOrder();  // step 30 leaves it alone on a managed server
  ExchangeTable(havePolicy != 0);
}

}  // namespace bds

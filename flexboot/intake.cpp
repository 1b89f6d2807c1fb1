#include "flexboot/intake.h"

#include "bmc/bt_file.h"
#include "bmc/management_mode.h"
#include "flexboot/actual_order.h"
#include "flexboot/policy_parser.h"
#include "flexboot/stale_policy.h"
#include "flexboot/state.h"
#include "flexboot/used_policy.h"
#include "support/debug_print.h"
#include "support/event.h"
#include "support/protocols.h"
#include "support/text.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr char kExtract[] = "ExtractZephBootOrder";

// Appends the piece that the context holds, as far as it fits. False when it was cut.
bool AppendPiece(const BT_FILE_CONTEXT& context, char* buffer, UINTN& length) {
  if (context.ResponseLength <= BT_FILE_DATA_OFFSET) {
    return true;
  }
  const UINTN room = kPolicyBufferSize - 1 - length;
  const UINTN size = context.ResponseLength - UINTN{BT_FILE_DATA_OFFSET};
  const UINTN taken = size < room ? size : room;
  CopyMemory(buffer + length, context.ResponseData + BT_FILE_DATA_OFFSET, taken);
  length += taken;
  buffer[length] = 0;
  return taken == size;
}

// Reads pieces until a short one. False when one cannot be read or is refused: a policy is taken whole or not at all.
bool ReadPieces(BT_FILE_CONTEXT& context, char* buffer, const char* reader) {
  for (UINTN length = 0; length < kPolicyBufferSize - 1;) {
    ZeroMemory(context.ResponseData, sizeof(context.ResponseData));
    context.DataOffset = 0;
    BtReadFilePiece(context);
    if (context.DataOffset != BT_FILE_DATA_OFFSET) {
      DebugPrint("%a:XML file read failed\n", reader);
      return false;
    }
    if (context.ResponseLength <= BT_FILE_DATA_OFFSET && length != 0) {
      DebugPrint("%a:EOF reached. Data read is <= BT_FILE_DATA_OFFSET \n", reader);
      return true;
    }
    if (!AppendPiece(context, buffer, length)) {
      break;
    }
    if (context.ResponseLength < MAX_BT_READ_SIZE) {
      DebugPrint("%a:EOF reached. Data read is < MAX_BT_READ_SIZE\n", reader);
      return true;
    }
  }
  DebugPrint("%a:XML file is longer than %d bytes, the rest is left out\n", reader, kPolicyBufferSize - 1);
  return true;
}

// denied: the BMC said that it has no such file.
EFI_STATUS ReadPolicyFile(const char* name, char* buffer, const char* reader, bool& denied) {
  BT_FILE_CONTEXT context;
  if (const UINT8 result = BtOpenFile(context, name, BT_OPEN_FILE); result != BT_DONE) {
    DebugPrint("%a:XML file open failed:%r\n", reader, BtStatusToEfiStatus(result));
    denied = !BtUnheard(context);
    return EFI_DEVICE_ERROR;
  }
  const bool whole = ReadPieces(context, buffer, reader);
  static_cast<void>(BtCloseFile(context));
  return whole ? EFI_SUCCESS : EFI_DEVICE_ERROR;
}

void DropUefiParameters() {
  if (gFlexBoot.mUefiParamTargets) {
    FreeTargetList(*gFlexBoot.mUefiParamTargets.get());
    gFlexBoot.mUefiParamTargets.reset();
  }
}

EFI_STATUS InstallRecord(PoolPtr<FLEXBOOT_ORDER_HEADER> record) {
  const EFI_STATUS status = BootServices()->InstallProtocolInterface(
      &gFlexBoot.mFlexBootHandle, &ProtocolGuid<FLEXBOOT_ORDER_HEADER>, EFI_NATIVE_INTERFACE, record.get());
  if (EFI_ERROR(status)) {
    DebugPrint("%a InstallProtocol failed=%r\n", kExtract, status);
    return status;
  }
  gFlexBoot.FlexBootOrder = std::move(record);
  gFlexBoot.LoadersWithdrawn = FALSE;
  return EFI_SUCCESS;
}

// A standalone server keeps no policy for later boots.
EFI_STATUS ForgetCachedPolicy() {
  DebugPrint("In rack standalone: No Configpolicy.xml \n");
  if (VariableExists(kFlexBootOrderName, kPolicyVariablesGuid)) {
    DebugPrint("No Configpolicy.xml. Clear the FlexbootOrder nvram variable also. \n");
    static_cast<void>(DeleteVariable(kFlexBootOrderName, kPolicyVariablesGuid));
  }
  return EFI_UNSUPPORTED;
}

// A managed server goes on with the policy of the last boot on which it could be read.
EFI_STATUS UseCachedPolicy() {
  PoolBuffer cached;
  if (EFI_ERROR(ReadVariable(kFlexBootOrderName, kPolicyVariablesGuid, cached)) || !IsWholeRecord(cached.Bytes())) {
    DebugPrint("FlexBoot: Failed to locate cached policy, will use Boot Order Table instead\n");
    return EFI_NOT_FOUND;
  }
  DebugPrint("FlexBoot: WARNING!!! Configured policy XML missing! Using cached boot order policy instead!\n");
  DebugPrint("\tPlease reapply the boot policy as soon as possible!\n");
  PoolPtr<FLEXBOOT_ORDER_HEADER> record(reinterpret_cast<FLEXBOOT_ORDER_HEADER*>(cached.Data.release()));
  TerminateTexts(*record);
  return InstallRecord(std::move(record));
}

EFI_STATUS GoWithoutFile() {
  ZEPHAN_MODE_INFO* mode = nullptr;
  if (const EFI_STATUS status = LocateProtocol(mode); EFI_ERROR(status)) {
    DebugPrint("In ExtractZephBootOrder: fails to locate protocol using VEYRA_ZEPHAN_MODE_GUID. \n");
    return status;
  }
  return mode->Mode == 0 ? ForgetCachedPolicy() : UseCachedPolicy();
}

// True when there is a policy for this boot only. One that an earlier boot used is none, though the BMC still has it.
bool ReadOneTimePolicy(char* buffer) {
  if (EFI_ERROR(GetOneTimeBoot(buffer))) {
    return false;
  }
  if (WasUsedBefore(buffer)) {
    ReportUsedPolicyAgain();
    return false;
  }
  return true;
}

// The policy for one boot, else the persistent one.
EFI_STATUS ReadPolicy(char* buffer) {
  const UINT8 oneTime = ReadOneTimePolicy(buffer) ? 1 : 0;
  gFlexBoot.OneTimePolicy = oneTime != 0 ? ONE_TIME_POLICY::Read : ONE_TIME_POLICY::None;
  if (oneTime != 0) {
    DebugPrint(" One time boot from IXMO \n");
  } else {
    DebugPrint("NO One time boot from IXMO \n");
  }
  const EFI_STATUS written =
      SetVariableReplacing(kOneTimeBootName, kPolicyVariablesGuid, kNonVolatileBoot, AsBytes(oneTime));
  DebugPrint("Set onetime variable Status %r \n", written);
  if (oneTime != 0) {
    return EFI_SUCCESS;
  }
  ZeroMemory(buffer, kPolicyBufferSize);  // a policy for one boot that broke off leaves nothing behind
  return GetDatafromSAM(buffer);
}

// Packs the text into a record; null with the reason logged when the policy is refused.
PoolPtr<FLEXBOOT_ORDER_HEADER> ParsePolicy(XML_CURSOR& cursor) {
  FLEXBOOT_ORDER_HEADER header{};
  if (const EFI_STATUS status = IsolateBootHeader(cursor, header); EFI_ERROR(status)) {
    DebugPrint("%a:Could not isolate BootHeader:%r\n", kExtract, status);
    return nullptr;
  }
  const UINTN size = FlexBootOrderSize(header.NumBootTargets);
  DebugPrint("%d targets reported in header.\n Need 0x%x byte buffer\n", header.NumBootTargets, size);
  PoolPtr<FLEXBOOT_ORDER_HEADER> record(static_cast<FLEXBOOT_ORDER_HEADER*>(AllocateZeroPool(size)));
  if (!record) {
    DebugPrint("%a:FlexBootOrder Alloc failed\n", kExtract);
    return nullptr;
  }
  *record = header;
  if (const EFI_STATUS status = IsolateBootTargets(cursor, *record); EFI_ERROR(status)) {
    DebugPrint("%a:Could not isolate BootTargets:%r\n", kExtract, status);
    return nullptr;
  }
  return record;
}

void SaveRecord(const FLEXBOOT_ORDER_HEADER& record) {
  const UINTN size = FlexBootOrderSize(record.NumBootTargets);
  const EFI_STATUS status = SetVariableReplacing(kFlexBootOrderName, kPolicyVariablesGuid, kNonVolatileBoot,
                                                 {reinterpret_cast<const std::byte*>(&record), size});
  if (EFI_ERROR(status)) {
    DebugPrint("ERROR!!!!\n");
    DebugPrint("FlexBoot: %a SetVariable failed=%r\n", kExtract, status);
    DebugPrint("Boot order failsafe lost and will fail if there is an issue with the BMC!\n");
    return;
  }
  DebugPrint("FlexBoot: Saved variable \"FlexBootOrder\" with size %d\n", size);
}

// The report goes to the BMC before a policy for one boot is called stale.
EFI_STATUS RegisterNotifications() {
  const EFI_EVENT_NOTIFY notifications[] = {ExportActualOrderXML, HandleOneTimeBootStale};
  for (const EFI_EVENT_NOTIFY notify : notifications) {
    if (const EFI_STATUS status = NotifyOnProtocol(ProtocolGuid<ACTUAL_BOOT_ORDER>, notify); EFI_ERROR(status)) {
      DebugPrint("%a:Protocol registration failed:%r\n", kExtract, status);
      return status;
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS ClearCacheOnStandalone(UINT8 mode) {
  if (mode != 0 || !VariableExists(kFlexBootOrderName, kPolicyVariablesGuid)) {
    return EFI_SUCCESS;
  }
  DebugPrint("FlexBoot:Clear the FlexbootOrder nvram variable \n");
  return DeleteVariable(kFlexBootOrderName, kPolicyVariablesGuid);
}

// Publishes a policy that was read on this boot. A record that cannot be published takes its loaders along.
EFI_STATUS Publish(PoolPtr<FLEXBOOT_ORDER_HEADER> record, UINT8 mode) {
  SaveRecord(*record);
  EFI_STATUS status = InstallRecord(std::move(record));
  if (EFI_ERROR(status)) {
    DropUefiParameters();
    return status;
  }
  status = RegisterNotifications();
  if (EFI_ERROR(status)) {
    return status;
  }
  status = ClearCacheOnStandalone(mode);
  DebugPrint("%a:Exit Status:%r\n", kExtract, status);
  return status;
}

}  // namespace

EFI_STATUS GetOneTimeBoot(char* buffer) {
  bool denied = false;
  const EFI_STATUS status = ReadPolicyFile("OneTimeConfigPolicy.xml", buffer, "GetOneTimeBoot", denied);
  if (denied) {
    ForgetUsedPolicy();
  }
  return status;
}

EFI_STATUS GetDatafromSAM(char* buffer) {
  bool ignored = false;
  return ReadPolicyFile("ConfigPolicy.xml", buffer, "GetDatafromSAM", ignored);
}

EFI_STATUS ExtractZephBootOrder(FLEXBOOT_ORDER_HEADER** order) {
  *order = nullptr;
  const UINT8 mode = IsRackZephanFunc();
  PoolPtr<char> buffer(static_cast<char*>(AllocateZeroPool(kPolicyBufferSize)));
  if (!buffer) {
    DebugPrint("%a:Raw Data Alloc failed\n", kExtract);
    return EFI_NOT_FOUND;
  }
  if (const EFI_STATUS status = ReadPolicy(buffer.get()); EFI_ERROR(status)) {
    buffer.reset();
    DebugPrint("%a:XML read failed:%r\n", kExtract, status);
    return GoWithoutFile();
  }
  const UINTN length = TextLength(buffer.get());
  DebugPrint("%a:Config Policy XML Length = %d\n", kExtract, length);
  XML_CURSOR cursor = StartXml(buffer.get(), length);
  PoolPtr<FLEXBOOT_ORDER_HEADER> record = ParsePolicy(cursor);
  if (!record) {
    DropUefiParameters();
    return EFI_NOT_FOUND;
  }
  const EFI_STATUS status = Publish(std::move(record), mode);
  *order = gFlexBoot.FlexBootOrder.get();
  return status;
}

}  // namespace bds

#include "bmc/group_priorities.h"

#include "bmc/bot_format.h"
#include "bootopt/boot_variable_reader.h"
#include "bootopt/load_option.h"
#include "bootopt/orphan_mask.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/setup.h"
#include "support/variables.h"
#include "vboot/policy_engine.h"

namespace bds {
namespace {

constexpr UINT32 kUnknownGroup = 0xFF;  // stands in the list for a device type that has no group

// ---- From the boot order table

// The description of a name record for a UEFI option; false behind the last record.
bool NextUefiDescription(ByteReader& records, Bytes& description) {
  UINT8 code = 0;
  UINT16 number = 0;
  while (records.Read(code) && records.Read(number)) {
    if (code != kBotEfi) {
      for (char character = 1; character != 0;) {
        if (!records.Read(character)) {
          return false;
        }
      }
      continue;
    }
    UINT16 pathLength = 0;
    if (!records.Read(pathLength)) {
      return false;
    }
    const Bytes rest = records.Rest();
    for (CHAR16 character = 1; character != 0;) {
      if (!records.Read(character)) {
        return false;
      }
    }
    description = rest.first(rest.size() - records.Remaining());
    return records.Skip(pathLength);
  }
  return false;
}

// "UEFI:", any character, and the shell's name with its NUL.
bool IsBuiltInShell(Bytes description) {
  constexpr CHAR16 kPrefix[] = {u'U', u'E', u'F', u'I', u':'};
  constexpr CHAR16 kShell[] = u"Built-in EFI Shell";
  ByteReader reader(description);
  return reader.SkipIfEqual(AsBytes(kPrefix)) && reader.Skip(sizeof(CHAR16)) && reader.SkipIfEqual(AsBytes(kShell)) &&
         reader.Remaining() == 0;
}

// The group that the table means by its UEFI options: the built-in application's when its first UEFI option is that, or
// when it names none.
UINT32 UefiGroupOf(Bytes table) {
  BotEntries entries(table);
  for (BotEntry entry; entries.Next(entry);) {
  }
  ByteReader records(entries.ReachedEnd() ? entries.Rest() : Bytes{});
  Bytes description;
  return !NextUefiDescription(records, description) || IsBuiltInShell(description) ? kGroupBuiltInApplication
                                                                                   : kGroupUefi;
}

UINT32 GroupOfCode(UINT8 code, Bytes table) {
  if (code == kBotEfi) {
    return UefiGroupOf(table);
  }
  const BotGroup* group = FindBotGroup(code);
  return group != nullptr ? GroupOfBbsType(group->BbsType) : kNoGroup;
}

// A list that names no group orders none: in strict mode it would have all legacy options deleted.
EFI_STATUS StatusOf(const BMC_PRIORITY_LIST& list) { return list.Count != 0 ? EFI_SUCCESS : EFI_NOT_FOUND; }

// The items of the table's SYS entry, which comes first; those that lie within the table when it says more.
Bytes SysCodes(Bytes table) {
  ByteReader reader(table);
  UINT8 code = 0;
  UINT8 count = 0;
  if (!reader.Skip(sizeof(BOT_HEADER)) || !reader.Read(code) || !reader.Read(count) || code != kBotSys) {
    return {};
  }
  return reader.Rest().first(count < reader.Remaining() ? count : reader.Remaining());
}

EFI_STATUS ListFromTable(Bytes stored, BMC_PRIORITY_LIST& list) {
  if (BotSum(stored) != 0) {
    DebugPrint("GetBootPrio:Erroneous Checksum\n");
    return EFI_NOT_FOUND;
  }
  BOT_HEADER header;
  if (!ReadBotHeader(stored, header) || static_cast<UINT8>(stored[sizeof(BOT_HEADER)]) != kBotSys) {
    return EFI_NOT_FOUND;
  }
  const Bytes table = stored.first(header.Length);
  const Bytes codes = SysCodes(table);
  for (UINTN at = 0; at < codes.size() && at < kGroupOrderPlaces; ++at) {
    const UINT32 group = GroupOfCode(static_cast<UINT8>(codes[at]), table);
    if (group != kNoGroup) {
      list.Append(group);
    }
  }
  return StatusOf(list);
}

// ---- From BootOrder

UINT32 GroupOfBbsNode(const DevicePath* node) {
  if (NodeLength(node) < sizeof(DevicePath) + sizeof(UINT16)) {
    return kUnknownGroup;
  }
  const auto type = LoadUnaligned<UINT16>(node + 1);
  if (type == kBbsTypeUefi) {
    return kGroupBuiltInApplication;
  }
  return FindBotGroupOfType(type) != nullptr ? GroupOfBbsType(type) : kUnknownGroup;
}

void AppendGroupOfPath(Bytes path, BMC_PRIORITY_LIST& list) {
  // What is under the orphan mask has no device, and says nothing about the order of those that have one.
  const DevicePathWalker walker(path, NodeTypes::Any);
  const DevicePath* node = walker.Node();
  if (node == nullptr || HasOrphanMask(path)) {
    return;
  }
  if (node->Type == BBS_DEVICE_PATH) {
    list.Append(GroupOfBbsNode(node));
  } else if (IsBuiltInApplicationNode(node)) {
    list.Append(kGroupBuiltInApplication);
  } else if (!list.Has(kGroupUefi)) {
    list.Append(kGroupUefi);
  }
}

// Only a Boot#### that is not there is passed over. One that is there and cannot be read may be the only one of its
// group, so that a list without it would be wrong.
EFI_STATUS ListFromOrder(Bytes order, BMC_PRIORITY_LIST& list) {
  constexpr char kRoutine[] = "BuildPriorityListFromBootxxxx";
  BootVariableReader reader;
  ByteReader numbers(order);
  for (UINT16 number = 0; list.Count < kGroupOrderPlaces && numbers.Read(number);) {
    const EFI_STATUS status = reader.Read(number);
    if (EFI_ERROR(status) && status != EFI_NOT_FOUND) {
      DebugPrint("%a:Failed reading Boot%04X:%r\n", kRoutine, number, status);
      return status;
    }
    LoadOptionView view;
    if (EFI_ERROR(status) || !ViewLoadOption(reader.Image(), view)) {
      DebugPrint("%a:Could not read Boot%04X\n", kRoutine, number);
      continue;
    }
    AppendGroupOfPath(view.FilePathList, list);
  }
  return EFI_SUCCESS;
}

}  // namespace

BMC_PRIORITY_LIST::BMC_PRIORITY_LIST() {
  for (UINT32& id : Ids) {
    id = kNoGroup;
  }
}

void BMC_PRIORITY_LIST::Append(UINT32 id) {
  if (Count < kGroupOrderPlaces) {
    Ids[Count++] = id;
  }
}

bool BMC_PRIORITY_LIST::Has(UINT32 id) const {
  UINT32 place = 0;
  while (place < Count && Ids[place] != id) {
    ++place;
  }
  return place < Count;
}

UINT16 BbsTypeOfGroup(UINT32 groupId) {
  if (groupId == kGroupUefi || groupId == kGroupBuiltInApplication) {
    return kBbsTypeUefi;
  }
  for (const BotGroup& group : kBotGroups) {
    if (GroupOfBbsType(group.BbsType) == groupId) {
      return group.BbsType;
    }
  }
  return kBbsTypeNone;
}

bool IsStrictGroupOrder() {
  SetupVariable setup;
  return !EFI_ERROR(ReadSetup(setup)) && setup.At(kSetupStrictGroupOrder) == 0;
}

bool BuildPriorityListFromBootxxxx(BMC_PRIORITY_LIST& list) {
  PoolBuffer order;
  const EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order);
  if (status == EFI_NOT_FOUND) {
    return false;
  }
  if (EFI_ERROR(status) || EFI_ERROR(ListFromOrder(order.Bytes(), list))) {
    list = {};
  }
  return true;
}

EFI_STATUS GetBootPrioritiesFromBmc(BMC_PRIORITY_LIST& list) {
  constexpr char kRoutine[] = "GetBootPrioritiesFromBmc";
  PoolBuffer changed;
  const EFI_STATUS status = ReadVariable(kBotChangedName, kBotVariablesGuid, changed);
  DebugPrint("%a:Boot Order Table from SMBootOrder variable:\n", kRoutine);
  DumpBootOrderTable(changed.Bytes());
  const bool updated = gPolicyEngine.BotUpdatedOldWay != 0;
  if (!updated && BuildPriorityListFromBootxxxx(list)) {
    if (EFI_ERROR(StatusOf(list))) {
      return EFI_NOT_FOUND;
    }
    DebugPrint("%a:Built Priorities from BOOTXXXX variables\n", kRoutine);
    return EFI_SUCCESS;
  }
  if (updated && !EFI_ERROR(status)) {
    return ListFromTable(changed.Bytes(), list);
  }
  PoolBuffer copy;
  if (EFI_ERROR(ReadVariable(kBotCopyName, kBotVariablesGuid, copy))) {
    return EFI_NOT_FOUND;
  }
  return ListFromTable(copy.Bytes(), list);
}

}  // namespace bds

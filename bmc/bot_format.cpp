#include "bmc/bot_format.h"

#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

struct LabelRow {
  UINT8 Code;
  const char* Label;
};
constexpr LabelRow kLabels[] = {
    {kBotSys, "SYS: "}, {kBotFloppy, "FDD: "},  {kBotHardDisk, "IHD: "},     {kBotCdRom, "CDD: "},
    {kBotUsb, "USB: "}, {kBotNetwork, "NIC: "}, {kBotExternalDisk, "EHD: "}, {kBotBev, "BEV: "},
    {kBotEfi, "EFI: "}, {kBotEnd, "End. "},
};

constexpr UINTN kMaxDumpedItems = 12;  // of an entry other than EFI

UINTN ItemSize(UINT8 code) { return code == kBotEfi ? sizeof(UINT16) : sizeof(UINT8); }

void PrintLabel(UINT8 code) {
  for (const LabelRow& row : kLabels) {
    if (row.Code == code) {
      DebugPrint("%a", row.Label);
      return;
    }
  }
  DebugPrint("?: %2x: ", code);
}

void PrintOptionNumbers(Bytes items) {
  ByteReader reader(items);
  for (UINT16 number = 0; reader.Read(number);) {
    DebugPrint("#%04x ", number);
  }
}

void PrintItems(Bytes items) {
  for (UINTN item = 0; item < items.size(); ++item) {
    if (item == kMaxDumpedItems) {
      DebugPrint("Data overflow\n");
      return;
    }
    DebugPrint("%02x ", static_cast<UINT8>(items[item]));
  }
}

// True when the variable holds the table, whatever zeros follow either.
bool IsKept(const CHAR16* name, Bytes table) {
  PoolBuffer kept;
  BOT_HEADER header;
  return !EFI_ERROR(ReadVariable(name, kBotVariablesGuid, kept)) && ReadBotHeader(table, header) &&
         kept.Size >= header.Length && BotSum(kept.Bytes()) == 0 &&
         EqualMemory(kept.Data.get(), table.data(), header.Length);
}

}  // namespace

const BotGroup* FindBotGroupOfType(UINT16 bbsType) {
  for (const BotGroup& group : kBotGroups) {
    if (group.BbsType == bbsType) {
      return &group;
    }
  }
  return nullptr;
}

const BotGroup* FindBotGroup(UINT8 code) {
  for (const BotGroup& group : kBotGroups) {
    if (group.Code == code) {
      return &group;
    }
  }
  return nullptr;
}

UINT8 BotSum(Bytes bytes) {
  UINT8 sum = 0;
  for (const std::byte byte : bytes) {
    sum = static_cast<UINT8>(sum + static_cast<UINT8>(byte));
  }
  return sum;
}

bool ReadBotHeader(Bytes table, BOT_HEADER& header) {
  return ByteReader(table).Read(header) && header.Signature == kBotSignature && header.Length >= kMinBotLength &&
         header.Length <= table.size();
}

bool BotEntries::Next(BotEntry& entry) {
  if (ended_ || !reader_.Read(entry.Code) || !reader_.Read(entry.Count) ||
      !reader_.Take(entry.Count * ItemSize(entry.Code), entry.Items)) {
    return false;
  }
  ended_ = entry.Code == kBotEnd;
  return true;
}

void DumpBootOrderTable(Bytes table, UINTN size) {
  BOT_HEADER header;
  if (!ReadBotHeader(table, header) || header.Length != size) {
    return;
  }
  BotEntries entries(table.first(size));
  for (BotEntry entry; entries.Next(entry);) {
    PrintLabel(entry.Code);
    if (entry.Code == kBotEfi) {
      PrintOptionNumbers(entry.Items);
    } else {
      PrintItems(entry.Items);
    }
    DebugPrint("\n");
  }
}

void DumpBootOrderTable(Bytes table) {
  BOT_HEADER header;
  if (ReadBotHeader(table, header)) {
    DumpBootOrderTable(table, header.Length);
  }
}

bool KeepBootOrderTable(const CHAR16* name, Bytes table) {
  if (IsKept(name, table)) {
    return true;
  }
  const EFI_STATUS status = SetVariableReplacing(name, kBotVariablesGuid, kNonVolatileBoot, table);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing %s:%r\n", "KeepBootOrderTable", name, status);
  }
  return !EFI_ERROR(status);
}

}  // namespace bds

#include "bmc/bot_build.h"

#include "bmc/bot_format.h"
#include "bootopt/bbs_table.h"
#include "bootopt/dumps/dumps.h"
#include "bootopt/legacy_dev_order.h"
#include "bootopt/load_option_image.h"
#include "bootopt/names/bbs_names.h"
#include "bootopt/orphan_mask.h"
#include "support/debug_print.h"
#include "support/text.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT8 kDefaultTable[] = {0x5F, 0x42, 0x4F, 0x5F, 0x16, 0x00, 0x5F, 0x13, 0x00, 0x00,
                                   0x00, 0x00, 0x08, 0x03, 0x01, 0x06, 0x08, 0x10, 0xFF};

constexpr UINTN kMaxItems = 0xFF;  // an entry's count is a byte
constexpr char kDisabledDevice[] = "<Disabled Device>";
constexpr UINTN kGroupCount = sizeof(kBotGroups) / sizeof(kBotGroups[0]);

// What the table is made of.
struct Sources {
  BbsInfo Bbs;
  PoolBuffer LegacyOrder;  // empty: no legacy group is built
};

// ---- Legacy devices

// Calls visit(bbsIndex, disabled) for each entry of all records of the type, in their order; at most kMaxItems times.
// Entries of other types are passed over: the record is from NVRAM. False when there is no such record.
template <typename Visit>
bool ForEachItem(const Sources& sources, UINT16 bbsType, Visit visit) {
  bool found = false;
  UINTN items = 0;
  ForEachLegacyDevRecord(sources.LegacyOrder.Bytes(), [&](UINT32 type, Bytes entries) {
    if (type != bbsType) {
      return;
    }
    found = true;
    ByteReader reader(entries);
    for (UINT16 value = 0; items < kMaxItems && reader.Read(value);) {
      const auto index = static_cast<UINT8>(value & 0xFF);
      const bool present = index < sources.Bbs.BbsCount && sources.Bbs.Table[index].BootPriority != kBbsEmpty;
      const bool disabled = IsDisabledLegacyEntry(value) || !present;
      if (disabled || sources.Bbs.Table[index].DeviceType == bbsType) {
        visit(index, disabled);
        ++items;
      }
    }
  });
  return found;
}

UINT8 CountItems(const Sources& sources, UINT16 bbsType) {
  UINT8 count = 0;
  static_cast<void>(ForEachItem(sources, bbsType, [&count](UINT8, bool) { ++count; }));
  return count;
}

// An entry that is set aside stays so: legacy boot is to skip it.
void SetEntryPriority(const BOOT_OPTION& option) {
  if (option.BbsEntry->BootPriority == kBbsSetAside) {
    return;
  }
  const auto priority = static_cast<UINT16>(option.Priority & 0xFFFF);
  option.BbsEntry->BootPriority = priority > 0xFF ? static_cast<UINT16>(priority >> 8) : priority;
}

// ---- UEFI options

// Those that this boot saves under their number and that may be booted. A masked option's device is not there.
bool IsListed(const BOOT_OPTION& option) {
  const bool saved = option.BootOptionNumber != kNoBootOptionNumber && HasSavablePath(option);
  return saved && !IsLegacyOption(option) && (option.Attributes & LOAD_OPTION_ACTIVE) != 0 &&
         !HasOrphanMask({reinterpret_cast<const std::byte*>(option.FilePathList.get()), option.FilePathListLength});
}

// The members of a group share its number and are saved within it.
bool IsMember(const BOOT_OPTION& option) {
  return option.Previous != nullptr && option.Previous->BootOptionNumber == option.BootOptionNumber;
}

// Those that are an item of the table.
bool IsUefiItem(const BOOT_OPTION& option) { return IsListed(option) && !IsMember(option); }

template <typename Visit>
void ForEachUefiOption(Visit visit) {
  UINTN items = 0;
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr && items < kMaxItems;
       option = option->Next) {
    if (IsUefiItem(*option)) {
      visit(*option);
      ++items;
    }
  }
}

// ---- The table

// The groups in priority order.
struct Groups {
  UINT8 Codes[kGroupCount + 1];
  UINT8 Count = 0;

  bool Has(UINT8 code) const {
    UINT8 at = 0;
    while (at < Count && Codes[at] != code) {
      ++at;
    }
    return at < Count;
  }
  void Add(UINT8 code) {
    if (!Has(code)) {
      Codes[Count++] = code;
    }
  }
};

Groups FindGroups(const Sources& sources) {
  Groups groups;
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (IsLegacyOption(*option) && option->BbsEntry != nullptr) {
      const UINT16 type = option->BbsEntry->DeviceType;
      UINTN items = 0;
      if (!ForEachItem(sources, type, [&items](UINT8, bool) { ++items; })) {
        continue;
      }
      SetEntryPriority(*option);
      const BotGroup* group = FindBotGroupOfType(type);
      if (group != nullptr && items != 0) {
        groups.Add(group->Code);
      }
    } else if (IsUefiItem(*option)) {
      groups.Add(kBotEfi);
    }
  }
  return groups;
}

// Takes the table's bytes; those that it has no room for are only counted.
class Sink {
 public:
  explicit Sink(std::span<std::byte> room) : room_(room) {}
  void PutBytes(const void* bytes, UINTN size) {
    if (size_ + size <= room_.size()) {
      CopyMemory(room_.data() + size_, bytes, size);
    }
    size_ += size;
  }
  template <typename T>
  void Put(const T& value) {
    PutBytes(&value, sizeof(value));
  }
  UINTN Size() const { return size_; }

 private:
  std::span<std::byte> room_;
  UINTN size_ = 0;
};

void PutHeader(Sink& sink, UINTN length) {
  sink.Put(BOT_HEADER{kBotSignature, 0, 0, kBotFromOptions, static_cast<UINT16>(length), 0, 0});
}

void PutEntries(Sink& sink, const Sources& sources, const Groups& groups) {
  if (groups.Count != 0) {
    sink.Put(UINT8{kBotSys});
    sink.Put(groups.Count);
    sink.PutBytes(groups.Codes, groups.Count);
  }
  for (const BotGroup& group : kBotGroups) {
    if (groups.Has(group.Code)) {
      sink.Put(UINT8{group.Code});
      sink.Put(CountItems(sources, group.BbsType));
      static_cast<void>(ForEachItem(sources, group.BbsType, [&sink](UINT8 index, bool) { sink.Put(index); }));
    }
  }
  if (groups.Has(kBotEfi)) {
    UINT8 count = 0;
    ForEachUefiOption([&count](const BOOT_OPTION&) { ++count; });
    sink.Put(UINT8{kBotEfi});
    sink.Put(count);
    ForEachUefiOption([&sink](const BOOT_OPTION& option) { sink.Put(option.BootOptionNumber); });
  }
  sink.Put(UINT8{kBotEnd});
  sink.Put(UINT8{0});
}

void PutLegacyName(Sink& sink, const Sources& sources, const BotGroup& group, UINT8 index, bool disabled) {
  char built[kLegacyLocationNameCapacity] = {};
  const char* name = kDisabledDevice;
  if (!disabled) {
    static_cast<void>(BuildLegacyLocationName(sources.Bbs.Table[index], index, built));
    name = built;
  }
  if (const UINTN length = TextLength(name); length != 0) {
    sink.Put(UINT8{group.Code});
    sink.Put(UINT16{index});
    sink.PutBytes(name, length + 1);
  }
}

void PutUefiName(Sink& sink, const BOOT_OPTION& option) {
  constexpr CHAR16 kNone[] = u"";
  sink.Put(UINT8{kBotEfi});
  sink.Put(option.BootOptionNumber);
  sink.Put(static_cast<UINT16>(option.FilePathListLength));
  sink.PutBytes(option.Description ? option.Description.get() : kNone,
                (TextLength(option.Description.get()) + 1) * sizeof(CHAR16));
  sink.PutBytes(option.FilePathList.get(), option.FilePathListLength);
}

void PutNames(Sink& sink, const Sources& sources, const Groups& groups) {
  for (const BotGroup& group : kBotGroups) {
    if (groups.Has(group.Code)) {
      static_cast<void>(ForEachItem(sources, group.BbsType, [&](UINT8 index, bool disabled) {
        PutLegacyName(sink, sources, group, index, disabled);
      }));
    }
  }
  ForEachUefiOption([&sink](const BOOT_OPTION& option) { PutUefiName(sink, option); });
}

// The same routine measures and writes, so that neither can say more than the other.
UINTN PutTable(Sink sink, const Sources& sources, const Groups& groups, UINTN length) {
  PutHeader(sink, length);
  PutEntries(sink, sources, groups);
  PutNames(sink, sources, groups);
  return sink.Size();
}

// Without a BBS table or an order of its devices no legacy group is built. One that is there and cannot be read is an
// error: the BMC would take its devices for gone.
EFI_STATUS FindSources(Sources& sources) {
  EFI_STATUS status = GetBbsInfo(sources.Bbs);
  if (!EFI_ERROR(status)) {
    status = ReadVariable(kLegacyDevOrderName, kLegacyDevOrderGuid, sources.LegacyOrder);
  }
  return status == EFI_NOT_FOUND ? EFI_SUCCESS : status;
}

}  // namespace

Bytes DefaultBootOrderTable() {
  DebugPrint("Creating a default boot order table of size %d\n", sizeof(kDefaultTable));
  return AsBytes(kDefaultTable);
}

EFI_STATUS CreateSmBotData(PoolBuffer& table) {
  SortList(BootOptionList, CompareByPriority);
  DumpBootOptionList(BootOptionList, " BootOptionList Before Building BIOS BOT ");
  Sources sources;
  if (const EFI_STATUS status = FindSources(sources); EFI_ERROR(status)) {
    return status;
  }
  const Groups groups = FindGroups(sources);
  const UINTN length = PutTable(Sink({}), sources, groups, 0);
  if (length > 0xFFFF) {
    return EFI_OUT_OF_RESOURCES;
  }
  table.Data.reset(static_cast<std::byte*>(AllocateZeroPool(length)));
  table.Size = length;
  if (!table.Data) {
    table.Size = 0;
    return EFI_OUT_OF_RESOURCES;
  }
  static_cast<void>(PutTable(Sink({table.Data.get(), length}), sources, groups, length));
  table.Data[offsetof(BOT_HEADER, Checksum)] = static_cast<std::byte>(-BotSum(table.Bytes()));
  return EFI_SUCCESS;
}

}  // namespace bds

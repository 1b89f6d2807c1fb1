#include "bootopt/legacy_dev_order.h"

#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "support/setup.h"

namespace bds {
namespace {

#pragma pack(push, 1)
struct RecordHeader {
  UINT32 Type;
  UINT16 Length;  // of what follows the type: itself and the entries
};
#pragma pack(pop)

// The room that one option can take: a record of its own with one entry.
constexpr UINTN kRoomPerOption = sizeof(RecordHeader) + sizeof(UINT16);
constexpr UINT16 kMaxRecordLength = 0xFFFE;  // an even number that 16 bits hold

class RecordWriter {
 public:
  RecordWriter(PoolBuffer& buffer, DisabledDevices disabled) : buffer_(buffer), disabled_(disabled) {}

  void Add(const BOOT_OPTION& option) {
    if (!open_ || option.BootOptionNumber != number_ || header_.Length == kMaxRecordLength) {
      Close();
      Open(option);
    }
    StoreUnaligned(buffer_.Data.get() + buffer_.Size, Entry(option));
    buffer_.Size += sizeof(UINT16);
    header_.Length += sizeof(UINT16);
  }
  void Close() {
    if (open_) {
      StoreUnaligned(buffer_.Data.get() + start_, header_);
    }
  }

 private:
  void Open(const BOOT_OPTION& option) {
    open_ = true;
    number_ = option.BootOptionNumber;
    start_ = buffer_.Size;
    header_ = {TypeOf(option), sizeof(UINT16)};
    buffer_.Size += sizeof(header_);
  }
  // An option without a path has its entry's type.
  static UINT16 TypeOf(const BOOT_OPTION& option) {
    UINT16 type = 0;
    if (!FirstNodeDeviceType(option, type) && option.BbsEntry != nullptr) {
      type = option.BbsEntry->DeviceType;
    }
    return type;
  }
  UINT16 Entry(const BOOT_OPTION& option) const {
    if (disabled_ == DisabledDevices::AsEnabled) {
      return static_cast<UINT16>(option.BbsIndex & ~kDisabledLegacyEntry);
    }
    const bool active = (option.Attributes & LOAD_OPTION_ACTIVE) != 0;
    return static_cast<UINT16>(active ? option.BbsIndex : option.BbsIndex | kDisabledLegacyEntry);
  }

  PoolBuffer& buffer_;
  DisabledDevices disabled_;
  RecordHeader header_{};
  UINTN start_ = 0;  // of the open record
  UINT16 number_ = 0;
  bool open_ = false;
};

// An orphan that could not be masked is still a legacy option, and has no entry that could be told.
bool IsOrdered(const BOOT_OPTION& option) {
  return IsLegacyOption(option) && option.GroupHeader == FALSE && option.BbsIndex != kNoBbsIndex;
}

// The order goes where Setup goes, so that both are seen by the same readers.
UINT32 SetupAttributes() {
  SetupVariable setup;
  const EFI_STATUS status = ReadSetup(setup);
  // Of a Setup that is too long to be read the attributes are known all the same.
  return EFI_ERROR(status) && status != EFI_BUFFER_TOO_SMALL ? kNonVolatileBoot : setup.Attributes;
}

}  // namespace

EFI_STATUS BuildLegacyDevOrder(const BOOT_OPTION_LIST& list, DisabledDevices disabled, PoolBuffer& records) {
  records.Data = AllocateArray<std::byte>(kRoomPerOption * (list.Count == 0 ? 1 : list.Count));
  records.Size = 0;
  if (!records.Data) {
    return EFI_OUT_OF_RESOURCES;
  }
  RecordWriter writer(records, disabled);
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    if (IsOrdered(*option)) {
      writer.Add(*option);
    }
  }
  writer.Close();
  return EFI_SUCCESS;
}

void SaveLegacyDevOrder() {
  SortList(BootOptionList, CompareByPriority);
  PoolBuffer records;
  const EFI_STATUS status = BuildLegacyDevOrder(BootOptionList, DisabledDevices::Marked, records);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:No memory for the legacy device order:%r\n", "SaveLegacyDevOrder", status);
    return;
  }
  // A size of 0 deletes the variables; that they are not there is no failure, and none is acted upon.
  static_cast<void>(SetVariableReplacing(kLegacyDevOrderName, kLegacyDevOrderGuid, SetupAttributes(), records.Bytes()));
  static_cast<void>(SetVariableReplacing(u"OldLegacyDevOrder", kLegacyDevOrderGuid, kNonVolatileBoot, records.Bytes()));
}

}  // namespace bds

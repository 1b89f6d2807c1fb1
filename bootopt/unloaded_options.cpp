#include "bootopt/unloaded_options.h"

#include "bootopt/boot_lists.h"
#include "support/byte_reader.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINTN kFirstCapacity = 16;

std::span<UNLOADED_OPTION> Entries() { return {gBootOptions.Unloaded.Entries.get(), gBootOptions.Unloaded.Count}; }

bool Grow(UNLOADED_OPTIONS& unloaded) {
  const UINTN capacity = unloaded.Capacity == 0 ? kFirstCapacity : unloaded.Capacity * 2;
  auto larger = AllocateArray<UNLOADED_OPTION>(capacity);
  if (!larger) {
    return false;
  }
  CopyMemory(larger.get(), unloaded.Entries.get(), unloaded.Count * sizeof(UNLOADED_OPTION));
  unloaded.Entries = std::move(larger);
  unloaded.Capacity = capacity;
  return true;
}

// The option that was loaded under this number; null when it was not loaded, or was deleted since.
const BOOT_OPTION* OptionLoadedAs(UINT16 number) {
  const BOOT_OPTION* option = BootOptionList.First;
  while (option != nullptr && option->StoredNumber != number) {
    option = option->Next;
  }
  return option;
}

void RecordWhatIsNotListed(Bytes order) {
  UINT32 place = 0;
  ByteReader numbers(order);
  for (UINT16 number = 0; numbers.Read(number);) {
    if (const BOOT_OPTION* option = OptionLoadedAs(number); option != nullptr) {
      place = option->Priority + 1;
    } else {
      RecordUnloadedOption(number, place);
    }
  }
}

}  // namespace

void RecordUnloadedOption(UINT16 number, UINT32 priority) {
  UNLOADED_OPTIONS& unloaded = gBootOptions.Unloaded;
  if (unloaded.Count == unloaded.Capacity && !Grow(unloaded)) {
    unloaded.State = UnloadedState::CannotRecord;
    return;
  }
  unloaded.Entries[unloaded.Count++] = {number, priority, nullptr};
}

void RecordUnreadOrder() { gBootOptions.Unloaded.State = UnloadedState::OrderUnread; }

bool EveryOptionWasLoaded() { return EveryUnloadedOptionIsKnown() && gBootOptions.Unloaded.Count == 0; }

bool EveryUnloadedOptionIsKnown() { return gBootOptions.Unloaded.State == UnloadedState::Recorded; }

bool IsUnloadedOption(UINT16 number) {
  for (const UNLOADED_OPTION& entry : Entries()) {
    if (entry.Number == number) {
      return true;
    }
  }
  return false;
}

void HoldPlacesOfUnloadedOptions() {
  for (UNLOADED_OPTION& entry : Entries()) {
    entry.Before = nullptr;
    for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
      const bool nearer = entry.Before == nullptr || option->Priority > entry.Before->Priority;
      if (option->StoredNumber != kNoBootOptionNumber && option->Priority < entry.Priority && nearer) {
        entry.Before = option;
      }
    }
  }
}

void RestorePlacesOfUnloadedOptions() {
  for (UNLOADED_OPTION& entry : Entries()) {
    entry.Priority = entry.Before != nullptr ? entry.Before->Priority + 1 : 0;
  }
}

EFI_STATUS CompleteUnloadedOptions() {
  if (EveryUnloadedOptionIsKnown()) {
    return EFI_SUCCESS;
  }
  PoolBuffer order;
  const EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order);
  if (EFI_ERROR(status) && status != EFI_NOT_FOUND) {
    return status;
  }
  ForgetUnloadedOptions();
  RecordWhatIsNotListed(order.Bytes());
  return EveryUnloadedOptionIsKnown() ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

void ForgetUnloadedOptions() {
  gBootOptions.Unloaded.Entries.reset();
  gBootOptions.Unloaded.Count = 0;
  gBootOptions.Unloaded.Capacity = 0;
  gBootOptions.Unloaded.State = UnloadedState::Recorded;
}

EFI_STATUS OrderBuilder::Begin() {
  if (const EFI_STATUS status = CompleteUnloadedOptions(); EFI_ERROR(status)) {
    return status;
  }
  constexpr UINTN kNumbersOfAnOption = 2;
  numbers_ = AllocateArray<UINT16>(BootOptionList.Count * kNumbersOfAnOption + gBootOptions.Unloaded.Count + 1);
  return numbers_ && seen_ ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

void OrderBuilder::AddOnce(UINT16 number) {
  if (seen_.Insert(number)) {
    numbers_[count_++] = number;
  }
}

void OrderBuilder::AddUnloadedUpTo(UINT32 priority) {
  for (const UNLOADED_OPTION& entry : Entries()) {
    if (entry.Priority <= priority) {
      AddOnce(entry.Number);
    }
  }
}

void OrderBuilder::Add(UINT16 number, UINT32 priority) {
  AddUnloadedUpTo(priority);
  AddOnce(number);
}

Bytes OrderBuilder::Finish() {
  AddUnloadedUpTo(kUnassigned);
  return {reinterpret_cast<const std::byte*>(numbers_.get()), count_ * sizeof(UINT16)};
}

}  // namespace bds

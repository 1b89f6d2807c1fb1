// Writes every numbered option back as Boot####, and BootOrder behind them. Consumes the options it saves.
#include "bootopt/dumps/dumps.h"
#include "bootopt/load_option_image.h"
#include "bootopt/orphan_mask.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr char kSave[] = "SaveBootOptions";

bool IsSaved(const BOOT_OPTION& option) {
  return HasSavablePath(option) && option.BootOptionNumber != kNoBootOptionNumber;
}

// Room for the image being written and for the one that the store holds, got before anything is written: memory that
// runs out in between would leave an order of options that are not there.
struct ImageRooms {
  PoolBuffer Image;
  PoolBuffer Stored;

  [[nodiscard]] bool Allocate(UINTN size) {
    Image.Data = AllocateArray<std::byte>(size);
    Stored.Data = AllocateArray<std::byte>(size);
    Image.Size = Stored.Size = size;
    return Image.Data && Stored.Data;
  }
};

UINTN LargestImageSize() {
  UINTN largest = 0;
  for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    const UINTN size = IsSaved(*option) ? LoadOptionImageSize(*option) : 0;
    largest = size > largest ? size : largest;
  }
  return largest + kOrphanMaskSize;  // the stored image may have its mask still
}

// The option's image; its members, which are in it, leave the list.
Bytes TakeImage(BOOT_OPTION& option, ImageRooms& rooms) {
  const Bytes image = WriteLoadOptionImage(option, {rooms.Image.Data.get(), rooms.Image.Size});
  while (BOOT_OPTION* member = NextMember(option, option)) {
    DeleteBootOption(BootOptionList, member);
  }
  return image;
}

bool VariableHolds(UINT16 number, Bytes image, ImageRooms& rooms) {
  const std::span<std::byte> room{rooms.Stored.Data.get(), rooms.Stored.Size};
  UINTN size = 0;
  const EFI_STATUS status = ReadVariableInto(BootVariableName(number), gEfiGlobalVariableGuid, room, size);
  return !EFI_ERROR(status) && IsSameLoadOption(room.first(size), image);
}

bool IsNumberOfAnother(const BOOT_OPTION& option, UINT16 number) {
  const BOOT_OPTION* other = BootOptionList.First;
  while (other != nullptr && (other == &option || other->BootOptionNumber != number)) {
    other = other->Next;
  }
  return other != nullptr;
}

// The number under which the store holds an option that it refused to write; kNoBootOptionNumber: under none. A full
// store may hold it already, at worst with the attributes and mask of an earlier boot; such an option must not drop out
// of the order. One that kept its number is there. One that was numbered anew may be under the new number, or is still
// under the old one when no other option was or will be saved there.
UINT16 NumberHeld(const BOOT_OPTION& option, Bytes image, ImageRooms& rooms) {
  const UINT16 number = option.BootOptionNumber;
  const UINT16 stored = option.StoredNumber;
  if (stored == number || VariableHolds(number, image, rooms)) {
    return number;
  }
  const bool there =
      stored != kNoBootOptionNumber && !IsNumberOfAnother(option, stored) && VariableHolds(stored, image, rooms);
  return there ? stored : kNoBootOptionNumber;
}

// Returns the number whose variable now stands for the option; kNoBootOptionNumber when none does.
UINT16 SaveOption(BOOT_OPTION& option, ImageRooms& rooms) {
  const NumberedName name = BootVariableName(option.BootOptionNumber);
  const Bytes image = TakeImage(option, rooms);
  const EFI_STATUS status = WriteVariable(name, gEfiGlobalVariableGuid, kNonVolatileBootRuntime, image);
  DebugPrint("Setting Boot option#%04x with size %x\n", option.BootOptionNumber, image.size());
  DebugPrint("Description: %S\n", option.Description.get());
  if (!EFI_ERROR(status)) {
    return option.BootOptionNumber;
  }
  DebugPrint("%a:Writing Boot%04X failed:%r\n", kSave, option.BootOptionNumber, status);
  return NumberHeld(option, image, rooms);
}

// Writes the options and puts those that the store holds into the order. False when it holds none.
bool SaveOptions(OrderBuilder& order, ImageRooms& rooms) {
  bool tried = false;
  bool saved = false;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    if (!IsSaved(*option)) {
      option = option->Next;
      continue;
    }
    tried = true;
    if (const UINT16 number = SaveOption(*option, rooms); number != kNoBootOptionNumber) {
      order.Add(number, option->Priority);
      saved = true;
    }
    BOOT_OPTION* next = option->Next;
    DeleteBootOption(BootOptionList, option);
    option = next;
  }
  return saved || !tried;
}

// Numbers may stand for other options by now, so that the order of before would name the wrong ones: a store that
// refuses is asked once more.
EFI_STATUS WriteOrder(Bytes numbers) {
  const EFI_STATUS status = WriteVariable(u"BootOrder", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, numbers);
  if (!EFI_ERROR(status) || numbers.empty()) {
    return EFI_SUCCESS;  // that there is none to delete is no failure
  }
  return WriteVariable(u"BootOrder", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, numbers);
}

void SaveListAndOrder() {
  OrderBuilder order;
  if (const EFI_STATUS status = order.Begin(); EFI_ERROR(status)) {
    DebugPrint("%a:BootOrder cannot be put together, nothing is saved:%r\n", kSave, status);
    return;
  }
  ImageRooms rooms;
  if (!rooms.Allocate(LargestImageSize())) {
    DebugPrint("%a:No memory for the options, nothing is saved\n", kSave);
    return;
  }
  if (!SaveOptions(order, rooms)) {
    // The store takes nothing: an empty order would throw away the one that it still holds.
    DebugPrint("%a:No option could be written, BootOrder is left unchanged\n", kSave);
    return;
  }
  if (const EFI_STATUS status = WriteOrder(order.Finish()); EFI_ERROR(status)) {
    DebugPrint("%a:Writing BootOrder failed:%r\n", kSave, status);
  }
}

}  // namespace

void SaveBootOptions() {
  SortList(BootOptionList, CompareByPriority);
  DumpBootOptionList(BootOptionList, "Before Saving");
  if (BootOptionList.First != nullptr) {
    SaveListAndOrder();
  }
  ForgetUnloadedOptions();
}

}  // namespace bds

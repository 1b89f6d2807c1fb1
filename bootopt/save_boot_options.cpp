// Writes every numbered option back as Boot####, and BootOrder behind them. Consumes the options it saves.
#include "bootopt/dumps/dumps.h"
#include "bootopt/load_option_image.h"
#include "bootopt/orphan_mask.h"
#include "bootopt/renumbering.h"
#include "bootopt/steps.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr char kSave[] = "SaveBootOptions";

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

// The store may refuse to write an option that it holds already, at worst with the attributes and mask of an earlier
// boot; such an option must not drop out of the order. One that was loaded stands where it was loaded from, or was
// moved.
bool IsHeld(const BOOT_OPTION& option, Bytes image, ImageRooms& rooms) {
  return option.StoredNumber == option.BootOptionNumber || VariableHolds(option.BootOptionNumber, image, rooms);
}

// True when its variable stands for the option now.
bool SaveOption(BOOT_OPTION& option, ImageRooms& rooms) {
  const NumberedName name = BootVariableName(option.BootOptionNumber);
  const Bytes image = TakeImage(option, rooms);
  const EFI_STATUS status = WriteVariable(name, gEfiGlobalVariableGuid, kNonVolatileBootRuntime, image);
  DebugPrint("Setting Boot option#%04x with size %x\n", option.BootOptionNumber, image.size());
  DebugPrint("Description: %S\n", option.Description.get());
  if (!EFI_ERROR(status)) {
    return true;
  }
  DebugPrint("%a:Writing Boot%04X failed:%r\n", kSave, option.BootOptionNumber, status);
  return IsHeld(option, image, rooms);
}

// Writes the options and puts those that the store holds into the order; false when it holds none. Under a number that
// was kept, because its option could not be moved, nothing is written.
bool SaveOptions(OrderBuilder& order, const NumberSet& kept, ImageRooms& rooms) {
  bool tried = false;
  bool saved = false;
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr;) {
    if (!IsSaved(*option)) {
      option = option->Next;
      continue;
    }
    tried = true;
    if (kept.Contains(option->BootOptionNumber) || SaveOption(*option, rooms)) {
      order.Add(option->BootOptionNumber, option->Priority);
      saved = true;
    }
    BOOT_OPTION* next = option->Next;
    DeleteBootOption(BootOptionList, option);
    option = next;
  }
  return saved || !tried;
}

void SaveListAndOrder() {
  OrderBuilder order;
  if (const EFI_STATUS status = order.Begin(); EFI_ERROR(status)) {
    DebugPrint("%a:BootOrder cannot be put together, nothing is saved:%r\n", kSave, status);
    return;
  }
  ImageRooms rooms;
  NumberSet kept;
  if (!rooms.Allocate(LargestImageSize()) || !kept) {
    DebugPrint("%a:No memory for the options, nothing is saved\n", kSave);
    return;
  }
  if (AnyOptionMoves()) {
    MoveRenumberedOptions({rooms.Image.Data.get(), rooms.Image.Size}, kept);
  }
  if (!SaveOptions(order, kept, rooms)) {
    // The store takes nothing: an empty order would throw away the one that it still holds.
    DebugPrint("%a:No option could be written, BootOrder is left unchanged\n", kSave);
    return;
  }
  const Bytes numbers = order.Finish();
  const EFI_STATUS status = WriteVariableFirmly(u"BootOrder", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, numbers);
  if (EFI_ERROR(status) && !numbers.empty()) {  // that there is none to delete is no failure
    DebugPrint("%a:Writing BootOrder failed:%r\n", kSave, status);
    return;
  }
  gBootOptions.OrderNotSaved = false;
}

}  // namespace

void SaveBootOptions() {
  SortList(BootOptionList, CompareByPriority);
  DumpBootOptionList(BootOptionList, "Before Saving");
  if (BootOptionList.First != nullptr) {
    gBootOptions.OrderNotSaved = true;
    SaveListAndOrder();
  }
  ForgetUnloadedOptions();
}

}  // namespace bds

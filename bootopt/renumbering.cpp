#include "bootopt/renumbering.h"

#include "bootopt/load_option_image.h"
#include "bootopt/option_numbers.h"
#include "support/debug_print.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr char kMove[] = "MoveRenumberedOptions";

bool Moves(const BOOT_OPTION& option) {
  return IsSaved(option) && option.StoredNumber != kNoBootOptionNumber &&
         option.StoredNumber != option.BootOptionNumber;
}

template <typename Predicate>
BOOT_OPTION* FindOption(Predicate predicate) {
  BOOT_OPTION* option = BootOptionList.First;
  while (option != nullptr && !predicate(*option)) {
    option = option->Next;
  }
  return option;
}

// Another option that is still to be moved away from where this one goes; null when the way is free.
BOOT_OPTION* InTheWayOf(const BOOT_OPTION& option) {
  return FindOption([&option](const BOOT_OPTION& other) {
    return &other != &option && other.StoredNumber == option.BootOptionNumber && Moves(other);
  });
}

// A number that is free, and that no option was loaded from; kNoBootOptionNumber when there is none.
UINT16 SpareNumber() {
  OptionNumberAllocator numbers(BootOptionList);
  UINT16 number = numbers.Next();
  while (number != kNoBootOptionNumber &&
         FindOption([number](const BOOT_OPTION& option) { return option.StoredNumber == number; }) != nullptr) {
    number = numbers.Next();
  }
  return number;
}

class Mover {
 public:
  Mover(std::span<std::byte> room, NumberSet& kept) : room_(room), kept_(kept), spare_(SpareNumber()) {}

  [[nodiscard]] EFI_STATUS WriteOrderOfBoth() {
    OrderBuilder order;
    if (const EFI_STATUS status = order.Begin(); EFI_ERROR(status)) {
      return status;
    }
    for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
      if (IsSaved(*option)) {
        order.Add(option->BootOptionNumber, option->Priority);
      }
    }
    for (const BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
      if (Moves(*option)) {
        order.Add(option->StoredNumber, kUnassigned);
      }
    }
    order.Add(spare_, kUnassigned);
    return WriteVariableFirmly(u"BootOrder", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, order.Finish());
  }

  void KeepAll() {
    for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
      if (Moves(*option)) {
        Keep(*option);
      }
    }
  }

  void MoveAll() {
    while (BOOT_OPTION* option = NextToMove()) {
      // From option to option in the way: to one with a free way, or into a ring of options that wait for each other.
      BOOT_OPTION* other = InTheWayOf(*option);
      for (UINTN steps = BootOptionList.Count; steps != 0 && other != nullptr; --steps) {
        option = other;
        other = InTheWayOf(*option);
      }
      if (other == nullptr) {
        Move(*option);
      } else {
        MoveAside(*option);
      }
    }
  }

 private:
  // An option that was moved aside before all others: the spare number is needed for the next ring.
  BOOT_OPTION* NextToMove() const {
    BOOT_OPTION* aside =
        FindOption([this](const BOOT_OPTION& option) { return option.StoredNumber == spare_ && Moves(option); });
    return aside != nullptr ? aside : FindOption(Moves);
  }

  void Keep(BOOT_OPTION& option) {
    DebugPrint("%a:Boot%04X cannot become Boot%04X\n", kMove, option.StoredNumber, option.BootOptionNumber);
    option.BootOptionNumber = option.StoredNumber;
    static_cast<void>(kept_.Insert(option.StoredNumber));
  }

  bool Write(BOOT_OPTION& option, UINT16 number) {
    const Bytes image = WriteLoadOptionImage(option, room_);
    const bool written = !EFI_ERROR(
        WriteVariableFirmly(BootVariableName(number), gEfiGlobalVariableGuid, kNonVolatileBootRuntime, image));
    if (written) {
      option.StoredNumber = number;
    }
    return written;
  }

  void Move(BOOT_OPTION& option) {
    const bool wasAside = option.StoredNumber == spare_;
    if (kept_.Contains(option.BootOptionNumber) || !Write(option, option.BootOptionNumber)) {
      Keep(option);
    } else if (wasAside) {
      static_cast<void>(DeleteVariable(BootVariableName(spare_), gEfiGlobalVariableGuid));
      spareIsUsed_ = false;
    }
  }

  void MoveAside(BOOT_OPTION& option) {
    if (spareIsUsed_ || spare_ == kNoBootOptionNumber || !Write(option, spare_)) {
      Keep(option);
      return;
    }
    spareIsUsed_ = true;
  }

  std::span<std::byte> room_;
  NumberSet& kept_;
  const UINT16 spare_;
  bool spareIsUsed_ = false;
};

}  // namespace

bool IsSaved(const BOOT_OPTION& option) {
  return HasSavablePath(option) && option.BootOptionNumber != kNoBootOptionNumber;
}

bool AnyOptionMoves() { return FindOption(Moves) != nullptr; }

void MoveRenumberedOptions(std::span<std::byte> room, NumberSet& kept) {
  Mover mover(room, kept);
  if (const EFI_STATUS status = mover.WriteOrderOfBoth(); EFI_ERROR(status)) {
    DebugPrint("%a:Writing BootOrder failed:%r\n", kMove, status);
    mover.KeepAll();
    return;
  }
  mover.MoveAll();
}

}  // namespace bds

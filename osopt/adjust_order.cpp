// The step that cleans BootOrder of options that start the same loader as another one, before it is loaded.
#include "bootopt/load_option.h"
#include "osopt/loader_path.h"
#include "osopt/loader_table.h"
#include "osopt/steps.h"
#include "osopt/stored_order.h"
#include "support/debug_print.h"

namespace bds {
namespace {

constexpr char kAdjust[] = "AdjustEfiOsBootOrder";
constexpr UINT8 kGptDisk = 2;  // MBRType of a hard-drive node

bool HasFirmwareMarker(const STORED_OPTION& option) {
  ByteReader data(option.OptionalData);
  return data.SkipIfEqual(kFirmwareMarker);
}

// Without data that says more, an option counts as an operating system's.
bool HasNoData(const STORED_OPTION& option) { return option.OptionalData.size() < sizeof(OptionMarker); }

// The loader for which the driver makes just such an option, which may have lost its marker: where the policy engine
// runs, each option of a present partition is given up to the operating system before it is saved.
const OS_LOADER* MadeFor(const STORED_OPTION& option) {
  return option.OptionalData.empty() ? FindOsLoader(option.Description, option.Path) : nullptr;
}

// What an operating system or a user gave the loader along, and the twin does not: this is another option.
bool HasDataOfItsOwn(const STORED_OPTION& option, const STORED_OPTION& twin) {
  const Bytes data = option.OptionalData;
  return !data.empty() && !IsFirmwareData(data) &&
         (data.size() != twin.OptionalData.size() || !EqualMemory(data.data(), twin.OptionalData.data(), data.size()));
}

// Whether one that looks like the driver's own is not needed beside the option of a system or a user. With data that
// is another option, and what looks like the driver's may be the system's; unless no system's option looks like that.
bool Supersedes(const STORED_OPTION& option, const STORED_OPTION& other) {
  const OS_LOADER* loader = MadeFor(other);
  return loader != nullptr && !IsFirmwareData(option.OptionalData) && (HasNoData(option) || !loader->AsInstalled);
}

// Which of two options for one loader goes.
enum class Twins {
  BothStay,
  FirstGoes,       // the second one takes its place
  SecondGoes,      // the first one stays where it is
  FirstMovesBack,  // the second one goes and the first one takes its place
};

Twins Choose(const STORED_OPTION& first, const STORED_OPTION& second) {
  if (MadeFor(first) == nullptr && Supersedes(first, second)) {
    return Twins::SecondGoes;
  }
  if (HasFirmwareMarker(second)) {
    return Twins::FirstMovesBack;
  }
  const bool yields = HasNoData(second) ? !HasDataOfItsOwn(first, second) : Supersedes(second, first);
  return yields ? Twins::FirstGoes : Twins::BothStay;
}

bool IsOnGptDisk(const STORED_OPTION& option) {
  return LoadUnaligned<HARDDRIVE_DEVICE_PATH>(LeadingHardDrive(option.Path)).MBRType == kGptDisk;
}

// One walk over the order, which makes the new one.
class OrderReview {
 public:
  // False when the pool is exhausted.
  [[nodiscard]] bool Begin(const StoredOrder& order) {
    numbers_ = AllocateArray<UINT16>(order.Count());
    return static_cast<bool>(numbers_);
  }
  void Decide(ORDER_PLACE& place);
  // True when an option was deleted, so that the new order differs from the old one in more than numbers of nothing.
  [[nodiscard]] bool Changed() const { return changed_; }
  [[nodiscard]] Bytes Numbers() const {
    return {reinterpret_cast<const std::byte*>(numbers_.get()), count_ * sizeof(UINT16)};
  }

 private:
  void Keep(const STORED_OPTION& option) { numbers_[count_++] = option.Number; }
  [[nodiscard]] bool Delete(const STORED_OPTION& option);
  void DecideAbsent(const STORED_OPTION& option);
  void DecidePresent(ORDER_PLACE& place);

  PartitionHandles partitions_;
  PoolPtr<UINT16> numbers_;
  UINTN count_ = 0;
  bool changed_ = false;
};

// An option that cannot be deleted stays in the order, else its variable would belong to nobody.
bool OrderReview::Delete(const STORED_OPTION& option) {
  if (const EFI_STATUS status = option.Variable.Delete(kNonVolatileBootRuntime); EFI_ERROR(status)) {
    DebugPrint("%a:Deleting Boot%04X failed:%r\n", kAdjust, option.Number, status);
    return false;
  }
  changed_ = true;
  return true;
}

// On a disk with a GPT the partition's own GUID is gone for good; an MBR's disk may come back under the same signature.
void OrderReview::DecideAbsent(const STORED_OPTION& option) {
  const bool outlived = IsOnGptDisk(option) && IsFirmwareData(option.OptionalData);
  if (!outlived || !Delete(option)) {
    Keep(option);
  }
}

// The next option behind the place that starts the same loader as this one.
ORDER_PLACE* FindTwin(const ORDER_PLACE& place, const STORED_OPTION& option) {
  ORDER_PLACE* twin = place.Next;
  while (twin != nullptr && (twin->Processed || EFI_ERROR(CompareOsLoaderPath(twin->Option.Path, option.Path)))) {
    twin = twin->Next;
  }
  return twin;
}

// Between an option of an operating system and one of the firmware's, the system's stays. A twin that stays too is
// another option, and the next one may be none.
void OrderReview::DecidePresent(ORDER_PLACE& place) {
  STORED_OPTION* option = &place.Option;
  for (ORDER_PLACE* twin = FindTwin(place, *option); twin != nullptr; twin = FindTwin(*twin, *option)) {
    const Twins choice = Choose(*option, twin->Option);
    if (choice == Twins::BothStay) {
      continue;
    }
    if (!Delete(choice == Twins::FirstGoes ? *option : twin->Option)) {
      break;
    }
    if (choice == Twins::FirstMovesBack) {
      twin->Option = std::move(*option);  // placed when the walk comes there
      return;
    }
    twin->Processed = true;
    option = choice == Twins::FirstGoes ? &twin->Option : option;
  }
  Keep(*option);
}

void OrderReview::Decide(ORDER_PLACE& place) {
  const DevicePath* hardDrive = LeadingHardDrive(place.Option.Path);
  if (hardDrive == nullptr) {
    Keep(place.Option);
    return;
  }
  place.Processed = true;
  EFI_HANDLE partition = nullptr;
  const EFI_STATUS status = partitions_.Find(hardDrive, partition);
  if (!EFI_ERROR(status)) {
    DecidePresent(place);
  } else if (status == EFI_NOT_FOUND) {
    DecideAbsent(place.Option);
  } else {
    Keep(place.Option);
  }
}

}  // namespace

void AdjustEfiOsBootOrder() {
  StoredOrder order;
  const EFI_STATUS loaded = order.Load();
  if (loaded == EFI_NOT_FOUND) {
    return;
  }
  OrderReview review;
  if (EFI_ERROR(loaded) || !review.Begin(order)) {
    DebugPrint("%a:The order cannot be looked at, it is left as it is:%r\n", kAdjust, loaded);
    return;
  }
  for (ORDER_PLACE* place = order.First(); place != nullptr; place = place->Next) {
    if (!place->Processed) {
      review.Decide(*place);
    }
  }
  if (!review.Changed()) {
    return;
  }
  const EFI_STATUS status =
      WriteVariable(u"BootOrder", gEfiGlobalVariableGuid, kNonVolatileBootRuntime, review.Numbers());
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Writing BootOrder failed:%r\n", kAdjust, status);
  }
}

}  // namespace bds

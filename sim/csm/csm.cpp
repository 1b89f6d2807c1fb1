// The protocols, the table with its strings, and the legacy boot.
#include "sim/csm/csm.h"

#include <fmt/format.h>

#include <algorithm>

#include "sim/csm/trimmed_text.h"

namespace sim {
namespace {

constexpr std::uint16_t kEmpty = 0xFFFF;
constexpr std::uint32_t kBootHandler = 0xF000E6F2;  // real-mode code that is never run here
void SetString(UINT16& segment, UINT16& offset, std::uint32_t pointer) {
  segment = static_cast<UINT16>(pointer >> 16);
  offset = static_cast<UINT16>(pointer & 0xFFFF);
}

}  // namespace

struct Csm::Interfaces {
  struct Bios {
    EFI_LEGACY_BIOS_PROTOCOL protocol{};
    Csm* csm = nullptr;
  } bios;
  struct Extension {
    LEGACY_BIOS_EXT_PROTOCOL protocol{};
    Csm* csm = nullptr;
  } extension;
  struct Region {
    LEGACY_REGION_PROTOCOL protocol{};
    Csm* csm = nullptr;
  } region;
};

struct CsmCalls {
  template <typename Interface, typename Protocol>
  static Csm& From(Protocol* self) {
    return *reinterpret_cast<Interface*>(self)->csm;
  }
  static Csm& Bios(EFI_LEGACY_BIOS_PROTOCOL* self) { return From<Csm::Interfaces::Bios>(self); }

  static EFI_STATUS EFIAPI GetBbsInfo(EFI_LEGACY_BIOS_PROTOCOL* self, UINT16* hddCount, HDD_INFO** hddInfo,
                                      UINT16* bbsCount, BBS_TABLE** table) {
    Csm& csm = Bios(self);
    csm.machine_.Counts().Add("csm.GetBbsInfo");
    if (hddCount == nullptr || hddInfo == nullptr || bbsCount == nullptr || table == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *hddCount = kMaxIdeControllers;
    *hddInfo = csm.hddInfo_;
    *bbsCount = csm.Count();
    *table = csm.table_;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI Shadow(EFI_LEGACY_BIOS_PROTOCOL* self) {
    Csm& csm = Bios(self);
    csm.machine_.Counts().Add("csm.ShadowAllLegacyOproms");
    ++csm.shadowCalls_;
    csm.RunOptionRoms();
    csm.AddDeviceEntries(false);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI LegacyBoot(EFI_LEGACY_BIOS_PROTOCOL* self, BBS_BBS_DEVICE_PATH* path, UINT32, VOID*) {
    return Bios(self).Boot(path);
  }
  static EFI_STATUS EFIAPI PrepareToBootEfi(EFI_LEGACY_BIOS_PROTOCOL* self, UINT16* count, BBS_TABLE** table) {
    if (count == nullptr || table == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *count = Bios(self).Count();
    *table = Bios(self).table_;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI GetLegacyRegion(EFI_LEGACY_BIOS_PROTOCOL* self, UINTN size, UINTN region, UINTN alignment,
                                           VOID** address) {
    const bool power = alignment != 0 && (alignment & (alignment - 1)) == 0;
    if (address == nullptr || size == 0 || !power) {
      return EFI_INVALID_PARAMETER;
    }
    // Region 0: either; 1: the F segment; 2: the E segment (Intel CSM 0.98, 3.3.2).
    if (region > 2) {
      return EFI_INVALID_PARAMETER;
    }
    const auto found = Bios(self).machine_.Legacy().Allocate(size, alignment, LegacyMemory::Area::High);
    *address = reinterpret_cast<void*>(found.value_or(0));
    return found ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
  }
  static EFI_STATUS EFIAPI CopyLegacyRegion(EFI_LEGACY_BIOS_PROTOCOL* self, UINTN size, VOID* address, VOID* source) {
    if (source == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const bool written = Bios(self).machine_.Legacy().Write(reinterpret_cast<std::uintptr_t>(address),
                                                            {static_cast<const std::byte*>(source), size});
    return written ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
  }
  // Real-mode code is not run here.
  static BOOLEAN EFIAPI Int86(EFI_LEGACY_BIOS_PROTOCOL*, UINT8, EFI_IA32_REGISTER_SET*) { return TRUE; }
  static BOOLEAN EFIAPI FarCall86(EFI_LEGACY_BIOS_PROTOCOL*, UINT16, UINT16, EFI_IA32_REGISTER_SET*, VOID*, UINTN) {
    return TRUE;
  }
  static EFI_STATUS EFIAPI CheckPciRom(EFI_LEGACY_BIOS_PROTOCOL*, EFI_HANDLE, VOID**, UINTN*, UINTN*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI InstallPciRom(EFI_LEGACY_BIOS_PROTOCOL*, EFI_HANDLE, VOID**, UINTN*, UINT8*, UINT8*, VOID**,
                                         UINT32*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI UpdateKeyboardLeds(EFI_LEGACY_BIOS_PROTOCOL*, UINT8) { return EFI_SUCCESS; }
  static EFI_STATUS EFIAPI BootUnconventional(EFI_LEGACY_BIOS_PROTOCOL*, UINT32, UINTN, VOID*, VOID*) {
    return EFI_UNSUPPORTED;
  }

  static EFI_STATUS EFIAPI InsertBbsEntry(LEGACY_BIOS_EXT_PROTOCOL* self, BBS_TABLE* entry, UINT8* index) {
    Csm& csm = From<Csm::Interfaces::Extension>(self);
    if (entry == nullptr || index == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const std::size_t place = *index == 0xFF ? csm.FreeIndex(Csm::kFirstFreeIndex) : *index;
    if (place >= Csm::kEntries) {
      return EFI_OUT_OF_RESOURCES;
    }
    if (csm.table_[place].BootPriority != kEmpty) {
      return EFI_ALREADY_STARTED;
    }
    csm.table_[place] = *entry;
    *index = static_cast<UINT8>(place);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI DeleteBbsEntry(LEGACY_BIOS_EXT_PROTOCOL* self, UINT8 index) {
    Csm& csm = From<Csm::Interfaces::Extension>(self);
    if (csm.table_[index].BootPriority == kEmpty) {
      return EFI_NOT_FOUND;
    }
    csm.table_[index].BootPriority = kEmpty;
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI Decode(LEGACY_REGION_PROTOCOL*, UINT32, UINT32, BOOLEAN* on) {
    return on == nullptr ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
  }
  static EFI_STATUS SetLock(LEGACY_REGION_PROTOCOL* self, UINT32 start, UINT32 length, UINT32* granularity,
                            bool writable) {
    if (!LegacyMemory::Contains(start, length)) {
      return EFI_INVALID_PARAMETER;
    }
    if (granularity != nullptr) {
      *granularity = kPageSize;
    }
    From<Csm::Interfaces::Region>(self).machine_.Legacy().SetWritable(start, length, writable);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI Lock(LEGACY_REGION_PROTOCOL* self, UINT32 start, UINT32 length, UINT32* granularity) {
    return SetLock(self, start, length, granularity, false);
  }
  static EFI_STATUS EFIAPI UnLock(LEGACY_REGION_PROTOCOL* self, UINT32 start, UINT32 length, UINT32* granularity) {
    return SetLock(self, start, length, granularity, true);
  }
};

Csm::Csm(Machine& machine, const CsmDescription& description)
    : machine_(machine), description_(description), interfaces_(std::make_unique<Interfaces>()) {
  const auto place = machine_.Legacy().Allocate(kEntries * sizeof(BBS_TABLE), 16, LegacyMemory::Area::Low);
  const auto drives = machine_.Legacy().Allocate(kMaxIdeControllers * sizeof(HDD_INFO), 16, LegacyMemory::Area::Low);
  table_ = reinterpret_cast<BBS_TABLE*>(place.value());
  hddInfo_ = reinterpret_cast<HDD_INFO*>(drives.value());
  for (std::size_t i = 0; i < kEntries; ++i) {
    table_[i].BootPriority = kEmpty;
  }
  using C = CsmCalls;
  interfaces_->bios = {
      {C::Int86, C::FarCall86, C::CheckPciRom, C::InstallPciRom, C::LegacyBoot, C::UpdateKeyboardLeds, C::GetBbsInfo,
       C::Shadow, C::PrepareToBootEfi, C::GetLegacyRegion, C::CopyLegacyRegion, C::BootUnconventional},
      this};
  interfaces_->extension = {{nullptr, nullptr, C::InsertBbsEntry, C::DeleteBbsEntry}, this};
  interfaces_->region = {{C::Decode, C::Lock, C::Lock, C::UnLock}, this};
  // The strings' area is write-protected, as the shadowed option ROMs are.
  EFI_HANDLE handle = nullptr;
  static_cast<void>(machine_.Install(handle, &interfaces_->bios.protocol));
  static_cast<void>(machine_.Install(handle, &interfaces_->extension.protocol));
  static_cast<void>(machine_.Install(handle, &interfaces_->region.protocol));
  for (const BbsEntryDescription& entry : description_.entries) {
    AddDescribed(entry);
  }
}

Csm::~Csm() = default;

std::uint16_t Csm::Count() const {
  for (std::size_t count = kEntries; count > 0; --count) {
    if (table_[count - 1].BootPriority != kEmpty) {
      return static_cast<std::uint16_t>(count);
    }
  }
  return 0;
}

std::uint32_t Csm::PlaceString(const std::string& text) {
  if (text.empty()) {
    return 0;
  }
  std::uint32_t& pointer = strings_[text];
  if (pointer == 0) {
    // 64 bytes at least: firmware rewrites descriptions in place.
    const std::size_t room = std::max<std::size_t>(text.size() + 1, 64);
    const auto address = machine_.Legacy().Allocate(room, 16, LegacyMemory::Area::High);
    if (!address) {
      return 0;
    }
    static_cast<void>(machine_.Legacy().Write(*address, std::as_bytes(std::span(text.c_str(), text.size() + 1))));
    machine_.Legacy().SetWritable(*address, room, false);
    pointer = LegacyMemory::SegmentOffset(static_cast<std::uint32_t>(*address));
  }
  return pointer;
}

std::size_t Csm::FreeIndex(std::size_t from) const {
  while (from < kEntries && table_[from].BootPriority != kEmpty) {
    ++from;
  }
  return from;
}

void Csm::AddDescribed(const BbsEntryDescription& described) {
  const std::size_t index = described.index ? *described.index : FreeIndex(kFirstFreeIndex);
  if (index >= kEntries) {
    return;
  }
  BBS_TABLE entry{};
  UINT16 segment = 0;
  UINT16 offset = 0;
  entry.BootPriority = described.bootPriority;
  entry.Bus = described.bus;
  entry.Device = described.device;
  entry.Function = described.function;
  entry.Class = described.classCode;
  entry.SubClass = described.subClass;
  entry.DeviceType = described.deviceType;
  entry.StatusFlags = described.statusFlags;
  if (described.bootHandler) {
    SetString(segment, offset, kBootHandler);
    entry.BootHandlerSegment = segment;
    entry.BootHandlerOffset = offset;
  }
  entry.AssignedDriveNumber = described.driveNumber;
  SetString(segment, offset, described.descriptionPointer.value_or(PlaceString(described.description)));
  entry.DescStringSegment = segment;
  entry.DescStringOffset = offset;
  SetString(segment, offset, described.manufacturerPointer.value_or(PlaceString(described.manufacturer)));
  entry.MfgStringSegment = segment;
  entry.MfgStringOffset = offset;
  table_[index] = entry;
}

bool Csm::HasHandle(EFI_HANDLE handle) const {
  const auto value = reinterpret_cast<std::uint64_t>(handle);
  return std::any_of(table_, table_ + kEntries, [value](const BBS_TABLE& entry) {
    return entry.BootPriority != kEmpty && (std::uint64_t{entry.IBV2} << 32 | entry.IBV1) == value;
  });
}

EFI_STATUS Csm::Boot(const BBS_BBS_DEVICE_PATH* path) {
  machine_.Counts().Add("csm.LegacyBoot");
  int index = -1;
  for (std::size_t i = 0; i < kEntries && index < 0; ++i) {
    index = table_[i].BootPriority == 0 ? static_cast<int>(i) : -1;
  }
  // Kept by this object at once: what lies on the stack is abandoned when the boot ends below.
  attempts_.push_back({index,
                       index < 0 ? std::string("no entry of priority 0") : Describe(static_cast<std::size_t>(index)),
                       index < 0 ? EFI_NOT_FOUND : bootStatus});
  if (onAttempt) {
    onAttempt();
  }
  const Attempt& attempt = attempts_.back();
  if (EFI_ERROR(attempt.status)) {
    return attempt.status;
  }
  machine_.Events().SignalGroup(gEfiEventLegacyBootGuid);
  BootOutcome outcome;
  outcome.end = BootEnd::LegacyBoot;
  outcome.text = attempt.text;
  outcome.path = DevicePath::Copy(path == nullptr ? nullptr : &path->Header);
  outcome.bbsEntry = table_[index];
  outcome.bbsIndex = index;
  machine_.EndBoot(std::move(outcome));
}

std::string Csm::Describe(std::size_t index) const {
  const BBS_TABLE& entry = table_[index];
  const auto text = machine_.Legacy().Text(LegacyMemory::Linear(entry.DescStringSegment, entry.DescStringOffset), 64);
  return fmt::format("BBS entry {} (type {}, {})", index, UINT16{entry.DeviceType},
                     text && !text->empty() ? Trimmed(*text) : "no description");
}

}  // namespace sim

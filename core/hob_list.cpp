// The list has no size of its own: each block's length leads to the next, and bounds keep a broken list from leading
// anywhere.
#include "core/hob_list.h"

namespace bds {
namespace {

constexpr UINTN kMaxHobListSize = 0x1000000;  // more than any platform's temporary memory

const std::byte* At(const void* list, UINTN offset) { return static_cast<const std::byte*>(list) + offset; }

}  // namespace

bool ReadBootMode(const void* hobList, EFI_BOOT_MODE& mode) {
  if (hobList == nullptr) {
    return false;
  }
  const auto header = LoadUnaligned<EFI_HOB_GENERIC_HEADER>(hobList);
  if (header.HobType != EFI_HOB_TYPE_HANDOFF || header.HobLength < sizeof(EFI_HOB_HANDOFF_INFO_TABLE)) {
    return false;
  }
  mode = LoadUnaligned<EFI_HOB_HANDOFF_INFO_TABLE>(hobList).BootMode;
  return true;
}

bool FindGuidHob(const void* hobList, const EFI_GUID& name, Bytes& data) {
  if (hobList == nullptr) {
    return false;
  }
  for (UINTN offset = 0; offset < kMaxHobListSize;) {
    const auto header = LoadUnaligned<EFI_HOB_GENERIC_HEADER>(At(hobList, offset));
    if (header.HobType == EFI_HOB_TYPE_END_OF_HOB_LIST || header.HobLength < sizeof(header)) {
      return false;
    }
    if (header.HobType == EFI_HOB_TYPE_GUID_EXTENSION && header.HobLength >= sizeof(EFI_HOB_GUID_TYPE) &&
        EqualMemory(At(hobList, offset + offsetof(EFI_HOB_GUID_TYPE, Name)), &name, sizeof(name))) {
      data = {At(hobList, offset + sizeof(EFI_HOB_GUID_TYPE)), header.HobLength - sizeof(EFI_HOB_GUID_TYPE)};
      return true;
    }
    offset += header.HobLength;
  }
  return false;
}

}  // namespace bds

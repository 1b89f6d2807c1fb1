#include "bootopt/orphan_mask.h"

#include "bootopt/file_path_builders.h"
#include "bootopt/steps.h"
#include "support/device_path.h"

namespace bds {
namespace {

#pragma pack(push, 1)
struct OrphanMask {
  VENDOR_DEVICE_PATH Vendor;
  DevicePath End;
};
#pragma pack(pop)
static_assert(sizeof(OrphanMask) == kOrphanMaskSize);

constexpr OrphanMask kOrphanMask{{NodeHeader<VENDOR_DEVICE_PATH>(HARDWARE_DEVICE_PATH, HW_VENDOR_DP), kOrphanMaskGuid},
                                 kEndEntireNode};

Bytes PathBytes(const BOOT_OPTION& option) {
  return {reinterpret_cast<const std::byte*>(option.FilePathList.get()),
          option.FilePathList ? option.FilePathListLength : 0};
}

}  // namespace

bool HasOrphanMask(Bytes filePathList) {
  return filePathList.size() >= sizeof(VENDOR_DEVICE_PATH) &&
         IsVendorNode(reinterpret_cast<const DevicePath*>(filePathList.data()), HARDWARE_DEVICE_PATH, HW_VENDOR_DP,
                      kOrphanMaskGuid);
}

Bytes BehindOrphanMask(Bytes filePathList) {
  if (!HasOrphanMask(filePathList)) {
    return filePathList;
  }
  const UINTN maskSize = DevicePathSize(filePathList);
  return maskSize != 0 && maskSize < filePathList.size() ? filePathList.subspan(maskSize) : filePathList;
}

void PutOrphanMask(BOOT_OPTION& option) {
  const Bytes path = PathBytes(option);
  const UINTN length = kOrphanMaskSize + path.size();
  if (length > kMaxFilePathListLength) {
    return;
  }
  PoolPtr<DevicePath> masked(static_cast<DevicePath*>(AllocatePool(length)));
  if (!masked) {
    return;
  }
  ByteWriter writer({reinterpret_cast<std::byte*>(masked.get()), length});
  writer.Write(kOrphanMask);
  writer.WriteBytes(path);
  option.FilePathList = std::move(masked);
  option.FilePathListLength = length;
}

void RemoveOrphanMask(BOOT_OPTION& option) {
  const Bytes path = PathBytes(option);
  const Bytes unmasked = BehindOrphanMask(path);
  // Moved to the front of its own block: that cannot fail, and a masked option would match nothing.
  CopyMemory(option.FilePathList.get(), unmasked.data(), unmasked.size());
  option.FilePathListLength = unmasked.size();
}

void UnmaskOrphanDevices() {
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (!HasOrphanMask(PathBytes(*option))) {
      continue;
    }
    RemoveOrphanMask(*option);
    if (!IsLegacyOption(*option)) {
      option->Attributes &= ~LOAD_OPTION_HIDDEN;
    }
  }
}

// Comes last before saving, since a masked path matches nothing.
void MaskOrphanDevices() {
  SortList(BootOptionList, CompareByPriority);
  BOOT_OPTION* pendingHeader = nullptr;  // a group header of which no present member was seen yet
  for (BOOT_OPTION* option = BootOptionList.First; option != nullptr; option = option->Next) {
    if (!IsLegacyOption(*option)) {
      continue;
    }
    if (option->GroupHeader != FALSE) {
      if (pendingHeader != nullptr) {
        PutOrphanMask(*pendingHeader);
      }
      pendingHeader = option;
    } else if (IsOrphan(*option)) {
      PutOrphanMask(*option);
    } else if (pendingHeader != nullptr && option->BootOptionNumber == pendingHeader->BootOptionNumber) {
      pendingHeader = nullptr;
    }
  }
  if (pendingHeader != nullptr) {
    PutOrphanMask(*pendingHeader);
  }
}

}  // namespace bds

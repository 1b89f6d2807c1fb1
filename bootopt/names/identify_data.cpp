#include "bootopt/names/identify_data.h"

#include "platform/disk_info.h"
#include "support/protocols.h"

namespace bds {

PoolPtr<UINT8> ReadIdentifyData(EFI_HANDLE handle) {
  auto* diskInfo = HandleProtocol<EFI_DISK_INFO_PROTOCOL>(handle);
  auto data = diskInfo != nullptr ? AllocateArray<UINT8>(kIdentifySize) : nullptr;
  if (!data) {
    return nullptr;
  }
  UINT32 size = kIdentifySize;
  if (EFI_ERROR(diskInfo->Identify(diskInfo, data.get(), &size)) || size != kIdentifySize) {
    return nullptr;
  }
  return data;
}

}  // namespace bds

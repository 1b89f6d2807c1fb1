#include "bootopt/unloaded_options.h"

#include "bootopt/boot_lists.h"
#include "support/byte_reader.h"
#include "support/variables.h"

namespace bds {

EFI_STATUS PrepareUnloadedOptions(UINTN count) {
  ForgetUnloadedOptions();
  gBootOptions.Unloaded.Entries = AllocateArray<UNLOADED_OPTION>(count);
  return gBootOptions.Unloaded.Entries ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
}

void AddUnloadedOption(UINT16 number, UINT32 priority) {
  gBootOptions.Unloaded.Entries[gBootOptions.Unloaded.Count++] = {number, priority};
}

bool IsUnloadedOption(UINT16 number) {
  const UNLOADED_OPTIONS& unloaded = gBootOptions.Unloaded;
  for (UINTN i = 0; i < unloaded.Count; ++i) {
    if (unloaded.Entries[i].Number == number) {
      return true;
    }
  }
  return false;
}

EFI_STATUS ReloadUnreadOrder() {
  if (!gBootOptions.Unloaded.OrderUnread) {
    return EFI_SUCCESS;
  }
  PoolBuffer order;
  EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order);
  if (EFI_ERROR(status)) {
    return status == EFI_NOT_FOUND ? EFI_SUCCESS : status;
  }
  status = PrepareUnloadedOptions(order.Size / sizeof(UINT16));
  if (EFI_ERROR(status)) {
    return status;
  }
  ByteReader numbers(order.Bytes());
  for (UINT16 number = 0; numbers.Read(number);) {
    AddUnloadedOption(number, 0);
  }
  return EFI_SUCCESS;
}

void ForgetUnloadedOptions() {
  gBootOptions.Unloaded.Entries.reset();
  gBootOptions.Unloaded.Count = 0;
  gBootOptions.Unloaded.OrderUnread = false;
}

}  // namespace bds

#include "osopt/stored_order.h"

#include "bootopt/load_option.h"
#include "bootopt/orphan_mask.h"
#include "support/number_set.h"

namespace bds {

EFI_STATUS StoredOrder::Load() {
  PoolBuffer order;
  if (const EFI_STATUS status = ReadVariable(u"BootOrder", gEfiGlobalVariableGuid, order); EFI_ERROR(status)) {
    return status;
  }
  NumberSet seen;
  if (!seen) {
    return EFI_OUT_OF_RESOURCES;
  }
  ByteReader numbers(order.Bytes());
  for (UINT16 number = 0; numbers.Read(number);) {
    if (!seen.Insert(number)) {
      continue;
    }
    if (const EFI_STATUS status = Add(number); EFI_ERROR(status)) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

EFI_STATUS StoredOrder::Add(UINT16 number) {
  BootVariableReader variable;
  const EFI_STATUS status = variable.Read(number);
  if (status == EFI_NOT_FOUND) {
    return EFI_SUCCESS;
  }
  ORDER_PLACE* place = AppendNew(places_);
  if (place == nullptr) {
    return EFI_OUT_OF_RESOURCES;
  }
  STORED_OPTION& option = place->Option;
  option.Number = number;
  option.Variable = std::move(variable);
  LoadOptionView view;
  if (!EFI_ERROR(status) && ViewLoadOption(option.Variable.Image(), view)) {
    option.Description = view.Description;
    option.Path = BehindOrphanMask(view.FilePathList);
    option.OptionalData = view.OptionalData;
  }
  return EFI_SUCCESS;
}

}  // namespace bds

// BootOrder with the options that it lists, as they lie in NVRAM.
#pragma once

#include "bootopt/boot_variable_reader.h"
#include "support/linked_list.h"

namespace bds {

// One option of the order. The views point into its variable's bytes, which move along with it.
struct STORED_OPTION {
  UINT16 Number = 0;
  BootVariableReader Variable;
  Bytes Description;   // with its NUL
  Bytes Path;          // behind the mask of an absent device; empty when the option cannot be read or is malformed
  Bytes OptionalData;  // markers included
};

struct ORDER_PLACE {
  ORDER_PLACE* Next = nullptr;
  ORDER_PLACE* Previous = nullptr;
  STORED_OPTION Option;
  bool Processed = false;  // it was decided what becomes of it
};

// The places of BootOrder. A number whose variable does not exist has none, and a number that is listed again counts
// once: its second place would be taken for a second option. One that exists and cannot be read keeps its place.
class StoredOrder {
 public:
  StoredOrder() = default;
  StoredOrder(const StoredOrder&) = delete;
  ~StoredOrder() { RemoveAll(places_); }

  // The status of reading BootOrder; EFI_OUT_OF_RESOURCES when the pool is exhausted.
  [[nodiscard]] EFI_STATUS Load();
  [[nodiscard]] ORDER_PLACE* First() const { return places_.First; }
  [[nodiscard]] UINTN Count() const { return places_.Count; }

 private:
  [[nodiscard]] EFI_STATUS Add(UINT16 number);

  LIST_HEADER<ORDER_PLACE> places_;
};

}  // namespace bds

// One value of the policy put where its layout says.
#pragma once

#include "flexboot/policy_format.h"

namespace bds {

// Copies a text into a field of that size: cut to what fits, with a NUL behind it and zeros to the field's end.
void StoreText(void* field, UINTN size, const char* text);

// Converts the value as the row says and stores it in the entry with its present flag, unless it counts as not given.
// extractor names the reader in messages.
void StoreValue(const LayoutField& row, const char* value, const char* extractor, FLEXBOOT_TARGET& entry);

}  // namespace bds

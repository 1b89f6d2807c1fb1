// Copies, fills and compares of raw memory; they compile to the processor's own or the compiler's routines.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

inline void CopyMemory(void* destination, const void* source, UINTN size) {
  if (size != 0) {
    __builtin_memmove(destination, source, size);
  }
}
inline void ZeroMemory(void* destination, UINTN size) { __builtin_memset(destination, 0, size); }
inline bool EqualMemory(const void* a, const void* b, UINTN size) {
  return size == 0 || __builtin_memcmp(a, b, size) == 0;
}

// A T read from, or written to, a place that need not be aligned.
template <typename T>
T LoadUnaligned(const void* source) {
  T value;
  __builtin_memcpy(&value, source, sizeof(T));
  return value;
}
template <typename T>
void StoreUnaligned(void* destination, const T& value) {
  __builtin_memcpy(destination, &value, sizeof(T));
}

}  // namespace bds

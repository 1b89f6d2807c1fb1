// The four memory routines that a compiler may call on its own, for the EFI image, which has no C library. String
// instructions do the work: a plain loop could be compiled back into a call of the routine that holds it.
#include <cstddef>
#include <cstdint>

extern "C" {

void* memcpy(void* destination, const void* source, std::size_t size) {
  void* to = destination;
  asm volatile("rep movsb" : "+D"(to), "+S"(source), "+c"(size) : : "memory");
  return destination;
}

// Overlap matters only when the destination begins inside the source; then the copy runs from the end down. The
// direction flag is clear outside of this routine, as the calling convention demands.
void* memmove(void* destination, const void* source, std::size_t size) {
  const auto distance = reinterpret_cast<std::uintptr_t>(destination) - reinterpret_cast<std::uintptr_t>(source);
  if (distance >= size) {
    return memcpy(destination, source, size);
  }
  auto* to = static_cast<unsigned char*>(destination) + size - 1;
  const auto* from = static_cast<const unsigned char*>(source) + size - 1;
  asm volatile("std\n\trep movsb\n\tcld" : "+D"(to), "+S"(from), "+c"(size) : : "memory", "cc");
  return destination;
}

void* memset(void* destination, int value, std::size_t size) {
  void* to = destination;
  asm volatile("rep stosb" : "+D"(to), "+c"(size) : "a"(value) : "memory");
  return destination;
}

// The bytes are volatile so that the loop stays a loop.
int memcmp(const void* left, const void* right, std::size_t size) {
  const auto* a = static_cast<const volatile unsigned char*>(left);
  const auto* b = static_cast<const volatile unsigned char*>(right);
  for (std::size_t i = 0; i < size; ++i) {
    const int difference = a[i] - b[i];
    if (difference != 0) {
      return difference;
    }
  }
  return 0;
}

}  // extern "C"

// Memory at fixed addresses. Handles and events lie below 4 GiB, as on real machines, where software keeps them in 32
// bits; they are tokens in an arena of their own and are checked by address, never by looking behind the pointer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sim {

// A range mapped once per process at its true address and handed from machine to machine, zeroed in between. All
// ranges lie in the low part of the address space that AddressSanitizer leaves to the application.
class FixedRange {
 public:
  // Maps the range, or throws std::runtime_error naming it when something else is there.
  FixedRange(std::uintptr_t base, std::size_t size);

  std::uintptr_t base() const { return base_; }
  std::size_t size() const { return size_; }
  bool Contains(std::uintptr_t address, std::size_t length = 1) const {
    return address >= base_ && length <= size_ && address - base_ <= size_ - length;
  }
  // All bytes zero and writable again, pages given back.
  void Reset();

 private:
  std::uintptr_t base_;
  std::size_t size_;
};

// Gives out 16-byte tokens. A token is never used twice within a boot, so that a stale handle is always noticed.
class LowArena {
 public:
  static constexpr std::uintptr_t kBase = 0x20000000;
  static constexpr std::size_t kSize = 64 * 1024 * 1024;
  static constexpr std::size_t kTokenSize = 16;
  static constexpr std::size_t kNone = ~std::size_t{0};

  LowArena();

  // A fresh token; its number is the count of those before it. Throws std::bad_alloc when all are used up.
  void* Allocate();
  // The number of a token, or kNone for any other pointer.
  std::size_t IndexOf(const void* token) const;
  std::size_t Count() const { return count_; }
  bool Full() const { return (count_ + 2) * kTokenSize > kSize; }

 private:
  FixedRange& range_;
  std::size_t count_ = 0;
};

}  // namespace sim

// Boot-services pool memory with one visible owner. Nothing outside this file frees pool memory.
#pragma once

#include <cstddef>
#include <span>
#include <type_traits>
#include <utility>

#include "platform/uefi_base.h"

namespace bds {

// A block of boot-services data, or null when the pool is exhausted. Size 0 yields a block too.
[[nodiscard]] void* AllocatePool(UINTN size);
// The same, zeroed.
[[nodiscard]] void* AllocateZeroPool(UINTN size);
// A copy of size bytes at source, or null.
[[nodiscard]] void* AllocateCopyPool(UINTN size, const void* source);
// Gives a block back; null is allowed.
void FreePool(void* block);

// Tells whether pool memory ran out since the watch was made, wherever in the driver: what was made meanwhile may lack
// a part that a reader with enough memory would have found.
class PoolWatch {
 public:
  PoolWatch();
  // A watch over the whole boot so far.
  [[nodiscard]] static PoolWatch SinceEntry() { return PoolWatch{0}; }
  [[nodiscard]] bool Exhausted() const;

 private:
  explicit PoolWatch(UINTN before) : before_(before) {}

  UINTN before_;
};
// Passes on the status of a service that allocates for its caller: its EFI_OUT_OF_RESOURCES counts as well.
EFI_STATUS WatchedStatus(EFI_STATUS status);

// Move-only owner of one pool block that holds plain data (a record, a string, a device path, an array).
template <typename T>
class PoolPtr {
  static_assert(std::is_trivially_destructible_v<T>, "pool blocks are freed, not destroyed");

 public:
  constexpr PoolPtr() = default;
  constexpr PoolPtr(std::nullptr_t) {}  // NOLINT: null converts
  explicit PoolPtr(T* block) : block_(block) {}
  PoolPtr(PoolPtr&& other) noexcept : block_(other.release()) {}
  PoolPtr& operator=(PoolPtr&& other) noexcept {
    reset(other.release());
    return *this;
  }
  PoolPtr(const PoolPtr&) = delete;
  PoolPtr& operator=(const PoolPtr&) = delete;
  ~PoolPtr() { reset(); }

  T* get() const { return block_; }
  T* operator->() const { return block_; }
  T& operator*() const { return *block_; }
  T& operator[](UINTN index) const { return block_[index]; }
  explicit operator bool() const { return block_ != nullptr; }

  // Hands the block over to the caller.
  [[nodiscard]] T* release() { return std::exchange(block_, nullptr); }
  // Frees the block held and takes another.
  void reset(T* block = nullptr) {
    T* old = std::exchange(block_, block);
    if (old != nullptr) {
      FreePool(const_cast<std::remove_const_t<T>*>(old));
    }
  }
  // For services that return a pool block through an out parameter: frees what is held first.
  T** put() {
    reset();
    return &block_;
  }

 private:
  T* block_ = nullptr;
};

// Room for count records of T, not initialised; null when the pool is exhausted.
template <typename T>
[[nodiscard]] PoolPtr<T> AllocateArray(UINTN count) {
  if (count > (~UINTN{0}) / sizeof(T)) {
    return nullptr;
  }
  return PoolPtr<T>(static_cast<T*>(AllocatePool(count * sizeof(T))));
}

// A block that a state record holds until the boot ends. It has no destructor: a record that is never destroyed needs
// no code before the entry point or behind the end of the program.
template <typename T>
class KeptPtr {
 public:
  constexpr KeptPtr() = default;
  KeptPtr(const KeptPtr&) = delete;
  KeptPtr& operator=(const KeptPtr&) = delete;
  // Frees the block held and takes the other's.
  KeptPtr& operator=(PoolPtr<T>&& other) {
    reset(other.release());
    return *this;
  }

  T* get() const { return block_; }
  T& operator[](UINTN index) const { return block_[index]; }
  explicit operator bool() const { return block_ != nullptr; }
  void reset(T* block = nullptr) { PoolPtr<T>(std::exchange(block_, block)); }

 private:
  T* block_ = nullptr;
};

// Owned bytes and how many they are.
struct PoolBuffer {
  PoolPtr<std::byte> Data;
  UINTN Size = 0;

  std::span<const std::byte> Bytes() const { return {Data.get(), Data ? Size : 0}; }
  void Clear() {
    Data.reset();
    Size = 0;
  }
};

// A copy of the bytes; Data is null when there are none or the pool is exhausted.
[[nodiscard]] PoolBuffer CopyBytes(std::span<const std::byte> bytes);

}  // namespace bds

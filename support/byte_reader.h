// Bounded reading and writing of bytes from outside: every length is checked before it is used.
#pragma once

#include <cstddef>
#include <span>
#include <type_traits>

#include "support/memory.h"

namespace bds {

using Bytes = std::span<const std::byte>;

// Walks over bytes from front to back. A read that would pass the end fails and moves nothing.
class ByteReader {
 public:
  explicit ByteReader(Bytes bytes) : bytes_(bytes) {}

  UINTN Position() const { return position_; }
  UINTN Remaining() const { return bytes_.size() - position_; }
  Bytes Rest() const { return bytes_.subspan(position_); }

  // Little-endian integer or packed record at the position.
  template <typename T>
  [[nodiscard]] bool Read(T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (Remaining() < sizeof(T)) {
      return false;
    }
    value = LoadUnaligned<T>(bytes_.data() + position_);
    position_ += sizeof(T);
    return true;
  }
  // The next count bytes, in place.
  [[nodiscard]] bool Take(UINTN count, Bytes& taken) {
    if (Remaining() < count) {
      return false;
    }
    taken = bytes_.subspan(position_, count);
    position_ += count;
    return true;
  }
  [[nodiscard]] bool Skip(UINTN count) {
    Bytes ignored;
    return Take(count, ignored);
  }
  // True, and moved past it, when the next bytes are exactly these.
  [[nodiscard]] bool SkipIfEqual(Bytes expected) {
    if (Remaining() < expected.size() || !EqualMemory(Rest().data(), expected.data(), expected.size())) {
      return false;
    }
    position_ += expected.size();
    return true;
  }

 private:
  Bytes bytes_;
  UINTN position_ = 0;
};

// Fills a buffer from front to back. A write that would pass the end fails, writes nothing and marks the writer.
class ByteWriter {
 public:
  explicit ByteWriter(std::span<std::byte> bytes) : bytes_(bytes) {}

  UINTN Position() const { return position_; }
  bool Overflowed() const { return overflowed_; }

  template <typename T>
  void Write(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    WriteBytes(&value, sizeof(T));
  }
  void WriteBytes(const void* source, UINTN size) {
    if (bytes_.size() - position_ < size) {
      overflowed_ = true;
      return;
    }
    CopyMemory(bytes_.data() + position_, source, size);
    position_ += size;
  }
  void WriteBytes(Bytes source) { WriteBytes(source.data(), source.size()); }

 private:
  std::span<std::byte> bytes_;
  UINTN position_ = 0;
  bool overflowed_ = false;
};

template <typename T>
Bytes AsBytes(const T& value) {
  return {reinterpret_cast<const std::byte*>(&value), sizeof(T)};
}

}  // namespace bds

// A set of 16-bit numbers: which option numbers a walk has met.
#pragma once

#include "support/pool.h"

namespace bds {

class NumberSet {
 public:
  // Empty; false in a condition when the pool is exhausted, and then no number is ever new.
  NumberSet() : bits_(static_cast<UINT8*>(AllocateZeroPool(0x10000 / 8))) {}
  explicit operator bool() const { return static_cast<bool>(bits_); }

  // True when the number was not in the set yet.
  [[nodiscard]] bool Insert(UINT16 number) {
    const UINT8 bit = static_cast<UINT8>(1U << (number % 8));
    if (!bits_ || (bits_[number / 8] & bit) != 0) {
      return false;
    }
    bits_[number / 8] |= bit;
    return true;
  }

  [[nodiscard]] bool Contains(UINT16 number) const { return bits_ && (bits_[number / 8] >> (number % 8) & 1) != 0; }

 private:
  PoolPtr<UINT8> bits_;
};

}  // namespace bds

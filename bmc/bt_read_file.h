// A whole file of the BMC's file store in one buffer.
#pragma once

#include "support/pool.h"

namespace bds {

inline constexpr UINTN kMaxBtFileSize = 65'536;

enum class BmcFile : UINT8 {
  Present,
  Missing,  // the BMC has no such file, or one that is longer than kMaxBtFileSize
  Unknown,  // a BMC that was not heard, one that denied a piece, a held lock, an exhausted pool: nothing can be said
};

// Reads the whole file. When it is present, file holds its bytes in a new buffer (with a size of 0 for an empty file);
// otherwise nothing.
[[nodiscard]] BmcFile BtReadBootVariableFile(const char* name, PoolBuffer& file);

}  // namespace bds

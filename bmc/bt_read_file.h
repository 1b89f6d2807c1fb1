// A whole file of the BMC's file store in one buffer.
#pragma once

#include "support/pool.h"

namespace bds {

inline constexpr UINTN kMaxBtFileSize = 65'536;

// The file's bytes and their number (0 for an empty file). Null, and a size of no meaning, when the file cannot be
// opened, a piece cannot be read, it is longer than kMaxBtFileSize or the pool is exhausted. heard, when asked for,
// is false when that came of a BMC that did not answer (or of a held lock) and so says nothing about the file.
[[nodiscard]] PoolPtr<std::byte> BtReadBootVariableFile(const char* name, UINTN& size, bool* heard = nullptr);

}  // namespace bds

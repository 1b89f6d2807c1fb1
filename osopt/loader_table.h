// The operating systems' loaders that the driver knows: where each lies on its volume and how its option is called.
#pragma once

#include <span>

#include "platform/uefi_base.h"
#include "support/byte_reader.h"

namespace bds {

// What a volume was found to hold. Bits; several may be set.
inline constexpr UINT8 kHoldsSles = 0x01;
inline constexpr UINT8 kHoldsUbuntu = 0x02;
inline constexpr UINT8 kHoldsRhel = 0x04;
inline constexpr UINT8 kHoldsCentos = 0x08;
inline constexpr UINT8 kHoldsWindows = 0x10;

struct OS_LOADER {
  const CHAR16* Path;          // from the volume's root
  const CHAR16* Description;   // of the option
  UINT8 Holds = 0;             // what its volume holds when the file is there
  const char* Said = nullptr;  // the word that the log then sets TRUE
  UINT8 DuplicateOf = 0;       // the file is there, but is a copy of what one of these starts already
  UINT8 NotBeside = 0;         // the file is not even looked for beside one of these
  bool AsInstalled = false;    // the system's installer may write the very option that the driver makes
};

// In the order in which a volume is searched: a loader comes before those that it makes superfluous.
[[nodiscard]] std::span<const OS_LOADER> OsLoaders();

// The loader for which the driver makes an option of this name and path, both to their ends; null: there is none.
[[nodiscard]] const OS_LOADER* FindOsLoader(Bytes description, Bytes path);

}  // namespace bds

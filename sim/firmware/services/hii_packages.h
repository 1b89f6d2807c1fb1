// HII package lists (UEFI 2.10, 33.3) read from untrusted bytes: string packages into texts by identifier, all other
// packages kept as they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/hii_package_list.h"

namespace sim {

struct HiiStringPackage {
  std::string language;            // RFC 4646, e.g. "en-US"
  std::uint16_t languageName = 0;  // string id of the language's own name
  std::map<std::uint16_t, std::u16string> strings;
  std::uint16_t nextId = 1;  // one above the highest id that the package accounts for
};

struct HiiRawPackage {
  std::uint8_t type = 0;
  std::vector<std::byte> bytes;  // with the package header
};

struct HiiPackageList {
  EFI_GUID guid{};
  std::vector<HiiStringPackage> strings;
  std::vector<HiiRawPackage> others;

  // The list in its binary form again, for ExportPackageLists: strings one block each, then the other packages.
  std::vector<std::byte> Encode() const;
};

struct HiiError {
  EFI_STATUS status = EFI_SUCCESS;  // EFI_INVALID_PARAMETER when malformed, EFI_UNSUPPORTED for font blocks
  std::string text;
};

// Nothing with the error set when a length lies, a package or a string runs past its end, the end package is missing,
// a duplicate names an unknown string, or an identifier passes 0xFFFF.
std::optional<HiiPackageList> ReadHiiPackageList(std::span<const std::byte> bytes, HiiError& error);

// The size that a list's header claims, read before anything else is known about it; 0 when it is not even a header.
std::uint32_t HiiPackageListSize(const EFI_HII_PACKAGE_LIST_HEADER* list);

}  // namespace sim

// The HII database and HII string protocols (UEFI 2.10, 34.3 and 34.8) of one machine. String packages are understood;
// all other packages are kept, listed and exported. Keyboard layouts and package notifications are not modelled and
// answer EFI_UNSUPPORTED.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/hii_database.h"
#include "platform/hii_string.h"
#include "sim/firmware/services/hii_packages.h"

namespace sim {

class HiiDatabase {
 public:
  HiiDatabase();
  HiiDatabase(const HiiDatabase&) = delete;
  HiiDatabase& operator=(const HiiDatabase&) = delete;

  EFI_HII_DATABASE_PROTOCOL* Database() { return &database_.protocol; }
  EFI_HII_STRING_PROTOCOL* Strings() { return &strings_.protocol; }

  // What the two protocols do, in the simulator's own types.
  EFI_STATUS Add(HiiPackageList list, EFI_HANDLE driver, EFI_HII_HANDLE& handle);
  EFI_STATUS Remove(EFI_HII_HANDLE handle);
  // The text of a string in that language, or in a language that it is a variant of (RFC 4647 lookup). EFI_NOT_FOUND
  // for an unknown handle or identifier, EFI_INVALID_LANGUAGE when only other languages have it.
  EFI_STATUS Find(EFI_HII_HANDLE handle, std::string_view language, std::uint16_t id, std::u16string& text) const;
  std::size_t Count() const { return lists_.size(); }
  // Why the last package list was refused.
  const std::string& Error() const { return error_; }

 private:
  struct Entry {
    HiiPackageList list;
    EFI_HANDLE driver = nullptr;
  };
  // Each interface is followed by the way back to its database; callers see only the interface.
  struct DatabaseInterface {
    EFI_HII_DATABASE_PROTOCOL protocol;
    HiiDatabase* self;
  };
  struct StringInterface {
    EFI_HII_STRING_PROTOCOL protocol;
    HiiDatabase* self;
  };
  struct Calls;

  Entry* EntryOf(EFI_HII_HANDLE handle);
  const Entry* EntryOf(EFI_HII_HANDLE handle) const;

  DatabaseInterface database_;
  StringInterface strings_;
  std::map<EFI_HII_HANDLE, Entry> lists_;
  std::uintptr_t nextHandle_;
  std::string error_;
};

}  // namespace sim

// The HII protocols' calls: pointer arguments checked as the standard orders, then the work on plain types.
#include "sim/firmware/services/hii_database.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include "sim/firmware/services/copy_out.h"

namespace sim {
namespace {

// Handles are numbers that are never looked behind, below 4 GiB like every handle of this machine.
constexpr std::uintptr_t kFirstHandle = 0x48490010;
constexpr std::uintptr_t kHandleStep = 0x10;

bool SameLanguage(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

template <typename List>
auto PackageOf(List& list, std::string_view language) {
  return std::find_if(list.strings.begin(), list.strings.end(),
                      [&](const HiiStringPackage& each) { return SameLanguage(each.language, language); });
}

// "en-US-x" becomes "en-US", then "en", then nothing.
std::string_view ShorterLanguage(std::string_view language) {
  const std::size_t dash = language.rfind('-');
  return dash == std::string_view::npos ? std::string_view() : language.substr(0, dash);
}

template <typename Character>
std::size_t TextBytes(const std::basic_string<Character>& text) {
  return (text.size() + 1) * sizeof(Character);
}

bool Holds(const HiiPackageList& list, std::uint8_t type, const EFI_GUID* guid) {
  if (type == EFI_HII_PACKAGE_TYPE_ALL) {
    return true;
  }
  if (type == EFI_HII_PACKAGE_STRINGS) {
    return !list.strings.empty();
  }
  return std::any_of(list.others.begin(), list.others.end(), [&](const HiiRawPackage& each) {
    constexpr std::size_t kGuidAt = sizeof(EFI_HII_PACKAGE_HEADER);
    return each.type == type && (type != EFI_HII_PACKAGE_TYPE_GUID || guid == nullptr ||
                                 (each.bytes.size() >= kGuidAt + sizeof(EFI_GUID) &&
                                  std::memcmp(each.bytes.data() + kGuidAt, guid, sizeof(EFI_GUID)) == 0));
  });
}

}  // namespace

HiiDatabase::Entry* HiiDatabase::EntryOf(EFI_HII_HANDLE handle) {
  const auto found = lists_.find(handle);
  return found != lists_.end() ? &found->second : nullptr;
}
const HiiDatabase::Entry* HiiDatabase::EntryOf(EFI_HII_HANDLE handle) const {
  const auto found = lists_.find(handle);
  return found != lists_.end() ? &found->second : nullptr;
}

EFI_STATUS HiiDatabase::Add(HiiPackageList list, EFI_HANDLE driver, EFI_HII_HANDLE& handle) {
  handle = reinterpret_cast<EFI_HII_HANDLE>(nextHandle_);
  nextHandle_ += kHandleStep;
  lists_[handle] = {std::move(list), driver};
  return EFI_SUCCESS;
}

EFI_STATUS HiiDatabase::Remove(EFI_HII_HANDLE handle) {
  return lists_.erase(handle) != 0 ? EFI_SUCCESS : EFI_NOT_FOUND;
}

EFI_STATUS HiiDatabase::Find(EFI_HII_HANDLE handle, std::string_view language, std::uint16_t id,
                             std::u16string& text) const {
  const Entry* entry = EntryOf(handle);
  if (entry == nullptr) {
    return EFI_NOT_FOUND;
  }
  for (; !language.empty(); language = ShorterLanguage(language)) {
    const auto package = PackageOf(entry->list, language);
    if (package == entry->list.strings.end()) {
      continue;
    }
    if (const auto found = package->strings.find(id); found != package->strings.end()) {
      text = found->second;
      return EFI_SUCCESS;
    }
  }
  const bool elsewhere = std::any_of(entry->list.strings.begin(), entry->list.strings.end(),
                                     [id](const HiiStringPackage& each) { return each.strings.contains(id); });
  return elsewhere ? EFI_INVALID_LANGUAGE : EFI_NOT_FOUND;
}

struct HiiDatabase::Calls {
  static HiiDatabase& Of(const EFI_HII_DATABASE_PROTOCOL* interface) {
    return *reinterpret_cast<const DatabaseInterface*>(interface)->self;
  }
  static HiiDatabase& Of(const EFI_HII_STRING_PROTOCOL* interface) {
    return *reinterpret_cast<const StringInterface*>(interface)->self;
  }

  // The header says how much memory the list takes; the reader then stays within that.
  static EFI_STATUS ReadList(HiiDatabase& self, const EFI_HII_PACKAGE_LIST_HEADER* packages, HiiPackageList& list) {
    const std::uint32_t size = HiiPackageListSize(packages);
    HiiError error{EFI_INVALID_PARAMETER, "the package list's length is wrong"};
    auto read =
        size == 0 ? std::nullopt : ReadHiiPackageList({reinterpret_cast<const std::byte*>(packages), size}, error);
    if (!read) {
      self.error_ = error.text;
      return error.status;
    }
    list = std::move(*read);
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI NewPackageList(const EFI_HII_DATABASE_PROTOCOL* interface,
                                          const EFI_HII_PACKAGE_LIST_HEADER* packages, EFI_HANDLE driver,
                                          EFI_HII_HANDLE* handle) {
    if (interface == nullptr || packages == nullptr || handle == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    HiiDatabase& self = Of(interface);
    HiiPackageList list;
    const EFI_STATUS status = ReadList(self, packages, list);
    return EFI_ERROR(status) ? status : self.Add(std::move(list), driver, *handle);
  }

  static EFI_STATUS EFIAPI RemovePackageList(const EFI_HII_DATABASE_PROTOCOL* interface, EFI_HII_HANDLE handle) {
    return interface == nullptr ? EFI_INVALID_PARAMETER : Of(interface).Remove(handle);
  }

  // Packages of the types that the new list has are replaced, all others stay (UEFI 2.10, 34.8.4).
  static EFI_STATUS EFIAPI UpdatePackageList(const EFI_HII_DATABASE_PROTOCOL* interface, EFI_HII_HANDLE handle,
                                             const EFI_HII_PACKAGE_LIST_HEADER* packages) {
    if (interface == nullptr || packages == nullptr || handle == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    HiiDatabase& self = Of(interface);
    Entry* entry = self.EntryOf(handle);
    if (entry == nullptr) {
      return EFI_NOT_FOUND;
    }
    HiiPackageList list;
    if (const EFI_STATUS status = ReadList(self, packages, list); EFI_ERROR(status)) {
      return status;
    }
    if (!list.strings.empty()) {
      entry->list.strings = std::move(list.strings);
    }
    std::erase_if(entry->list.others, [&list](const HiiRawPackage& old) { return Holds(list, old.type, nullptr); });
    entry->list.others.insert(entry->list.others.end(), list.others.begin(), list.others.end());
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI ListPackageLists(const EFI_HII_DATABASE_PROTOCOL* interface, UINT8 type,
                                            const EFI_GUID* guid, UINTN* size, EFI_HII_HANDLE* buffer) {
    const bool wantsGuid = type == EFI_HII_PACKAGE_TYPE_GUID;
    if (interface == nullptr || size == nullptr || wantsGuid != (guid != nullptr)) {
      return EFI_INVALID_PARAMETER;
    }
    std::vector<EFI_HII_HANDLE> handles;
    for (const auto& [handle, entry] : Of(interface).lists_) {
      if (Holds(entry.list, type, guid)) {
        handles.push_back(handle);
      }
    }
    if (handles.empty()) {
      *size = 0;
      return EFI_NOT_FOUND;
    }
    return CopyOut(handles.data(), handles.size() * sizeof(EFI_HII_HANDLE), size, buffer);
  }

  static EFI_STATUS EFIAPI ExportPackageLists(const EFI_HII_DATABASE_PROTOCOL* interface, EFI_HII_HANDLE handle,
                                              UINTN* size, EFI_HII_PACKAGE_LIST_HEADER* buffer) {
    if (interface == nullptr || size == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    std::vector<std::byte> bytes;
    for (const auto& [each, entry] : Of(interface).lists_) {
      if (handle == nullptr || handle == each) {
        const auto encoded = entry.list.Encode();
        bytes.insert(bytes.end(), encoded.begin(), encoded.end());
      }
    }
    return bytes.empty() ? EFI_NOT_FOUND : CopyOut(bytes.data(), bytes.size(), size, buffer);
  }

  static EFI_STATUS EFIAPI RegisterPackageNotify(const EFI_HII_DATABASE_PROTOCOL*, UINT8, const EFI_GUID*,
                                                 EFI_HII_DATABASE_NOTIFY, EFI_HII_DATABASE_NOTIFY_TYPE, EFI_HANDLE*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI UnregisterPackageNotify(const EFI_HII_DATABASE_PROTOCOL*, EFI_HANDLE) {
    return EFI_NOT_FOUND;
  }
  static EFI_STATUS EFIAPI FindKeyboardLayouts(const EFI_HII_DATABASE_PROTOCOL*, UINT16*, EFI_GUID*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI GetKeyboardLayout(const EFI_HII_DATABASE_PROTOCOL*, const EFI_GUID*, UINT16*, VOID*) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI SetKeyboardLayout(const EFI_HII_DATABASE_PROTOCOL*, const EFI_GUID*) {
    return EFI_UNSUPPORTED;
  }

  static EFI_STATUS EFIAPI GetPackageListHandle(const EFI_HII_DATABASE_PROTOCOL* interface, EFI_HII_HANDLE handle,
                                                EFI_HANDLE* driver) {
    if (interface == nullptr || driver == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const Entry* entry = Of(interface).EntryOf(handle);
    if (entry == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *driver = entry->driver;
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI NewString(const EFI_HII_STRING_PROTOCOL* interface, EFI_HII_HANDLE handle, EFI_STRING_ID* id,
                                     const CHAR8* language, const CHAR16*, const CHAR16* text, const EFI_FONT_INFO*) {
    if (interface == nullptr || handle == nullptr || id == nullptr || language == nullptr || text == nullptr ||
        *language == 0) {
      return EFI_INVALID_PARAMETER;
    }
    Entry* entry = Of(interface).EntryOf(handle);
    if (entry == nullptr) {
      return EFI_NOT_FOUND;
    }
    auto& packages = entry->list.strings;
    if (PackageOf(entry->list, language) == packages.end()) {
      packages.push_back({language, 0, {}, 1});
    }
    // One identifier means one string in every language, so it must be free in all of them.
    std::uint16_t next = 1;
    for (const HiiStringPackage& each : packages) {
      next = std::max(next, each.nextId);
    }
    if (next == 0xFFFF) {
      return EFI_OUT_OF_RESOURCES;
    }
    for (HiiStringPackage& each : packages) {
      each.nextId = static_cast<std::uint16_t>(next + 1);
    }
    PackageOf(entry->list, language)->strings[next] = text;
    *id = next;
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI GetString(const EFI_HII_STRING_PROTOCOL* interface, const CHAR8* language,
                                     EFI_HII_HANDLE handle, EFI_STRING_ID id, CHAR16* buffer, UINTN* size,
                                     EFI_FONT_INFO** font) {
    if (interface == nullptr || language == nullptr || id == 0 || size == nullptr ||
        (buffer == nullptr && *size != 0)) {
      return EFI_INVALID_PARAMETER;
    }
    std::u16string text;
    if (const EFI_STATUS status = Of(interface).Find(handle, language, id, text); EFI_ERROR(status)) {
      return status;
    }
    if (font != nullptr) {
      *font = nullptr;
    }
    return CopyOut(text.c_str(), TextBytes(text), size, buffer);
  }

  static EFI_STATUS EFIAPI SetString(const EFI_HII_STRING_PROTOCOL* interface, EFI_HII_HANDLE handle, EFI_STRING_ID id,
                                     const CHAR8* language, const CHAR16* text, const EFI_FONT_INFO*) {
    if (interface == nullptr || handle == nullptr || id == 0 || language == nullptr || text == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    Entry* entry = Of(interface).EntryOf(handle);
    if (entry == nullptr) {
      return EFI_NOT_FOUND;
    }
    const auto package = PackageOf(entry->list, language);
    if (package == entry->list.strings.end()) {
      return EFI_INVALID_LANGUAGE;
    }
    const auto found = package->strings.find(id);
    if (found == package->strings.end()) {
      return EFI_NOT_FOUND;
    }
    found->second = text;
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI GetLanguages(const EFI_HII_STRING_PROTOCOL* interface, EFI_HII_HANDLE handle, CHAR8* buffer,
                                        UINTN* size) {
    if (interface == nullptr || size == nullptr || (buffer == nullptr && *size != 0)) {
      return EFI_INVALID_PARAMETER;
    }
    const Entry* entry = Of(interface).EntryOf(handle);
    if (entry == nullptr) {
      return EFI_NOT_FOUND;
    }
    std::string languages;
    for (const HiiStringPackage& each : entry->list.strings) {
      languages += (languages.empty() ? "" : ";") + each.language;
    }
    return CopyOut(languages.c_str(), TextBytes(languages), size, buffer);
  }

  // Packages here have no secondary languages.
  static EFI_STATUS EFIAPI GetSecondaryLanguages(const EFI_HII_STRING_PROTOCOL* interface, EFI_HII_HANDLE handle,
                                                 const CHAR8* primary, CHAR8*, UINTN* size) {
    if (interface == nullptr || primary == nullptr || size == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const Entry* entry = Of(interface).EntryOf(handle);
    if (entry == nullptr) {
      return EFI_NOT_FOUND;
    }
    return PackageOf(entry->list, primary) == entry->list.strings.end() ? EFI_INVALID_LANGUAGE : EFI_NOT_FOUND;
  }
};

HiiDatabase::HiiDatabase()
    : database_{{Calls::NewPackageList, Calls::RemovePackageList, Calls::UpdatePackageList, Calls::ListPackageLists,
                 Calls::ExportPackageLists, Calls::RegisterPackageNotify, Calls::UnregisterPackageNotify,
                 Calls::FindKeyboardLayouts, Calls::GetKeyboardLayout, Calls::SetKeyboardLayout,
                 Calls::GetPackageListHandle},
                this},
      strings_{
          {Calls::NewString, Calls::GetString, Calls::SetString, Calls::GetLanguages, Calls::GetSecondaryLanguages},
          this},
      nextHandle_(kFirstHandle) {}

}  // namespace sim

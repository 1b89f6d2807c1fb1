#include "bootopt/names/strings.h"

#include "bootopt/boot_lists.h"
#include "platform/hii_database.h"
#include "platform/hii_string.h"
#include "support/protocols.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINTN kLanguageCapacity = 32;

// The platform language (UEFI 2.10, 3.3); empty when it is not set.
struct PlatformLanguage {
  CHAR8 Text[kLanguageCapacity] = {};
};
PlatformLanguage ReadPlatformLanguage() {
  PlatformLanguage language;
  UINTN size = 0;
  const std::span<std::byte> room{reinterpret_cast<std::byte*>(language.Text), kLanguageCapacity - 1};
  if (EFI_ERROR(ReadVariableInto(u"PlatformLang", gEfiGlobalVariableGuid, room, size))) {
    return {};
  }
  return language;
}

PoolPtr<CHAR16> ReadString(const EFI_HII_STRING_PROTOCOL* strings, const CHAR8* language, UINT16 id) {
  UINTN size = 0;
  EFI_STATUS status = strings->GetString(strings, language, gBootOptions.HiiHandle, id, nullptr, &size, nullptr);
  if (status != EFI_BUFFER_TOO_SMALL) {
    return nullptr;
  }
  auto text = AllocateArray<CHAR16>(size / sizeof(CHAR16) + 1);
  if (!text) {
    return nullptr;
  }
  const UINTN last = size / sizeof(CHAR16);
  status = strings->GetString(strings, language, gBootOptions.HiiHandle, id, text.get(), &size, nullptr);
  if (EFI_ERROR(status)) {
    return nullptr;
  }
  text[last] = 0;
  return text;
}

}  // namespace

void RegisterStrings() {
  gBootOptions.HiiHandle = nullptr;
  const EFI_HANDLE image = gServices.ImageHandle;
  void* packageList = nullptr;
  if (EFI_ERROR(BootServices()->OpenProtocol(image, &gEfiHiiPackageListProtocolGuid, &packageList, image, nullptr,
                                             EFI_OPEN_PROTOCOL_GET_PROTOCOL))) {
    return;
  }
  const auto* database = LocateProtocol<EFI_HII_DATABASE_PROTOCOL>();
  EFI_HII_HANDLE handle = nullptr;
  if (database == nullptr ||
      EFI_ERROR(database->NewPackageList(database, static_cast<const EFI_HII_PACKAGE_LIST_HEADER*>(packageList),
                                         nullptr, &handle))) {
    return;
  }
  gBootOptions.HiiHandle = handle;
}

PoolPtr<CHAR16> GetDriverString(UINT16 id) {
  const auto* strings = gBootOptions.HiiHandle != nullptr ? LocateProtocol<EFI_HII_STRING_PROTOCOL>() : nullptr;
  if (strings == nullptr) {
    return nullptr;
  }
  const PlatformLanguage language = ReadPlatformLanguage();
  PoolPtr<CHAR16> text;
  if (language.Text[0] != 0) {
    text = ReadString(strings, language.Text, id);
  }
  if (!text) {
    text = ReadString(strings, "en-US", id);
  }
  return text;
}

DriverText::DriverText(DriverString id) : text_(GetDriverString(static_cast<UINT16>(id))) {}

}  // namespace bds

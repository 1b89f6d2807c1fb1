#include "bootopt/names/string_package.h"

namespace bds {
namespace {

// Puts little-endian fields one behind the other, when the program is compiled.
class PackageWriter {
 public:
  template <typename Integer>
  constexpr void Put(Integer value) {
    for (UINTN i = 0; i < sizeof(Integer); ++i) {
      bytes_[used_++] = static_cast<std::byte>(static_cast<UINT64>(value) >> (i * 8) & 0xFF);
    }
  }
  constexpr void PutGuid(const EFI_GUID& guid) {
    Put(guid.Data1);
    Put(guid.Data2);
    Put(guid.Data3);
    for (UINT8 part : guid.Data4) {
      Put(part);
    }
  }
  constexpr void PutPackageHeader(UINTN size, UINT8 type) { Put(static_cast<UINT32>(size | UINTN{type} << 24)); }
  constexpr void PutString(const char* text) {
    Put(EFI_HII_SIBT_STRING_UCS2);
    for (; *text != 0; ++text) {
      Put(static_cast<CHAR16>(*text));
    }
    Put(CHAR16{0});
  }
  constexpr bool Full() const { return used_ == bytes_.size(); }
  constexpr const auto& Bytes() const { return bytes_; }

 private:
  std::array<std::byte, kStringPackageListSize> bytes_{};
  UINTN used_ = 0;
};

constexpr PackageWriter BuildPackageList() {
  PackageWriter writer;
  writer.PutGuid(kStringPackageListGuid);
  writer.Put(static_cast<UINT32>(kStringPackageListSize));

  writer.PutPackageHeader(kStringPackageSize, EFI_HII_PACKAGE_STRINGS);
  writer.Put(static_cast<UINT32>(kStringPackageHeaderSize));  // HdrSize
  writer.Put(static_cast<UINT32>(kStringPackageHeaderSize));  // StringInfoOffset
  for (UINTN i = 0; i < sizeof(EFI_HII_STRING_PACKAGE_HDR::LanguageWindow) / sizeof(CHAR16); ++i) {
    writer.Put(CHAR16{0});
  }
  writer.Put(static_cast<UINT16>(DriverString::LanguageName));
  for (char character : kStringPackageLanguage) {
    writer.Put(static_cast<UINT8>(character));
  }
  for (const char* text : kDriverStrings) {
    writer.PutString(text);
  }
  writer.Put(EFI_HII_SIBT_END);

  writer.PutPackageHeader(sizeof(EFI_HII_PACKAGE_HEADER), EFI_HII_PACKAGE_END);
  return writer;
}

static_assert(BuildPackageList().Full(), "the sizes in the headers are those of what follows");

}  // namespace

// The section is a part of the image's resource section; in host programs its name means nothing.
[[gnu::section(".rsrc$list")]] constinit const std::array<std::byte, kStringPackageListSize> kStringPackageList =
    BuildPackageList().Bytes();

}  // namespace bds

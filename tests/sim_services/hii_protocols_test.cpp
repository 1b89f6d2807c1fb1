// The HII strings as callers see them, by language, and package lists that lie.
#include <gtest/gtest.h>

#include <cstring>

#include "sim/firmware/services/hii_database.h"

namespace sim {
namespace {

constexpr EFI_GUID kGuid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

HiiPackageList TwoLanguages() {
  HiiPackageList list;
  list.guid = kGuid;
  list.strings.push_back({"en-US", 1, {{1, u"English"}, {2, u"Drive"}, {3, u"Only English"}}, 4});
  list.strings.push_back({"de", 1, {{1, u"Deutsch"}, {2, u"Laufwerk"}}, 4});
  return list;
}

class Hii : public testing::Test {
 protected:
  Hii() {
    const auto bytes = TwoLanguages().Encode();
    status_ = database_.Database()->NewPackageList(
        database_.Database(), reinterpret_cast<const EFI_HII_PACKAGE_LIST_HEADER*>(bytes.data()), nullptr, &handle_);
  }
  EFI_STATUS Get(const char* language, EFI_STRING_ID id, std::u16string* text = nullptr) {
    CHAR16 buffer[64] = {};
    UINTN size = sizeof(buffer);
    auto* strings = database_.Strings();
    const EFI_STATUS status = strings->GetString(strings, language, handle_, id, buffer, &size, nullptr);
    if (text != nullptr) {
      *text = buffer;
    }
    return status;
  }

  HiiDatabase database_;
  EFI_HII_HANDLE handle_ = nullptr;
  EFI_STATUS status_ = EFI_SUCCESS;
};

TEST_F(Hii, StringsAreFoundByLanguageAndItsVariants) {
  ASSERT_EQ(status_, EFI_SUCCESS) << database_.Error();
  EXPECT_LT(reinterpret_cast<std::uintptr_t>(handle_), std::uintptr_t{1} << 32);
  struct Case {
    const char* language;
    EFI_STRING_ID id;
    EFI_STATUS status;
    const char16_t* text;
  };
  const Case cases[] = {
      {"en-US", 2, EFI_SUCCESS, u"Drive"},      {"EN-us", 2, EFI_SUCCESS, u"Drive"},
      {"de", 2, EFI_SUCCESS, u"Laufwerk"},      {"de-AT-1901", 2, EFI_SUCCESS, u"Laufwerk"},
      {"en", 2, EFI_INVALID_LANGUAGE, u""},     {"fr", 2, EFI_INVALID_LANGUAGE, u""},
      {"de", 3, EFI_INVALID_LANGUAGE, u""},     {"en-US", 9, EFI_NOT_FOUND, u""},
      {"en-US", 0, EFI_INVALID_PARAMETER, u""},
  };
  for (const Case& test : cases) {
    std::u16string text;
    EXPECT_EQ(Get(test.language, test.id, &text), test.status) << test.language << " " << test.id;
    EXPECT_EQ(text, test.text);
  }
}

TEST_F(Hii, LyingListsAreRefused) {
  auto* database = database_.Database();
  auto bytes = TwoLanguages().Encode();
  const auto* list = reinterpret_cast<const EFI_HII_PACKAGE_LIST_HEADER*>(bytes.data());
  EFI_HII_HANDLE handle = nullptr;
  const UINT32 lengths[] = {0, 19, 24, static_cast<UINT32>(bytes.size()) - 1, 0xFFFFFFFF};
  for (const UINT32 length : lengths) {
    std::memcpy(bytes.data() + 16, &length, sizeof(length));
    EXPECT_EQ(database->NewPackageList(database, list, nullptr, &handle), EFI_INVALID_PARAMETER) << length;
    EXPECT_FALSE(database_.Error().empty());
  }
  EXPECT_EQ(database->NewPackageList(database, nullptr, nullptr, &handle), EFI_INVALID_PARAMETER);
  EXPECT_EQ(database_.Count(), 1u);
}

}  // namespace
}  // namespace sim

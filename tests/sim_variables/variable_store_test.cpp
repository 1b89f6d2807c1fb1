// The variable services' rules, call by call, in the words of UEFI 2.10, 8.2.
#include "sim/firmware/variables/variable_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace sim {
namespace {

constexpr EFI_GUID kVendor{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
constexpr EFI_GUID kOther{9, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
constexpr std::uint32_t kNv = EFI_VARIABLE_NON_VOLATILE;
constexpr std::uint32_t kBs = EFI_VARIABLE_BOOTSERVICE_ACCESS;
constexpr std::uint32_t kRt = EFI_VARIABLE_RUNTIME_ACCESS;
constexpr std::uint32_t kAll = kNv | kBs | kRt;

EFI_STATUS Set(VariableStore& store, const CHAR16* name, std::uint32_t attributes, std::string_view data) {
  return store.SetVariable(name, &kVendor, attributes, data.size(), data.data());
}
std::string Value(const VariableStore& store, std::u16string_view name) {
  const Variable* variable = store.Find(name, kVendor);
  return variable == nullptr ? "(absent)"
                             : std::string(reinterpret_cast<const char*>(variable->data.data()), variable->data.size());
}

struct SetCase {
  const char* what;
  std::uint32_t oldAttributes;  // 0: the variable does not exist
  std::uint32_t attributes;
  const char* data;
  EFI_STATUS status;
  const char* value;  // afterwards
};

class SetVariableRules : public testing::TestWithParam<SetCase> {};

TEST_P(SetVariableRules, AnswersAndLeaves) {
  const SetCase& test = GetParam();
  VariableStore store;
  if (test.oldAttributes != 0) {
    ASSERT_EQ(Set(store, u"V", test.oldAttributes, "old"), EFI_SUCCESS);
  }
  EXPECT_EQ(Set(store, u"V", test.attributes, test.data), test.status);
  EXPECT_EQ(Value(store, u"V"), test.value);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SetVariableRules,
    testing::Values(
        SetCase{"created", 0, kAll, "new", EFI_SUCCESS, "new"}, SetCase{"replaced", kAll, kAll, "n", EFI_SUCCESS, "n"},
        SetCase{"other attributes", kAll, kNv | kBs, "new", EFI_INVALID_PARAMETER, "old"},
        SetCase{"volatile made lasting", kBs | kRt, kAll, "new", EFI_INVALID_PARAMETER, "old"},
        SetCase{"deleted by size", kAll, kAll, "", EFI_SUCCESS, "(absent)"},
        SetCase{"deleted by size, other attributes", kAll, kBs, "", EFI_SUCCESS, "(absent)"},
        SetCase{"deleted by no attributes", kAll, 0, "data is ignored", EFI_SUCCESS, "(absent)"},
        SetCase{"delete of a missing one", 0, kAll, "", EFI_NOT_FOUND, "(absent)"},
        SetCase{"no access and missing", 0, kNv, "x", EFI_NOT_FOUND, "(absent)"},
        SetCase{"runtime without boot service", 0, kNv | kRt, "x", EFI_INVALID_PARAMETER, "(absent)"},
        SetCase{"unknown bit", 0, kAll | 0x100, "x", EFI_INVALID_PARAMETER, "(absent)"},
        SetCase{"authenticated", 0, kAll | kVariableTimeBasedAuthenticatedWrite, "x", EFI_UNSUPPORTED, "(absent)"},
        SetCase{"deprecated authentication", 0, kAll | kVariableAuthenticatedWrite, "x", EFI_UNSUPPORTED, "(absent)"},
        SetCase{"append", kAll, kAll | kVariableAppendWrite, "+", EFI_SUCCESS, "old+"},
        SetCase{"append creates", 0, kAll | kVariableAppendWrite, "new", EFI_SUCCESS, "new"},
        SetCase{"append of nothing", kAll, kAll | kVariableAppendWrite, "", EFI_SUCCESS, "old"},
        SetCase{"append of nothing to nothing", 0, kAll | kVariableAppendWrite, "", EFI_SUCCESS, "(absent)"},
        SetCase{"append, other attributes", kAll, kBs | kVariableAppendWrite, "+", EFI_INVALID_PARAMETER, "old"}),
    [](const auto& test) {
      std::string name = test.param.what;
      std::replace_if(
          name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
      return name;
    });

TEST(SetVariable, RefusesNullArgumentsAndTheEmptyName) {
  VariableStore store;
  EXPECT_EQ(store.SetVariable(nullptr, &kVendor, kAll, 1, "x"), EFI_INVALID_PARAMETER);
  EXPECT_EQ(store.SetVariable(u"V", nullptr, kAll, 1, "x"), EFI_INVALID_PARAMETER);
  EXPECT_EQ(store.SetVariable(u"V", &kVendor, kAll, 1, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ(store.SetVariable(u"", &kVendor, kAll, 1, "x"), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(store.All().empty());
}

TEST(SetVariable, SizeAboveTheLimitIsRefusedBeforeTheDataIsTouched) {
  VariableStore store({.nonVolatileSize = 10000, .volatileSize = 10000, .maximumVariableSize = 100});
  char byte = 0;
  EXPECT_EQ(store.SetVariable(u"V", &kVendor, kAll, ~UINTN{0}, &byte), EFI_INVALID_PARAMETER);
  // Two characters and the NUL take six of the 100 bytes.
  EXPECT_EQ(Set(store, u"VV", kAll, std::string(95, 'x')), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Set(store, u"VV", kAll, std::string(94, 'x')), EFI_SUCCESS);
  EXPECT_EQ(Set(store, u"VV", kAll | kVariableAppendWrite, "x"), EFI_INVALID_PARAMETER);
}

TEST(SetVariable, AFullStoreKeepsTheOldValueAndTheOtherStoreHasRoom) {
  const std::uint64_t room = VariableStore::kVariableOverhead + 4 + 10;
  VariableStore store({.nonVolatileSize = room, .volatileSize = room, .maximumVariableSize = 1000});
  ASSERT_EQ(Set(store, u"A", kAll, "0123456789"), EFI_SUCCESS);
  EXPECT_EQ(Set(store, u"A", kAll, "0123456789A"), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(Value(store, u"A"), "0123456789");
  EXPECT_EQ(Set(store, u"A", kAll, "9876543210"), EFI_SUCCESS) << "the old value's room counts as free";
  EXPECT_EQ(Set(store, u"B", kAll, "x"), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(Set(store, u"B", kBs, "x"), EFI_SUCCESS);
  ASSERT_EQ(Set(store, u"A", kAll, ""), EFI_SUCCESS);
  EXPECT_EQ(Set(store, u"C", kAll, "0123456789"), EFI_SUCCESS);
}

TEST(SetVariable, NamesWithoutEndAreBounded) {
  VariableStore store;
  const std::u16string tooLong(VariableStore::kMaxNameLength + 1, u'N');
  EXPECT_EQ(Set(store, tooLong.c_str(), kAll, "x"), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Set(store, tooLong.c_str() + 1, kAll, "x"), EFI_SUCCESS);
}

TEST(GetVariable, TellsSizeAndAttributesBeforeItCopies) {
  VariableStore store;
  ASSERT_EQ(Set(store, u"V", kBs, "abcd"), EFI_SUCCESS);
  UINT32 attributes = 0;
  UINTN size = 3;
  char buffer[8] = "------";
  EXPECT_EQ(store.GetVariable(u"V", &kVendor, &attributes, &size, buffer), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(attributes, kBs);
  EXPECT_STREQ(buffer, "------");
  EXPECT_EQ(store.GetVariable(u"V", &kVendor, nullptr, &size, buffer), EFI_SUCCESS);
  EXPECT_STREQ(buffer, "abcd--");
  EXPECT_EQ(store.GetVariable(u"V", &kVendor, nullptr, &size, nullptr), EFI_INVALID_PARAMETER);
  size = 0;
  EXPECT_EQ(store.GetVariable(u"V", &kVendor, nullptr, &size, nullptr), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(store.GetVariable(u"V", &kVendor, nullptr, nullptr, nullptr), EFI_INVALID_PARAMETER);
  for (const auto& [name, vendor] : {std::pair{u"V", kOther}, {u"v", kVendor}, {u"", kVendor}}) {
    EXPECT_EQ(store.GetVariable(name, &vendor, nullptr, &size, nullptr), EFI_NOT_FOUND);
  }
}

TEST(GetNextVariableName, RefusesShortBuffersAndUnknownAndUnterminatedNames) {
  VariableStore store;
  ASSERT_EQ(Set(store, u"Name", kBs, "x"), EFI_SUCCESS);
  CHAR16 name[5] = u"";
  EFI_GUID guid = kVendor;
  UINTN size = 8;
  EXPECT_EQ(store.GetNextVariableName(&size, name, &guid), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(name[0], 0);
  EXPECT_EQ(store.GetNextVariableName(&size, name, &guid), EFI_SUCCESS);
  for (const auto& [held, room] : {std::pair{u"Gone", 10}, {u"Name", 8}, {u"Name", 0}}) {  // 8: the NUL lies behind it
    std::memcpy(name, held, sizeof(name));
    size = static_cast<UINTN>(room);
    EXPECT_EQ(store.GetNextVariableName(&size, name, &guid), EFI_INVALID_PARAMETER) << room;
  }
}

TEST(AtRuntime, OnlyRuntimeVariablesAreSeenAndOnlyLastingOnesWritten) {
  VariableStore store;
  ASSERT_EQ(Set(store, u"Boot", kNv | kBs, "b"), EFI_SUCCESS);
  ASSERT_EQ(Set(store, u"Volatile", kBs | kRt, "v"), EFI_SUCCESS);
  ASSERT_EQ(Set(store, u"Lasting", kAll, "l"), EFI_SUCCESS);
  store.EnterRuntime();
  EXPECT_EQ(Value(store, u"Boot"), "(absent)");
  EXPECT_EQ(Set(store, u"Volatile", kBs | kRt, "w"), EFI_WRITE_PROTECTED);
  EXPECT_EQ(Set(store, u"Volatile", kBs | kRt, ""), EFI_WRITE_PROTECTED);
  EXPECT_EQ(Set(store, u"Lasting", kAll, "m"), EFI_SUCCESS);
  EXPECT_EQ(Set(store, u"New", kBs | kRt, "n"), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Set(store, u"Boot", kAll, "n"), EFI_INVALID_PARAMETER) << "the hidden variable must survive";
  EXPECT_EQ(Set(store, u"Boot", kAll, ""), EFI_NOT_FOUND);
  store.PowerCycle();
  EXPECT_EQ(Value(store, u"Boot"), "b");
  EXPECT_EQ(Value(store, u"Volatile"), "(absent)");
  EXPECT_EQ(Value(store, u"Lasting"), "m");
}

class RefusingSink final : public VariableSink {
 public:
  bool Write(const Variable&) override { return false; }
  bool Remove(const Variable&) override { return false; }
};

TEST(Sink, ARefusedWriteLeavesTheStoreAsItWas) {
  VariableStore store;
  ASSERT_EQ(Set(store, u"V", kAll, "old"), EFI_SUCCESS);
  RefusingSink sink;
  store.SetSink(&sink);
  EXPECT_EQ(Set(store, u"V", kAll, "new"), EFI_DEVICE_ERROR);
  EXPECT_EQ(Set(store, u"V", kAll, ""), EFI_DEVICE_ERROR);
  EXPECT_EQ(Value(store, u"V"), "old");
  EXPECT_EQ(Set(store, u"Volatile", kBs, "new"), EFI_SUCCESS) << "volatile variables never reach the sink";
}

}  // namespace
}  // namespace sim

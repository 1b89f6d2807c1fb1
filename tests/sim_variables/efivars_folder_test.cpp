// The variable folder: what is written comes back, and every damaged file is named.
#include "sim/firmware/variables/efivars_folder.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kAll =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;
const std::string kGlobal = "8be4df61-93ca-11d2-aa0d-00e098032b8c";

class Folder : public testing::Test {
 protected:
  Folder() {
    std::string name = (fs::temp_directory_path() / "efivars-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
  }
  ~Folder() override { fs::remove_all(path_); }

  void WriteFile(const std::string& name, const std::string& bytes) {
    std::ofstream(path_ / name, std::ios::binary) << bytes;
  }
  std::string ReadFile(const std::string& name) {
    std::ifstream in(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  static EFI_STATUS Set(VariableStore& store, std::u16string_view name, std::uint32_t attributes,
                        const std::string& data) {
    return store.Set(name, gEfiGlobalVariableGuid, attributes, std::as_bytes(std::span(data)));
  }

  fs::path path_;
};

TEST_F(Folder, FileHoldsAttributesThenData) {
  VariableStore store;
  EfivarsFolder folder(path_);
  ASSERT_TRUE(folder.Load(store));
  store.SetSink(&folder);
  ASSERT_EQ(Set(store, u"Timeout", kAll, std::string("\x03\x00", 2)), EFI_SUCCESS);
  EXPECT_EQ(ReadFile("Timeout-" + kGlobal), std::string("\x07\x00\x00\x00\x03\x00", 6));
  ASSERT_EQ(Set(store, u"Volatile", 6, "x"), EFI_SUCCESS);
  EXPECT_FALSE(fs::exists(path_ / ("Volatile-" + kGlobal)));
  ASSERT_EQ(Set(store, u"Timeout", kAll, ""), EFI_SUCCESS);
  EXPECT_TRUE(fs::is_empty(path_));
}

TEST_F(Folder, EveryNameComesBack) {
  const std::u16string names[] = {u"Boot0001",   u"with-dash",   u"a/b%2Fc",     u"caf\u00E9 \u4E2D",
                                  u"\U0001F600", {u'x', 0xD800}, {0xDC00, u'y'}, u"%",
                                  u"..",         u"name.new"};
  VariableStore store;
  EfivarsFolder folder(path_);
  store.SetSink(&folder);
  for (const std::u16string& name : names) {
    ASSERT_EQ(Set(store, name, kAll, "data"), EFI_SUCCESS) << folder.Error();
  }
  VariableStore again;
  ASSERT_TRUE(folder.Load(again)) << folder.Error();
  EXPECT_EQ(again.All().size(), std::size(names));
  for (const std::u16string& name : names) {
    EXPECT_NE(again.Find(name, gEfiGlobalVariableGuid), nullptr) << Utf8FromUtf16(name);
  }
}

struct BadFile {
  const char* name;
  std::string bytes;
  const char* message;
};

TEST_F(Folder, DamagedFilesAreNamedAndNothingIsTouched) {
  const std::string good("\x07\x00\x00\x00x", 5);
  const BadFile cases[] = {
      {"README", good, "not NAME-GUID"},
      {"-8be4df61-93ca-11d2-aa0d-00e098032b8c", good, "not NAME-GUID"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8", good, "not NAME-GUID"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8g", good, "GUID"},
      {"Boot0001-8BE4DF61-93CA-11D2-AA0D-00E098032B8C", good, "lower case"},
      {"Boot\xFF-8be4df61-93ca-11d2-aa0d-00e098032b8c", good, "UTF-8"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8c", "", "0 bytes"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8c", std::string("\x07\x00\x00", 3), "3 bytes"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8c", std::string("\x07\x00\x00\x00", 4), "4 bytes"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8c", std::string("\x05\x00\x00\x00x", 5), "attributes"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8c", std::string("\x07\x01\x00\x00x", 5), "attributes"},
      {"Boot0001-8be4df61-93ca-11d2-aa0d-00e098032b8c", good + std::string(70'000, 'x'), "longer"},
  };
  for (const BadFile& test : cases) {
    WriteFile(test.name, test.bytes);
    VariableStore store;
    EfivarsFolder folder(path_);
    EXPECT_FALSE(folder.Load(store)) << test.name;
    EXPECT_NE(folder.Error().find(test.name), std::string::npos) << folder.Error();
    EXPECT_NE(folder.Error().find(test.message), std::string::npos) << folder.Error();
    EXPECT_EQ(ReadFile(test.name), test.bytes);
    fs::remove(path_ / test.name);
  }
}

TEST_F(Folder, LeftoversOfAnInterruptedWriteGoAway) {
  const std::string file = "Boot0001-" + kGlobal;
  WriteFile(file, std::string("\x07\x00\x00\x00old", 7));
  WriteFile(file + ".new", "\x07");
  VariableStore store;
  EfivarsFolder folder(path_);
  ASSERT_TRUE(folder.Load(store)) << folder.Error();
  EXPECT_EQ(store.All().size(), 1u);
  EXPECT_FALSE(fs::exists(path_ / (file + ".new")));
}

TEST_F(Folder, VolatileVariablesOfACopiedMachineStayOut) {
  WriteFile("BootCurrent-" + kGlobal, std::string("\x06\x00\x00\x00\x01\x00", 6));
  VariableStore store;
  EfivarsFolder folder(path_);
  ASSERT_TRUE(folder.Load(store)) << folder.Error();
  EXPECT_TRUE(store.All().empty());
  ASSERT_EQ(folder.Notes().size(), 1u);
  EXPECT_NE(folder.Notes()[0].find("BootCurrent"), std::string::npos);
}

TEST_F(Folder, AFolderThatCannotBeWrittenRefusesTheVariable) {
  VariableStore store;
  EfivarsFolder folder(path_ / "missing");
  store.SetSink(&folder);
  EXPECT_EQ(Set(store, u"V", kAll, "x"), EFI_DEVICE_ERROR);
  EXPECT_TRUE(store.All().empty());
  EXPECT_NE(folder.Error().find("missing"), std::string::npos);
}

}  // namespace
}  // namespace sim

// Booting BootOrder: which option is tried, from where it is loaded, and what its image is given.
#include <gmock/gmock.h>

#include <map>

#include "core/steps.h"
#include "platform/load_file.h"
#include "support/event.h"
#include "tests/support/driver_fixture.h"

namespace {

using test::Data;
using testing::ElementsAre;

constexpr char16_t kDefaultLoader[] = u"\\EFI\\BOOT\\BOOTX64.EFI";

// A device that hands out images by the file name behind its path.
struct FileDevice {
  EFI_LOAD_FILE_PROTOCOL Protocol{LoadFile};  // first, so that the service finds the record behind it
  sim::DevicePath Path = sim::DevicePath().Acpi(0x0A0341D0).Pci(0x1F, 2).Sata(0);
  std::map<std::u16string, Data> Files;

  static EFI_STATUS EFIAPI LoadFile(EFI_LOAD_FILE_PROTOCOL* self, EFI_DEVICE_PATH_PROTOCOL* path, BOOLEAN, UINTN* size,
                                    VOID* buffer) {
    const auto& files = reinterpret_cast<FileDevice*>(self)->Files;
    const std::u16string name = path->Type == MEDIA_DEVICE_PATH ? reinterpret_cast<const char16_t*>(path + 1) : u"";
    const auto found = files.find(name);
    if (found == files.end()) {
      return EFI_NOT_FOUND;
    }
    const UINTN room = *size;
    *size = found->second.size();
    if (room < *size || buffer == nullptr) {
      return EFI_BUFFER_TOO_SMALL;
    }
    std::memcpy(buffer, found->second.data(), *size);
    return EFI_SUCCESS;
  }
};

VOID EFIAPI OnReady(EFI_EVENT, VOID* started) { static_cast<std::vector<std::string>*>(started)->push_back("ready"); }

class BootOrderTest : public test::DriverTest {
 protected:
  void SetUp() override {
    EFI_HANDLE handle = InstallPath(device.Path);
    ASSERT_EQ(machine.Install(handle, &device.Protocol), EFI_SUCCESS);
  }
  // An image under this file name that records its start and returns the status.
  void AddLoader(const std::u16string& file, EFI_STATUS status) {
    const std::string name(file.begin(), file.end());
    device.Files[file] = images.RegisterBuiltin(name, [this, name, status](EFI_HANDLE self, EFI_SYSTEM_TABLE*) {
      started.push_back(name);
      const auto* loaded = machine.Handles().Get<EFI_LOADED_IMAGE_PROTOCOL>(self);
      const auto* options = static_cast<const std::byte*>(loaded->LoadOptions);
      given = options == nullptr ? Data{} : Data(options, options + loaded->LoadOptionsSize);
      const sim::Variable* variable = Find(u"BootCurrent");
      current = variable == nullptr ? Data{} : variable->data;
      currentAttributes = variable == nullptr ? 0 : variable->attributes;
      return status;
    });
  }
  sim::DevicePath PathTo(std::u16string_view file) { return sim::DevicePath(device.Path).File(file); }
  void SetOption(std::u16string_view name, std::u16string_view file, const Data& optional = {}) {
    Set(name, test::LoadOption(LOAD_OPTION_ACTIVE, u"option", PathTo(file), optional));
  }

  FileDevice device;
  std::vector<std::string> started;
  Data given;
  Data current;
  UINT32 currentAttributes = 0;
};

TEST_F(BootOrderTest, OptionsAreTriedInOrderAndTheLastStatusIsReturned) {
  AddLoader(u"\\a.efi", EFI_ABORTED);
  AddLoader(u"\\b.efi", EFI_NOT_READY);
  SetOption(u"Boot0001", u"\\a.efi");
  SetOption(u"Boot0002", u"\\b.efi");
  Set(u"BootOrder", test::Numbers({2, 7, 1}));
  const std::size_t blocks = machine.Pool().Count();
  EXPECT_EQ(bds::ReadBootOptionAndBoot(), EFI_ABORTED);
  EXPECT_THAT(started, ElementsAre("\\b.efi", "\\a.efi"));
  EXPECT_EQ(current, test::Numbers({1}));
  EXPECT_EQ(currentAttributes, 6U);
  EXPECT_EQ(machine.Pool().Count(), blocks);
}

TEST_F(BootOrderTest, NoBootOrderReturnsTheReadStatus) {
  EXPECT_EQ(bds::ReadBootOptionAndBoot(), EFI_NOT_FOUND);
  machine.Faults().FailCall("GetVariable", 1, EFI_DEVICE_ERROR);
  EXPECT_EQ(bds::ReadBootOptionAndBoot(), EFI_DEVICE_ERROR);
}

TEST_F(BootOrderTest, ALowerCaseNameIsFoundByTheSecondRead) {
  AddLoader(u"\\a.efi", EFI_ABORTED);
  AddLoader(u"\\upper.efi", EFI_ABORTED);
  SetOption(u"Boot000a", u"\\a.efi");
  Set(u"BootOrder", test::Numbers({10}));
  bds::ReadBootOptionAndBoot();
  EXPECT_THAT(started, ElementsAre("\\a.efi"));
  SetOption(u"Boot000A", u"\\upper.efi");
  bds::ReadBootOptionAndBoot();
  EXPECT_THAT(started, ElementsAre("\\a.efi", "\\upper.efi"));
}

TEST_F(BootOrderTest, ADiskWithoutALoaderPathBootsTheRemovableMediaLoader) {
  AddLoader(kDefaultLoader, EFI_ABORTED);
  Set(u"Boot0001", test::LoadOption(LOAD_OPTION_ACTIVE, u"disk", device.Path));
  Set(u"BootOrder", test::Numbers({1}));
  EXPECT_EQ(bds::ReadBootOptionAndBoot(), EFI_ABORTED);
  EXPECT_THAT(started, ElementsAre("\\EFI\\BOOT\\BOOTX64.EFI"));
}

TEST_F(BootOrderTest, NeitherLoaderGivesTheStatusOfTheSecondLoad) {
  Set(u"Boot0001", test::LoadOption(LOAD_OPTION_ACTIVE, u"disk", device.Path));
  Set(u"BootOrder", test::Numbers({1}));
  EXPECT_EQ(bds::ReadBootOptionAndBoot(), EFI_NOT_FOUND);
  EXPECT_EQ(images.LoadFailures().size(), 2U);
  EXPECT_EQ(Find(u"BootCurrent"), nullptr) << "nothing was about to boot";
}

TEST_F(BootOrderTest, TheImageIsGivenTheBytesBehindThePaths) {
  AddLoader(u"\\a.efi", EFI_ABORTED);
  const Data plain = test::DataOf({1, 2, 3, 4, 5});
  const Data marked = test::DataOf({0, 0, 0x42, 0x4F, 9});
  for (const Data& optional : {plain, marked, Data{}}) {
    SetOption(u"Boot0001", u"\\a.efi", optional);
    Set(u"BootOrder", test::Numbers({1}));
    given = test::DataOf({0xEE});
    bds::ReadBootOptionAndBoot();
    EXPECT_EQ(given, optional);
  }
}

TEST_F(BootOrderTest, ReadyToBootIsSignalledOnceTheImageIsLoaded) {
  bds::Event event;
  ASSERT_EQ(event.CreateInGroup(gEfiEventReadyToBootGuid, OnReady, &started), EFI_SUCCESS);
  AddLoader(u"\\a.efi", EFI_ABORTED);
  SetOption(u"Boot0001", u"\\missing.efi");
  SetOption(u"Boot0002", u"\\a.efi");
  Set(u"BootOrder", test::Numbers({1, 2}));
  bds::ReadBootOptionAndBoot();
  EXPECT_THAT(started, ElementsAre("ready", "\\a.efi"));
}

TEST_F(BootOrderTest, BrokenOptionsBootNothingAndTheNextOneIsTried) {
  const Data good = test::LoadOption(LOAD_OPTION_ACTIVE, u"x", PathTo(u"\\a.efi"));
  const std::size_t pathAt = good.size() - PathTo(u"\\a.efi").Size();
  const auto changed = [&](std::size_t at, int value) {
    Data bytes = good;
    bytes[at] = static_cast<std::byte>(value);
    return bytes;
  };
  const struct {
    const char* What;
    Data Bytes;
  } cases[] = {{"one byte", Data(1)},
               {"cut in the description", Data(good.begin(), good.begin() + 7)},
               {"cut in the path", Data(good.begin(), good.end() - 5)},
               {"no path", test::LoadOption(1, u"x", sim::DevicePath())},
               {"path length beyond the end", changed(5, 0x7F)},
               {"zero node length", changed(pathAt + 2, 0)},
               {"overrunning node length", changed(pathAt + 3, 0x7F)},
               {"noise", Data(300, std::byte{0xA5})}};
  AddLoader(u"\\a.efi", EFI_ABORTED);
  SetOption(u"Boot0002", u"\\a.efi");
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    started.clear();
    Set(u"Boot0001", row.Bytes);
    Set(u"BootOrder", test::Numbers({1, 2}));
    EXPECT_EQ(bds::ReadBootOptionAndBoot(), EFI_ABORTED);
    EXPECT_THAT(started, ElementsAre("\\a.efi"));
  }
}

TEST_F(BootOrderTest, AnOddByteBehindTheOrderIsIgnored) {
  AddLoader(u"\\a.efi", EFI_ABORTED);
  SetOption(u"Boot0001", u"\\a.efi");
  Set(u"BootOrder", test::DataOf({1, 0, 1}));
  bds::ReadBootOptionAndBoot();
  EXPECT_THAT(started, ElementsAre("\\a.efi"));
}

}  // namespace

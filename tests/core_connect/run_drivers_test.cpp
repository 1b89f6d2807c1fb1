// Driver#### options: which are loaded, what they are given, and the reconnection they ask for.
#include <gmock/gmock.h>

#include "core/steps.h"
#include "sim/firmware/services/firmware_volume.h"
#include "tests/core_connect/connect_recorder.h"

namespace {

using testing::IsEmpty;

constexpr EFI_GUID kVolume{1, 1, 1, {1}};

class RunDriversTest : public test::ConnectTest {
 protected:
  void SetUp() override {
    EFI_HANDLE handle = InstallPath(volumePath);
    ASSERT_EQ(machine.Install(handle, volume.Protocol()), EFI_SUCCESS);
    bds::gCore.AllHandles = {&handles[0], 1};
    handles[0] = handle;
  }
  // A driver in the firmware volume, and the option Driver#### for it.
  void AddDriver(UINT16 number, UINT32 attributes, EFI_STATUS status = EFI_SUCCESS, const test::Data& data = {}) {
    const EFI_GUID file{number, 2, 2, {2}};
    const auto run = [this, number, status](EFI_HANDLE self, EFI_SYSTEM_TABLE*) {
      started.push_back(number);
      const auto* loaded = machine.Handles().Get<EFI_LOADED_IMAGE_PROTOCOL>(self);
      const auto* options = static_cast<const std::byte*>(loaded->LoadOptions);
      given = options == nullptr ? test::Data{} : test::Data(options, options + loaded->LoadOptionsSize);
      return status;
    };
    ASSERT_TRUE(volume.Add(
        {file, EFI_FV_FILETYPE_DRIVER, u"", images.RegisterBuiltin("driver " + std::to_string(number), run)}));
    char name[16];
    std::snprintf(name, sizeof(name), "Driver%04X", number);
    Set(std::u16string(name, name + 10),
        test::LoadOption(attributes, u"driver", sim::DevicePath(volumePath).FirmwareFile(file), data));
  }

  sim::DevicePath volumePath = sim::DevicePath().FirmwareVolume(kVolume);
  sim::FirmwareVolume volume{machine.BootServices()};
  EFI_HANDLE handles[1];
  std::vector<int> started;
  test::Data given;
};

TEST_F(RunDriversTest, LoadOptionsReachTheDriverAndLastAsLongAsItDoes) {
  const test::Data data = test::DataOf({1, 2, 3});
  AddDriver(1, LOAD_OPTION_ACTIVE, EFI_SUCCESS, data);
  AddDriver(2, LOAD_OPTION_ACTIVE, EFI_ABORTED, data);
  AddDriver(3, LOAD_OPTION_ACTIVE);
  Set(u"DriverOrder", test::Numbers({1, 2}));
  const std::size_t blocks = machine.Pool().Count();
  bds::RunDrivers();
  EXPECT_EQ(given, data);
  EXPECT_EQ(machine.Pool().Count(), blocks + 1) << "the resident driver's options only";
  ASSERT_NE(bds::gCore.DriverOptions, nullptr);
  EXPECT_EQ(bds::gCore.DriverOptions->Next, nullptr);
  Set(u"DriverOrder", test::Numbers({3}));
  bds::RunDrivers();
  EXPECT_EQ(given, test::Data{});
  EXPECT_EQ(machine.Pool().Count(), blocks + 1);
}

TEST_F(RunDriversTest, AReconnectFollowsOnlyADriverThatStarted) {
  AddDriver(1, LOAD_OPTION_ACTIVE | LOAD_OPTION_FORCE_RECONNECT, EFI_ABORTED);
  AddDriver(2, LOAD_OPTION_FORCE_RECONNECT);
  AddDriver(3, LOAD_OPTION_ACTIVE | LOAD_OPTION_FORCE_RECONNECT);
  AddDriver(4, LOAD_OPTION_ACTIVE);
  Set(u"DriverOrder", test::Numbers({1, 2}));
  bds::RunDrivers();
  EXPECT_THAT(recorder.Calls, IsEmpty());
  Set(u"DriverOrder", test::Numbers({3, 4}));
  bds::RunDrivers();
  ASSERT_EQ(recorder.Calls.size(), 2U) << "once, behind the last driver";
  EXPECT_EQ(recorder.Calls[0].Kind, 'D');
  EXPECT_EQ(recorder.Calls[0].Controller, handles[0]);
  EXPECT_EQ(recorder.Calls[1].Kind, 'C');
  EXPECT_TRUE(recorder.Calls[1].Recursive);
}

}  // namespace

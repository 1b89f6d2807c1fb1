// The firmware load-file handle: which file is meant, and how sizes and volumes are dealt with.
#include <gmock/gmock.h>

#include "bootopt/boot_option.h"
#include "core/steps.h"
#include "platform/load_file.h"
#include "sim/firmware/services/firmware_volume.h"
#include "tests/support/driver_fixture.h"

namespace {

constexpr EFI_GUID kShell{0x7C04A583, 0x9E3E, 0x4F1C, {0xAD, 0x65, 0xE0, 0x52, 0x68, 0xD0, 0xB4, 0xD1}};
constexpr EFI_GUID kTool{7, 7, 7, {1}};
constexpr EFI_GUID kUnknown{8, 8, 8, {1}};

class FwLoadFileTest : public test::DriverTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(first.Add({kTool, EFI_FV_FILETYPE_APPLICATION, u"", test::DataOf({1, 2, 3})}));
    ASSERT_TRUE(second.Add({kShell, EFI_FV_FILETYPE_APPLICATION, u"", test::DataOf({4, 5, 6, 7})}));
    ASSERT_EQ(bds::InstallFwLoadFileProtocol(), EFI_SUCCESS);
  }
  void RecordVolumes() {
    Install(first.Protocol());
    Install(second.Protocol());
    bds::SignalEndOfDxe();
  }
  EFI_STATUS Load(const sim::DevicePath* path, bool bootPolicy, UINTN* size, void* buffer) {
    auto* protocol = &bds::gCore.FwLoadFile;
    sim::DevicePath copy = path == nullptr ? sim::DevicePath() : *path;
    return protocol->LoadFile(protocol, path == nullptr ? nullptr : copy.Get(), bootPolicy ? TRUE : FALSE, size,
                              buffer);
  }
  sim::FirmwareVolume first{machine.BootServices()};
  sim::FirmwareVolume second{machine.BootServices()};
};

TEST_F(FwLoadFileTest, PathsAndPolicyDecideTheFile) {
  RecordVolumes();
  const sim::DevicePath empty;
  const sim::DevicePath tool = sim::DevicePath().FirmwareFile(kTool);
  const sim::DevicePath unknown = sim::DevicePath().FirmwareFile(kUnknown);
  const sim::DevicePath disk = sim::DevicePath().File(u"\\x.efi");
  sim::DevicePath shortNode;
  shortNode.AppendRaw(MEDIA_DEVICE_PATH, MEDIA_PIWG_FW_FILE_DP, test::Data(15));
  const struct {
    const char* What;
    const sim::DevicePath* Path;
    bool BootPolicy;
    EFI_STATUS Status;
    test::Data Expected;
  } cases[] = {{"no path is the shell", nullptr, true, EFI_SUCCESS, test::DataOf({4, 5, 6, 7})},
               {"an empty path too", &empty, true, EFI_SUCCESS, test::DataOf({4, 5, 6, 7})},
               {"but by boot policy only", nullptr, false, EFI_INVALID_PARAMETER, {}},
               {"an empty path without it", &empty, false, EFI_INVALID_PARAMETER, {}},
               {"a file", &tool, false, EFI_SUCCESS, test::DataOf({1, 2, 3})},
               {"a file by boot policy", &tool, true, EFI_SUCCESS, test::DataOf({1, 2, 3})},
               {"a file of no volume", &unknown, true, EFI_NOT_FOUND, {}},
               {"another kind of node", &disk, true, EFI_INVALID_PARAMETER, {}},
               {"a node too short for its name", &shortNode, true, EFI_INVALID_PARAMETER, {}}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    test::Data buffer(100, std::byte{0xEE});
    UINTN size = buffer.size();
    EXPECT_EQ(Load(row.Path, row.BootPolicy, &size, buffer.data()), row.Status);
    if (row.Status == EFI_SUCCESS) {
      buffer.resize(size);
      EXPECT_EQ(buffer, row.Expected);
    }
  }
}

TEST_F(FwLoadFileTest, SizesAreAskedForWithoutTouchingABuffer) {
  RecordVolumes();
  const std::size_t blocks = machine.Pool().Count();
  UINTN size = 0;
  EXPECT_EQ(Load(nullptr, true, &size, nullptr), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 4U);
  std::byte untouched{0xEE};
  size = 0;
  EXPECT_EQ(Load(nullptr, true, &size, &untouched), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(untouched, std::byte{0xEE});
  test::Data small(4, std::byte{0xEE});
  size = 2;
  EXPECT_EQ(Load(nullptr, true, &size, small.data()), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(small[2], std::byte{0xEE});
  size = 4;
  EXPECT_EQ(Load(nullptr, true, &size, nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Load(nullptr, true, nullptr, small.data()), EFI_INVALID_PARAMETER);
  EXPECT_EQ(machine.Pool().Count(), blocks);
}

}  // namespace

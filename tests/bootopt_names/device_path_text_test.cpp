// Device paths as text: the driver's own nodes, the firmware's converter, the built-in one.
#include "platform/device_path_text.h"

#include "bootopt/names/device_path_text.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

using fake::Data;
using fake::Path;

const Data kDeviceName = {0xEF, 0x47, 0x64, 0x2D, 0xC9, 0x3B, 0xA0, 0x41,
                          0xAC, 0x19, 0x4D, 0x51, 0xD0, 0x1B, 0x4C, 0xE6};
const Data kStandin = {0xD1, 0x46, 0xDA, 0x22, 0x56, 0x65, 0x48, 0x49, 0xB2, 0x53, 0x2C, 0x3E, 0xB2, 0xE5, 0x32, 0xAF};
const Data kShell = {0x5C, 0xB9, 0x23, 0x50, 0x26, 0xDB, 0x9B, 0x42, 0xA6, 0x48, 0xBD, 0x47, 0x66, 0x4C, 0x80, 0x12};

Data Plus(Data data, const Data& more) {
  data.insert(data.end(), more.begin(), more.end());
  return data;
}

class PathText : public fake::BootListsTest {
 protected:
  std::string TextOf(const Data& path) {
    PoolPtr<char> text;
    status_ = DevicePathToText(reinterpret_cast<const EFI_DEVICE_PATH_PROTOCOL*>(path.data()), text);
    EXPECT_EQ(EFI_ERROR(status_), !text);
    return text ? text.get() : "(none)";
  }
  EFI_STATUS status_ = EFI_SUCCESS;
};

TEST_F(PathText, TheBuiltInConverterNodeByNode) {
  Data cdrom(20, 0);
  cdrom[0] = 1;
  const std::pair<Path, const char*> cases[] = {
      {Path(), ""},
      {Path().Node(1, 1, {2, 0x1F}), "PCI(1F|2)\\"},
      {Path().Node(1, 2, {3}), "Pccard(Socket 3)\\"},
      {Path().Node(1, 4, kShell), "VenHw(5023B95C-DB26-429B-A648-BD47664C8012)\\"},
      {fake::PciRoot(), "Acpi(a0341d0, 0)\\"},
      {Path().Node(3, 1, {0, 1, 2, 0}), "ATA(Master, 2)\\"},
      {Path().Node(3, 1, {1, 0, 0, 0}), "ATA(Slave, 0)\\"},
      {Path().Node(3, 2, {4, 1, 1, 0}), "SCSI(260, 1)\\"},
      {Path().Node(3, 5, {0x1A, 2}), "USB(1a,2)\\"},
      {Path().Node(3, 10, kStandin), "VenMsg(22DA46D1-6556-4948-B253-2C3EB2E532AF)\\"},
      {Path().Node(4, 1, fake::HardDriveBody(7)), "HD(Part7, Sig ?)\\"},
      {Path().Node(4, 2, cdrom), "CDROM(Entry1)\\"},
      {Path().Node(4, 3, kStandin), "VenMedia(22DA46D1-6556-4948-B253-2C3EB2E532AF)\\"},
      {Path().Node(4, 4, {'a', 0, 'b', 0, 0, 0, 'c', 0}), "File(ab)\\"},
      {Path().Node(4, 4, {'a', 0, 'b'}), "File(a)\\"},
      {Path().Node(3, 18, {0, 0, 0, 0, 0, 0}), "DevicePath(Type 3, SubType 18)"},
      {Path().Node(5, 1, {2, 0, 0, 0, 0}), "DevicePath(Type 5, SubType 1)"},
      {fake::PciRoot().Node(1, 1, {0, 1}).Node(3, 5, {1, 0}), "Acpi(a0341d0, 0)\\PCI(1|0)\\USB(1,0)\\"},
  };
  for (const auto& [path, text] : cases) {
    EXPECT_EQ(TextOf(path.Bytes()), text);
  }
}

TEST_F(PathText, NodesTooShortForTheirFieldsAreNotRead) {
  const std::pair<UINT8, UINT8> nodes[] = {{1, 1}, {1, 2},  {1, 4}, {2, 1}, {3, 1}, {3, 2},
                                           {3, 5}, {3, 10}, {4, 1}, {4, 2}, {4, 3}};
  for (const auto& [type, subType] : nodes) {
    EXPECT_EQ(TextOf(Path().Node(type, subType, {}).Bytes()),
              "DevicePath(Type " + std::to_string(type) + ", SubType " + std::to_string(subType) + ")");
  }
}

TEST_F(PathText, TheDriversOwnNodesAtTheFront) {
  const Path rest = Path().Node(3, 5, {1, 0});
  const auto with = [&](const Data& body) { return Path().Node(1, 4, body).Node(3, 5, {1, 0}).Bytes(); };
  EXPECT_EQ(TextOf(with(Plus(kDeviceName, {'S', 0, 'N', 0, 0, 0}))), "NUV name path(SN)\\USB(1,0)\\");
  EXPECT_EQ(TextOf(with(Plus(kDeviceName, {'S', 0, 'N', 0}))), "NUV name path(SN)\\USB(1,0)\\") << "no NUL";
  EXPECT_EQ(TextOf(with(kDeviceName)), "NUV name path(Empty)\\USB(1,0)\\");
  EXPECT_EQ(TextOf(with(Plus(kDeviceName, {'S'}))), "NUV name path()\\USB(1,0)\\");
  EXPECT_EQ(TextOf(with(kStandin)), "Veyra standin node ()\\USB(1,0)\\");
  EXPECT_EQ(TextOf(Path().Node(4, 3, kShell).Node(3, 5, {1, 0}).Bytes()), "EFI shell");
  EXPECT_EQ(TextOf(Path().Node(4, 3, Plus(kShell, {0})).Bytes()), "VenMedia(5023B95C-DB26-429B-A648-BD47664C8012)\\")
      << "the shell's node has no data";
}

TEST_F(PathText, BrokenPathsHaveNoText) {
  for (const Data& path : {Data{1, 1, 0, 0, 0x7F, 0xFF, 4, 0}, Data{9, 1, 4, 0, 0x7F, 0xFF, 4, 0}}) {
    EXPECT_EQ(TextOf(path), "(none)");
    EXPECT_EQ(status_, EFI_INVALID_PARAMETER);
  }
  PoolPtr<char> text;
  EXPECT_EQ(DevicePathToText(nullptr, text), EFI_INVALID_PARAMETER);
}

TEST_F(PathText, LongPathsAreWhole) {
  Path path;
  std::string expected;
  for (int i = 0; i < 500; ++i) {
    path.Node(3, 5, {1, 0});
    expected += "USB(1,0)\\";
  }
  EXPECT_EQ(TextOf(path.Bytes()), expected);
  Fw.FailAllocationAfter(3);
  EXPECT_EQ(TextOf(path.Bytes()), "(none)");
  EXPECT_EQ(status_, EFI_OUT_OF_RESOURCES);
}

}  // namespace
}  // namespace bds

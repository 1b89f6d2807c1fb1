// Names that drivers give: who is asked, in which order, and the way up to the root.
#include "bootopt/names/controller_name.h"

#include "bootopt/handle_path.h"
#include "platform/disk_io.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

constexpr EFI_GUID kSomeProtocol{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

class ControllerNames : public fake::BootListsTest {
 protected:
  ControllerNames() {
    root_ = Fw.NewHandle(fake::PciRoot());
    disk_ = Fw.NewHandle(fake::PciRoot().Node(1, 1, {2, 0x1F}).Node(3, 18, {0, 0, 0xFF, 0xFF, 0, 0}));
    for (const EFI_HANDLE handle : {root_, disk_}) {
      Fw.Install(handle, kSomeProtocol, this);
    }
  }
  static std::u16string Text(const PoolPtr<CHAR16>& name) { return name ? std::u16string(name.get()) : u"(none)"; }

  EFI_HANDLE root_;
  EFI_HANDLE disk_;
  EFI_HANDLE driver_ = Fw.NewHandle();
  fake::Namer2 namer_{"en-US"};
  fake::OlderNamer older_{"eng"};
};

TEST_F(ControllerNames, OnlyDriversThatManageTheControllerAreAsked) {
  namer_.Names[{disk_, nullptr}] = u"Disk";
  Fw.Install(driver_, static_cast<EFI_COMPONENT_NAME2_PROTOCOL*>(&namer_));
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"(none)");
  Fw.OpenByDriver(disk_, kSomeProtocol, driver_, EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER);
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"(none)");
  Fw.OpenByDriver(disk_, kSomeProtocol, driver_, EFI_OPEN_PROTOCOL_BY_DRIVER | EFI_OPEN_PROTOCOL_EXCLUSIVE);
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"Disk");
  EXPECT_EQ(Text(ControllerName(disk_, root_)), u"(none)") << "another child";
  EXPECT_EQ(Text(ControllerName(nullptr, nullptr)), u"(none)");
}

TEST_F(ControllerNames, DriversThatHoldDiskIoOnlyAreNotAsked) {
  EFI_DISK_IO_PROTOCOL diskIo{};
  namer_.Names[{disk_, nullptr}] = u"Partition driver";
  Fw.Install(driver_, static_cast<EFI_COMPONENT_NAME2_PROTOCOL*>(&namer_));
  Fw.Install(disk_, &diskIo);
  Fw.OpenByDriver(disk_, ProtocolGuid<EFI_DISK_IO_PROTOCOL>, driver_, EFI_OPEN_PROTOCOL_BY_DRIVER);
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"(none)");
}

TEST_F(ControllerNames, TheOlderProtocolIsAskedWhenTheNewerGivesNothing) {
  Fw.OpenByDriver(disk_, kSomeProtocol, driver_, EFI_OPEN_PROTOCOL_BY_DRIVER);
  older_.Names[{disk_, nullptr}] = u"Older";
  Fw.Install(driver_, static_cast<EFI_COMPONENT_NAME_PROTOCOL*>(&older_));
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"Older");
  Fw.Install(driver_, static_cast<EFI_COMPONENT_NAME2_PROTOCOL*>(&namer_));
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"Older");
  namer_.Names[{disk_, nullptr}] = u"";
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"Older") << "an empty name is none";
  namer_.Names[{disk_, nullptr}] = u"Newer";
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)), u"Newer");
  namer_.Names[{disk_, nullptr}] = std::u16string(5000, u'x');
  EXPECT_EQ(Text(ControllerName(disk_, nullptr)).size(), kControllerNameCapacity);
}

TEST_F(ControllerNames, ParentsNameTheirChild) {
  Fw.OpenByDriver(root_, kSomeProtocol, driver_, EFI_OPEN_PROTOCOL_BY_DRIVER);
  Fw.Install(driver_, static_cast<EFI_COMPONENT_NAME2_PROTOCOL*>(&namer_));
  namer_.Names[{root_, nullptr}] = u"The root itself";
  EXPECT_EQ(Text(ControllerNameOnPath(disk_)), u"(none)") << "a parent's own name is not the child's";
  namer_.Names[{root_, disk_}] = u"Disk by its root";
  EXPECT_EQ(Text(ControllerNameOnPath(disk_)), u"Disk by its root");
  EXPECT_EQ(Text(ControllerNameOnPath(driver_)), u"(none)") << "a handle without a path has no parents";
}

TEST_F(ControllerNames, APartitionsDiskIsTheFirstHandleThatIsNone) {
  fake::BlockIo whole(false);
  fake::BlockIo part(true);
  const auto path = fake::PciRoot().Node(1, 1, {2, 0x1F}).Node(3, 18, {0, 0, 0xFF, 0xFF, 0, 0});
  const EFI_HANDLE outer = Fw.NewHandle(fake::Path(path).Node(4, 1, fake::HardDriveBody(1)));
  const EFI_HANDLE inner =
      Fw.NewHandle(fake::Path(path).Node(4, 1, fake::HardDriveBody(1)).Node(4, 1, fake::HardDriveBody(5)));
  Fw.Install(outer, static_cast<EFI_BLOCK_IO_PROTOCOL*>(&part));
  Fw.Install(inner, static_cast<EFI_BLOCK_IO_PROTOCOL*>(&part));
  Fw.Install(disk_, static_cast<EFI_BLOCK_IO_PROTOCOL*>(&whole));
  EXPECT_EQ(WholeDiskHandle(inner), disk_);
  EXPECT_EQ(WholeDiskHandle(disk_), disk_);
  EXPECT_EQ(WholeDiskHandle(root_), root_);
  EXPECT_EQ(WholeDiskHandle(nullptr), nullptr);
}

}  // namespace
}  // namespace bds

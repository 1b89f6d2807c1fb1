// What boot policies look at, from a description to handles: device paths, BBS entries, slots and configuration space.
#include <gmock/gmock.h>

#include <fmt/format.h>

#include "platform/block_io.h"
#include "platform/pci_root_bridge_io.h"
#include "platform/pci_slot_info.h"
#include "platform/simple_network.h"
#include "platform/veyra_pci_io_properties.h"
#include "sim/bus/device_set.h"
#include "sim/csm/csm.h"
#include "sim/server/description.h"
#include "sim/server/load_option_view.h"

namespace sim {
namespace {

constexpr const char* kServer = R"(
csm = {}
slot = [
  {number = 4, function = [{kind = "fc", device = 0, lun = [{wwpn = "50:06:01:60:3B:20:11:01", lun = 3, node = "fibre"}]}]},
  {number = 2, riser = true, function = [
    {kind = "nvme", device = 0, namespace = [{}]},
    {kind = "iscsi", device = 0, root_port = 1, mac = "02:00:00:00:00:03", iscsi = [{target = "iqn.t"}]},
    {kind = "network", device = 0, root_port = 2, mac = "02:00:00:00:00:04"}]},
  {number = 3, function = [{kind = "bridge", device = 0, function = [
    {kind = "vnic", device = 0, mac = "02:00:00:00:00:05", iscsi = [{target = "iqn.v", lun = 1}]},
    {kind = "vnic", device = 0, number = 1, mac = "02:00:00:00:00:06", legacy_boot = false},
    {kind = "vhba", device = 0, number = 2, lun = [{wwpn = "50:06:01:60:3B:20:19:3C"}]}]}]},
  {number = 6, enabled = false, function = [{kind = "network", device = 0, mac = "02:00:00:00:00:07"}]},
]
[[root_bridge]]
last_bus = 0x7F
function = [
  {kind = "raid", device = 0x11, number = 4, board_port = "storage", scsi = [{target = 0}]},
  {kind = "bridge", device = 0x1C, function = [
    {kind = "network", device = 0, mac = "02:00:00:00:00:01", embedded = true}]},
  {kind = "ehci", device = 0x1D, usb = [{kind = "hub", port = 0, usb = [
    {port = 6, unit = [{number = 0, drive = "cdrom"}, {number = 2}, {number = 4, present = false}]}]}]},
]
[[root_bridge]]
first_bus = 0x80
)";

class PolicyDevices : public testing::Test {
 protected:
  PolicyDevices() {
    const ServerDescription server = ParseServerDescription(kServer, "policy.toml", ".");
    devices_ = &BuildDevices(machine_, server.devices, {.connected = true});
    csm_ = &machine_.Attach<Csm>(server.csm);
  }

  std::string PathOf(EFI_HANDLE handle) {
    return DevicePathToUtf8(DevicePath::Copy(machine_.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(handle)));
  }
  std::vector<std::string> PathsWith(const EFI_GUID& protocol) {
    std::vector<std::string> paths;
    for (const EFI_HANDLE handle : machine_.Handles().With(protocol)) {
      paths.push_back(PathOf(handle));
    }
    return paths;
  }
  template <typename Protocol>
  Protocol* Only() {
    void* found = nullptr;
    EXPECT_EQ(machine_.Handles().LocateProtocol(&ProtocolGuid<Protocol>, nullptr, &found), EFI_SUCCESS);
    return static_cast<Protocol*>(found);
  }

  Machine machine_;
  DeviceSet* devices_ = nullptr;
  Csm* csm_ = nullptr;
};

constexpr const char* kFibre = "PciRoot(0x0)/Pci(0x2,0x2)/Pci(0x0,0x0)/Fibre(0x111203B60010650,0x3)";
constexpr const char* kVirtualNic = "PciRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)/MAC(020000000005,0x1)";
constexpr const char* kVirtualHba =
    "PciRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)/Pci(0x0,0x2)/FibreEx(0x500601603B20193C,0x0000000000000000)";
constexpr const char* kAdapterDisk =
    "PciRoot(0x1)/Pci(0x2,0x2)/Pci(0x0,0x0)/MAC(020000000003,0x1)/IPv4(0.0.0.0,0x0,DHCP,0.0.0.0,0.0.0.0,0.0.0.0)/"
    "iSCSI(iqn.t,0x1,0x0000000000000000,None,None,None,TCP)";
constexpr const char* kPortDisk =
    "/IPv4(0.0.0.0,0x0,DHCP,0.0.0.0,0.0.0.0,0.0.0.0)/"
    "iSCSI(iqn.v,0x1,0x0000000000000001,None,None,None,TCP)";
constexpr const char* kMedia = "PciRoot(0x0)/Pci(0x1D,0x0)/USB(0x0,0x0)/USB(0x6,0x0)";

TEST_F(PolicyDevices, HaveThePathsThatPoliciesLookFor) {
  EXPECT_THAT(PathsWith(ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>),
              testing::UnorderedElementsAre(kFibre, kVirtualHba, kAdapterDisk, std::string(kVirtualNic) + kPortDisk,
                                            "PciRoot(0x1)/Pci(0x2,0x0)/Pci(0x0,0x0)/NVMe(0x1,00-00-00-00-00-00-00-00)",
                                            "PciRoot(0x0)/Pci(0x11,0x4)/Scsi(0x0,0x0)", kMedia,
                                            std::string(kMedia) + "/Unit(0x2)"));
}

TEST_F(PolicyDevices, AppearInTheBbsTableByKind) {
  auto* bios = Only<EFI_LEGACY_BIOS_PROTOCOL>();
  ASSERT_EQ(bios->ShadowAllLegacyOproms(bios), EFI_SUCCESS);
  csm_->AddDeviceEntries(true);
  std::vector<std::string> entries;
  for (std::size_t i = 0; i < csm_->Count(); ++i) {
    const BBS_TABLE& entry = csm_->Entry(i);
    if (entry.BootPriority == 0xFFFF) {
      continue;
    }
    const auto handle = reinterpret_cast<EFI_HANDLE>(std::uint64_t{entry.IBV2} << 32 | entry.IBV1);
    entries.push_back(fmt::format("{:x} {:02x}{:02x} {:02x}:{:02x}.{} {}", UINT16{entry.DeviceType}, entry.Class,
                                  entry.SubClass, UINT32{entry.Bus}, UINT32{entry.Device}, UINT32{entry.Function},
                                  PathOf(handle)));
  }
  EXPECT_THAT(
      entries,
      testing::UnorderedElementsAre(
          "2 0104 00:11.4 PciRoot(0x0)/Pci(0x11,0x4)/Scsi(0x0,0x0)", std::string("2 0c04 03:00.0 ") + kFibre,
          std::string("2 0c04 02:00.2 ") + kVirtualHba, std::string("2 0180 82:00.0 ") + kAdapterDisk,
          std::string("2 0200 02:00.0 ") + kVirtualNic + kPortDisk, std::string("80 0200 02:00.0 ") + kVirtualNic,
          "80 0200 83:00.0 PciRoot(0x1)/Pci(0x2,0x4)/Pci(0x0,0x0)",
          "6 0200 04:00.0 PciRoot(0x0)/Pci(0x1C,0x0)/Pci(0x0,0x0)/MAC(020000000001,0x1)",
          std::string("3 0c03 00:1d.0 ") + kMedia, std::string("2 0c03 00:1d.0 ") + kMedia + "/Unit(0x2)"));
}

TEST_F(PolicyDevices, LieBehindTheSlotsThatThePlatformTells) {
  const auto* info = Only<PCI_SLOT_INFO>();
  std::vector<std::string> slots;
  for (UINT32 i = 0; i < info->Count; ++i) {
    const PCI_SLOT_ENTRY& slot = info->Entries[i];
    const std::u16string name = slot.Name;
    slots.push_back(fmt::format("{} {} {} {:02x}-{:02x} {:04x}:{:04x}", UINT16{slot.SlotNumber},
                                std::string(name.begin(), name.end()), slot.Enabled, slot.SecondaryBus,
                                slot.SubordinateBus, UINT16{slot.VendorId}, UINT16{slot.DeviceId}));
  }
  EXPECT_THAT(slots, testing::ElementsAre("2 SlotID:2 1 81-83 8086:0001", "3 SlotID:MLOM 1 01-02 8086:0001",
                                          "4 SlotID:HBA 1 03-03 8086:0001", "6 SlotID:FrontPCIe2 0 ff-00 0000:0000"));
  std::map<std::uint16_t, int> classes;
  for (const EFI_HANDLE handle : machine_.Handles().With(ProtocolGuid<VEYRA_PCI_IO_PROPERTIES>)) {
    ++classes[machine_.Handles().Get<VEYRA_PCI_IO_PROPERTIES>(handle)->Class];
  }
  EXPECT_EQ(classes[kPciClassLomPort], 1);
  EXPECT_EQ(classes[kPciClassChipsetStorage], 1);
}

TEST_F(PolicyDevices, AreReachedByConfigurationCyclesOfAnyRootBridge) {
  struct Place {
    UINT64 address;
    UINT32 ids;
  };
  constexpr Place kPlaces[] = {
      {0x02000000, 0x00431137}, {0x02000200, 0x00451137}, {0x83000000, 0x00018086}, {0x80020400, 0x00018086},
      {0x02000300, 0xFFFFFFFF}, {0x80030000, 0xFFFFFFFF}, {0xFF1F0700, 0xFFFFFFFF}, {0x02200000, 0xFFFFFFFF},
  };
  for (const EFI_HANDLE handle : devices_->RootBridgeHandles()) {
    auto* bridge = machine_.Handles().Get<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>(handle);
    for (const Place& place : kPlaces) {
      UINT32 ids = 0;
      ASSERT_EQ(bridge->Pci.Read(bridge, EfiPciWidthUint32, place.address, 1, &ids), EFI_SUCCESS);
      EXPECT_EQ(ids, place.ids) << std::hex << place.address;
    }
  }
}

}  // namespace
}  // namespace sim

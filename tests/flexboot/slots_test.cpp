// Slots, the buses behind them, virtual functions, and the slot and port of each option's device.
#include <map>
#include <optional>

#include "flexboot/slot_ports.h"
#include "flexboot/slot_translation.h"
#include "flexboot/state.h"
#include "platform/legacy_bios.h"
#include "platform/pci_root_bridge_io.h"
#include "platform/pci_slot_info.h"
#include "platform/veyra_hobs.h"
#include "platform/veyra_pci_io_properties.h"
#include "sim/firmware/services/hob_list.h"
#include "tests/flexboot/policy_text.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/fake_pci.h"

namespace test {
namespace {

// Configuration space as a map; what is not in it reads as all ones.
struct FakeBridge {
  EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL Protocol{};  // first: the protocol's address is the bridge's
  std::map<UINT64, std::vector<UINT8>> Functions;
  UINT64 Reads = 0;

  FakeBridge() { Protocol.Pci.Read = Read; }
  static UINT64 Key(UINT64 bus, UINT64 device, UINT64 function) { return bus << 24 | device << 16 | function << 8; }
  void Add(UINT64 bus, UINT64 device, UINT64 function, UINT16 vendor, UINT16 id) {
    Functions[Key(bus, device, function)] = {static_cast<UINT8>(vendor), static_cast<UINT8>(vendor >> 8),
                                             static_cast<UINT8>(id), static_cast<UINT8>(id >> 8)};
  }
  void AddPort(UINT64 bus, UINT64 device, UINT64 function, UINT8 secondary, UINT8 subordinate) {
    Add(bus, device, function, 0x8086, 0x2F02);
    auto& bytes = Functions[Key(bus, device, function)];
    bytes.resize(64);
    bytes[0x19] = secondary;
    bytes[0x1A] = subordinate;
  }
  static EFI_STATUS EFIAPI Read(EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL* self, EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL_WIDTH width,
                                UINT64 address, UINTN count, VOID* buffer) {
    auto& bridge = *reinterpret_cast<FakeBridge*>(self);
    ++bridge.Reads;
    const UINTN size = count << width;
    std::memset(buffer, 0xFF, size);
    const auto found = bridge.Functions.find(address & ~UINT64{0xFF});
    if (found != bridge.Functions.end() && (address & 0xFF) + size <= found->second.size()) {
      std::memcpy(buffer, found->second.data() + (address & 0xFF), size);
    }
    return EFI_SUCCESS;
  }
};

class Slots : public DriverTest {
 protected:
  void AddHobs(UINT8 slot1, UINT8 slot2) {
    std::vector<std::byte> memory(31), riser(5);
    memory[30] = std::byte{2};
    riser[2] = std::byte{slot1};
    riser[4] = std::byte{slot2};
    hobs_.emplace();
    ASSERT_TRUE(hobs_->AddGuid(gVeyraMemoryHobGuid, memory));
    ASSERT_TRUE(hobs_->AddGuid(gVeyraBrightmereTypeHobGuid, riser));
    bds::gServices.HobList = hobs_->Build();
  }
  static std::string List() {
    std::string text;
    for (const bds::VEYRA_ORLA* orla = bds::gFlexBoot.VeyraOrlaList.get()->First; orla != nullptr; orla = orla->Next) {
      text += fmt::format("{}:{} {}{:x}:{:x}.{} ", orla->Slot, orla->Instance, orla->Kind == 1 ? 'n' : 'h', orla->Bus,
                          orla->Device, orla->Function);
    }
    return text;
  }

  FakeBridge bridge_;
  std::optional<sim::HobList> hobs_;
};

TEST_F(Slots, VirtualFunctionsAreCountedWithinTheirSlot) {
  EXPECT_EQ(bds::CreateVeyraOrlaXlatTbl(), EFI_NOT_FOUND);
  EXPECT_FALSE(bds::gFlexBoot.VeyraOrlaList);
  AddHobs(0, 0);
  EXPECT_EQ(bds::CreateVeyraOrlaXlatTbl(), EFI_NOT_FOUND) << "no root bridge";
  Install(&bridge_.Protocol);
  bridge_.AddPort(0, 3, 0, 0x10, 0x11);     // slot 1
  bridge_.AddPort(0x80, 2, 0, 0xFF, 0xFF);  // slot 2: the last bus there is
  bridge_.AddPort(0, 2, 0, 0x20, 0x1F);     // MLOM: switched off
  bridge_.Add(0x10, 0, 0, 0x1137, 0x0040);
  bridge_.Add(0x11, 0, 7, 0x1137, 0x0043);
  bridge_.Add(0x10, 31, 1, 0x1137, 0x0045);
  bridge_.Add(0x11, 1, 0, 0x8086, 0x0043);
  bridge_.Add(0xFF, 0, 2, 0x1137, 0x0043);
  bridge_.Add(0x20, 0, 0, 0x1137, 0x0043);
  EXPECT_EQ(bds::CreateVeyraOrlaXlatTbl(), EFI_SUCCESS);
  EXPECT_EQ(List(), "1:1 h10:1f.1 1:2 n11:0.7 2:1 nff:0.2 ");
  EXPECT_TRUE(Logged("slot is disabled\n"));
  EXPECT_TRUE(Logged("vHBA: SlotID:1(1), 0x10:0x1f:0x1 #1:1 not legacy bootable\n"));
  EXPECT_LT(bridge_.Reads, 3 * 256 + 40U);

  POLICY_PCI_IDENTITY data{};
  EXPECT_EQ(bds::FindOrlaFunction(1, 3, data, bds::gFlexBoot.VeyraOrlaList.get()), EFI_NOT_FOUND);
  EXPECT_EQ(bds::FindOrlaFunction(1, 2, data, nullptr), EFI_NOT_FOUND);
  EXPECT_EQ(data.PciAddressPresent, 0);
  EXPECT_EQ(bds::FindOrlaFunction(1, 2, data, bds::gFlexBoot.VeyraOrlaList.get()), EFI_SUCCESS);
  EXPECT_EQ(data.PciBus, 0x11);
  EXPECT_EQ(data.PciFunction, 7);
}

TEST_F(Slots, ARiserSpreadsItsSlot) {
  Install(&bridge_.Protocol);
  bridge_.AddPort(0, 3, 0, 0x30, 0x31);
  bridge_.AddPort(0, 3, 2, 0x20, 0x22);
  bridge_.AddPort(0, 3, 4, 0x40, 0x4F);
  const struct {
    UINT8 slot1, slot2, riser, first, last;
  } cases[] = {{0, 0, 0, 0x30, 0x31}, {1, 2, 1, 0x20, 0x4F}, {2, 2, 2, 0x30, 0x31}, {0, 1, 0, 0x30, 0x31}};
  for (const auto& row : cases) {
    AddHobs(row.slot1, row.slot2);
    EXPECT_EQ(bds::GetBrightmereSlot(), EFI_SUCCESS);
    EXPECT_EQ(bds::gFlexBoot.BrightmereSlot, row.riser);
    bds::SLOT_BUSES buses;
    ASSERT_EQ(bds::GetSlotBusNum(1, buses), EFI_SUCCESS);
    EXPECT_EQ(buses.SecondaryBus, row.first);
    EXPECT_EQ(buses.SubordinateBus, row.last);
    EXPECT_STREQ(buses.Name, "SlotID:1");
    ASSERT_EQ(bds::GetSlotBusNum(6, buses), EFI_SUCCESS);
    EXPECT_GT(buses.SecondaryBus, buses.SubordinateBus) << "an absent root port";
  }
  bds::SLOT_BUSES buses;
  for (const UINTN slot : {UINTN{0}, UINTN{7}, ~UINTN{0}}) EXPECT_EQ(bds::GetSlotBusNum(slot, buses), EFI_NOT_FOUND);
}

TEST_F(Slots, OptionsGetTheirSlotAndPortInOrderOfLocation) {
  FakePci lan0(2, 0), lan1(2, 0), raid(1, 4);
  VEYRA_PCI_IO_PROPERTIES lom{0, 0, kPciClassLomPort}, storage{0, 0, kPciClassChipsetStorage},
      invalid{1, 0, kPciClassLomPort};
  const auto place = [&](FakePci& pci, UINTN bus, UINTN function, VEYRA_PCI_IO_PROPERTIES& properties) {
    pci.Bus = bus;
    pci.Function = function;
    EFI_HANDLE handle = Install(&pci.PciIo);
    EXPECT_EQ(machine.Install(handle, &properties), EFI_SUCCESS);
  };
  EXPECT_EQ(bds::CreateSlotPortInfo(), EFI_NOT_FOUND);
  place(lan0, 6, 0, lom);
  place(lan1, 6, 1, lom);
  place(raid, 0, 2, storage);
  FakePci other(2, 0);
  place(other, 0x41, 0, invalid);
  EXPECT_EQ(bds::CreateSlotPortInfo(), EFI_NOT_FOUND) << "no slot information";
  std::vector<std::byte> slots(16 + 3 * 48);
  const auto slot = [&](std::size_t index, UINT8 first, UINT8 last, UINT8 enabled, UINT16 number) {
    slots[22 + 48 * index] = std::byte{first};
    slots[23 + 48 * index] = std::byte{last};
    slots[38 + 48 * index] = std::byte{enabled};
    std::memcpy(&slots[40 + 48 * index], &number, sizeof(number));
  };
  slots[12] = std::byte{3};
  slot(0, 0x40, 0x42, 1, 5);
  slot(1, 0x43, 0x43, 0, 6);
  slot(2, 0x50, 0x50, 1, 'S');
  Install(reinterpret_cast<PCI_SLOT_INFO*>(slots.data()));

  std::vector<BBS_TABLE> entries(6);
  const UINT32 places[][3] = {{6, 0, 1}, {6, 0, 0}, {0, 0, 2}, {0x42, 0, 0}, {0x41, 3, 1}, {0x43, 0, 0}};
  for (std::size_t i = 0; i < entries.size(); ++i) {
    entries[i].Bus = places[i][0];
    entries[i].Device = places[i][1];
    entries[i].Function = places[i][2];
    bds::CreateBootOption(bds::BootOptionList)->BbsEntry = &entries[i];
  }
  bds::BOOT_OPTION* off = bds::CreateBootOption(bds::BootOptionList);
  off->BbsEntry = &entries[1];
  off->Attributes = 0;
  ASSERT_NE(bds::CreateBootOption(bds::BootOptionList), nullptr);  // leads to no PCI function
  const auto table = [] {
    std::string text;
    for (const bds::SLOT_PORT_ENTRY& entry : bds::SlotPortTable()) {
      text += fmt::format("{:x}:{}.{}={}/{} ", entry.Location.Bus, entry.Location.Device, entry.Location.Function,
                          entry.Slot, entry.Port);
    }
    return text;
  };
  EXPECT_EQ(bds::CreateSlotPortInfo(), EFI_SUCCESS);
  EXPECT_EQ(table(), "6:0.0=76/0 6:0.1=76/1 0:0.2=83/0 41:3.1=5/0 42:0.0=5/1 ");
  EXPECT_TRUE(Logged("Total LOM ports 2 \nTotal PCHStorage ports 1 \n"));

  for (int i = 0; i < 100; ++i) bds::CreateBootOption(bds::BootOptionList)->BbsEntry = &entries[0];
  EXPECT_EQ(bds::CreateSlotPortInfo(), EFI_SUCCESS);
  EXPECT_EQ(bds::SlotPortTable().size(), bds::kSlotPortCapacity);
  bds::RemoveAll(bds::BootOptionList);
}

}  // namespace
}  // namespace test

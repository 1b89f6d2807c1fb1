// What no described server shows: each family's accesses as the controller sees them, accesses that fail, more slots
// than the database holds, and paths and slot information that are not to be believed.
#include "inventory/mac_inventory.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <array>

#include "inventory/adapter_eeprom.h"
#include "inventory/driver_ports.h"
#include "inventory/mac_database.h"
#include "platform/network_interface_identifier.h"
#include "platform/pci_slot_info.h"
#include "sim/bus/adapter_registers.h"
#include "sim/bus/device_set.h"
#include "tests/support/driver_fixture.h"

namespace {

using testing::ElementsAreArray;

constexpr std::array<std::uint8_t, 6> kMac{0x02, 0x00, 0x00, 0xAB, 0xCD, 0xEF};

// Passes accesses on and keeps them: "w 14 00000001", "r 16/2".
class Recorder final : public sim::BarModel {
 public:
  Recorder(const sim::AdapterNvm& nvm, std::vector<std::string>& accesses) : registers_(nvm), accesses_(accesses) {}
  std::uint64_t Read(std::uint64_t offset, unsigned width) override {
    accesses_.push_back(fmt::format("r {:x}/{}", offset, width));
    return registers_.Read(offset, width);
  }
  void Write(std::uint64_t offset, unsigned width, std::uint64_t value) override {
    accesses_.push_back(fmt::format("w {:x} {:08x}", offset, value));
    registers_.Write(offset, width, value);
  }

 private:
  sim::AdapterRegisters registers_;
  std::vector<std::string>& accesses_;
};

class MacInventoryTest : public test::DriverTest {
 protected:
  // A server with this one network controller and its slot information, all connected.
  void Build(sim::PciFunction function, const sim::AdapterNvm& nvm) {
    function.bars = {
        {.index = 0, .io = false, .size = sim::kAdapterMemorySize, .model = std::make_shared<Recorder>(nvm, accesses)}};
    sim::DeviceTree tree;
    tree.rootBridges.resize(1);
    tree.rootBridges[0].functions = {std::move(function)};
    tree.slotInformation = false;
    sim::BuildDevices(machine, std::move(tree), {.connected = true});
    pciIo = bds::HandleProtocol<EFI_PCI_IO_PROTOCOL>(bds::HandlesWith<EFI_PCI_IO_PROTOCOL>()[0]);
  }
  static sim::PciFunction Controller(std::uint16_t device, std::uint16_t subsystem) {
    sim::PciFunction function = sim::Network(0, 0, kMac);
    function.deviceId = device;
    function.subsystemId = subsystem;
    return function;
  }
  UINT16 Command() {
    UINT16 command = 0;
    EXPECT_EQ(pciIo->Pci.Read(pciIo, EfiPciIoWidthUint16, 4, 1, &command), EFI_SUCCESS);
    return command;
  }

  std::vector<std::string> accesses;
  EFI_PCI_IO_PROTOCOL* pciIo = nullptr;
};

TEST(MacRegisters, EachFamilyIsReadByItsOwnSequence) {
  struct Case {
    UINT8 lomType;
    sim::AdapterNvm nvm;
    std::vector<std::string> accesses;
  };
  const std::vector<std::string> pointer{"w 10014 00000029", "r 10014/4", "r 10016/2", "r 10016/2"};
  std::vector<std::string> x540{"r 8/4"};
  for (const char* command : {"w 10014 00000029", "w 10014 00000405", "w 10014 00000409", "w 10014 0000040d"}) {
    x540.insert(x540.end(), {command, "r 10014/4", "r 10016/2", "r 10016/2"});
  }
  std::vector<std::string> x710{"r 3f100/4"};
  // Words 0x48, 0x100 + 24, and 0x100 + 24 + 4 * 2 + 0x10 + 1 with the two behind it.
  for (const UINT32 word : {0x48U, 0x118U, 0x131U, 0x132U, 0x133U}) {
    x710.insert(x710.end(), {fmt::format("w b6110 {:08x}", word << 14 | 1U << 30), "r b6110/4", "r b6114/4"});
  }
  const Case cases[] = {
      {bds::Intel_i350_Nic,
       {.family = sim::NvmFamily::I350, .port = 2, .mac = kMac, .doneAfter = 1},
       {"r 8/4", "w 14 00000301", "r 14/4", "r 14/4", "r 16/2", "w 14 00000305", "r 14/4", "r 14/4", "r 16/2",
        "w 14 00000309", "r 14/4", "r 14/4", "r 16/2"}},
      {bds::Intel_x550_Nic, {.family = sim::NvmFamily::X540, .port = 1, .mac = kMac}, x540},
      {bds::Intel_x710_4P_Nic, {.family = sim::NvmFamily::X710, .port = 2, .mac = kMac}, x710},
      {bds::Intel_x520_Lom, {.family = sim::NvmFamily::X540, .mac = kMac}, {"r 8/4"}},
      {bds::LomTypeNone, {}, {}},
      {200, {}, {}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(bds::LomTypeName(each.lomType));
    test::DriverMachine server;
    std::vector<std::string> accesses;
    sim::PciFunction function = sim::Network(0, 0, kMac);
    function.bars = {{.index = 0,
                      .io = false,
                      .size = sim::kAdapterMemorySize,
                      .model = std::make_shared<Recorder>(each.nvm, accesses)}};
    sim::DeviceTree tree;
    tree.rootBridges.resize(1);
    tree.rootBridges[0].functions = {std::move(function)};
    sim::BuildDevices(server.machine, std::move(tree), {.connected = true});
    auto* io = bds::HandleProtocol<EFI_PCI_IO_PROTOCOL>(bds::HandlesWith<EFI_PCI_IO_PROTOCOL>()[0]);
    bds::PORT_ADDRESS address;
    const bool read = each.accesses.size() > 1;
    EXPECT_EQ(bds::ReadPortAddress(io, each.lomType, address), read ? EFI_SUCCESS : EFI_NOT_FOUND);
    EXPECT_THAT(accesses, ElementsAreArray(each.accesses));
    EXPECT_EQ(std::memcmp(address.Words, kMac.data(), kMac.size()) == 0, read);
  }
}

TEST_F(MacInventoryTest, AnNvmThatIsNeverDoneCostsASecond) {
  Build(Controller(0x1572, 0), {.family = sim::NvmFamily::X710, .mac = kMac, .done = false});
  const sim::Ticks before = machine.Time().Now();
  UINT16 word = 0x1234;
  EXPECT_EQ(bds::ReadXl710EEProm(pciIo, 0x48, word), EFI_NOT_FOUND);
  EXPECT_EQ(word, 0x1234);
  EXPECT_NEAR(static_cast<double>(machine.Time().Now() - before) / sim::kSecond, 1.0, 0.001);
}

TEST_F(MacInventoryTest, ReadEEPromRefusesFamiliesWithoutTheRegister) {
  Build(Controller(0x1572, 0), {.family = sim::NvmFamily::X710, .mac = kMac});
  UINT16 word = 0;
  EXPECT_EQ(bds::ReadEEProm(pciIo, bds::Intel_x710_Nic, 9, word), EFI_NOT_FOUND);
  EXPECT_TRUE(Logged("ReadEEProm:  Unable to read EEPROM. Invalid LomType = 99\n"));
  EXPECT_TRUE(accesses.empty());
}

// The function's own register accesses, of which one fails; and the delays that it was asked to poll with.
struct FailingRegisters {
  static inline EFI_PCI_IO_PROTOCOL real;
  static inline int left = 0;
  static inline std::vector<UINT64> delays;
  template <bool kWrite>
  static EFI_STATUS EFIAPI Access(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 bar, UINT64 offset,
                                  UINTN count, VOID* buffer) {
    const auto access = kWrite ? real.Mem.Write : real.Mem.Read;
    return left-- == 0 ? EFI_DEVICE_ERROR : access(self, width, bar, offset, count, buffer);
  }
  static EFI_STATUS EFIAPI Poll(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT8 bar, UINT64 offset,
                                UINT64 mask, UINT64 value, UINT64 delay, UINT64* result) {
    delays.push_back(delay);
    return left-- == 0 ? EFI_TIMEOUT : real.PollMem(self, width, bar, offset, mask, value, delay, result);
  }
  static void Attach(EFI_PCI_IO_PROTOCOL* pciIo, int failing) {
    real = *pciIo;
    left = failing;
    delays.clear();
    pciIo->Mem = {Access<false>, Access<true>};
    pciIo->PollMem = Poll;
  }
};

// An address of which some words were read is one; the words that were not are 0xFFFF.
TEST(MacRegisters, AFailingAccessCostsItsWordOrThoseBehindIt) {
  struct Case {
    sim::NvmFamily family;
    int failing;
    const char* words;  // read ones as r
    const char* said;
  };
  const Case cases[] = {
      {sim::NvmFamily::I350, -1, "rrr", "GetMacAddress().MacAddress[2] = "},
      {sim::NvmFamily::I350, 0, "---", "GetMacAddress().PciIo->Mem.Read(I350_DEV_STATUS) = EFI_DEVICE_ERROR\n"},
      {sim::NvmFamily::I350, 1, "---", "GetMacAddress().PciIo->Mem.Write(I350_EERD:Command) = EFI_DEVICE_ERROR\n"},
      {sim::NvmFamily::I350, 5, "r--", "ERROR: GetMacAddress().PciIo->PollMem = EFI_TIMEOUT\n"},
      {sim::NvmFamily::I350, 9, "rr-", "ERROR: GetMacAddress().PciIo->Mem.Read = EFI_DEVICE_ERROR\n"},
      {sim::NvmFamily::X540, -1, "rrr", "MacAddress[2] = "},
      {sim::NvmFamily::X540, 2, "---", "ReadEEProm:  Read Pointer to Mac Address  returned an Error!! \n"},
      {sim::NvmFamily::X540, 5, "-rr", "Mem.Write(x540_EERD:Command) = EFI_DEVICE_ERROR    LomType = 8\n"},
      {sim::NvmFamily::X540, 7, "-rr", "ReadEEProm:  Read Data Failed   Result = "},
      {sim::NvmFamily::X540, 10, "r-r", "ReadEEProm:  PollMem - Done bit did not go high.  Result = "},
      {sim::NvmFamily::X540, 16, "rr-", "ReadEEProm:  2nd read Read Data Failed   Result = "},
      {sim::NvmFamily::X710, -1, "rrr", "MacAddress[2] = "},
      {sim::NvmFamily::X710, 4, "---", "ERROR: ReadXl710EEProm = EFI_DEVICE_ERROR\n"},
      {sim::NvmFamily::X710, 11, "r--", "ERROR: ReadXl710EEProm = EFI_DEVICE_ERROR\n"},
  };
  constexpr UINT8 kTypes[] = {bds::Intel_i350_Nic, bds::Intel_x550_Nic, bds::Intel_xl710_Nic};
  constexpr UINT64 kDelays[] = {200, 100, 0};
  for (const Case& each : cases) {
    const auto family = static_cast<std::size_t>(each.family);
    SCOPED_TRACE(fmt::format("family {}, access {}", family, each.failing));
    test::DriverMachine server;
    sim::PciFunction function = sim::Network(0, 0, kMac);
    function.bars = {sim::AdapterMemory({.family = each.family, .port = 1, .mac = kMac})};
    sim::DeviceTree tree;
    tree.rootBridges.resize(1);
    tree.rootBridges[0].functions = {std::move(function)};
    sim::BuildDevices(server.machine, std::move(tree), {.connected = true});
    auto* io = bds::HandleProtocol<EFI_PCI_IO_PROTOCOL>(bds::HandlesWith<EFI_PCI_IO_PROTOCOL>()[0]);
    FailingRegisters::Attach(io, each.failing);
    bds::PORT_ADDRESS address;
    const bool read = std::string_view(each.words).find('r') != std::string_view::npos;
    EXPECT_EQ(bds::ReadPortAddress(io, kTypes[family], address), read ? EFI_SUCCESS : EFI_NOT_FOUND);
    for (std::size_t k = 0; k < 3; ++k) {
      const int word = each.words[k] == 'r' ? kMac[2 * k] | kMac[2 * k + 1] << 8 : 0xFFFF;
      EXPECT_EQ(address.Words[k], word) << k;
    }
    EXPECT_TRUE(server.Logged(each.said)) << server.Log();
    for (const UINT64 delay : FailingRegisters::delays) EXPECT_EQ(delay, kDelays[family]);
  }
}

TEST(MacRegisters, AWordsAddressIsCutToItsField) {
  for (const auto& [type, command] :
       {std::pair(bds::Intel_i350_Nic, "w 14 00001ffd"), std::pair(bds::Intel_x540_Nic, "w 10014 00001ffd"),
        std::pair(bds::Intel_x710_Nic, "w b6110 5fffc000")}) {
    test::DriverMachine server;
    std::vector<std::string> accesses;
    sim::PciFunction function = sim::Network(0, 0, kMac);
    function.bars = {{.index = 0,
                      .io = false,
                      .size = sim::kAdapterMemorySize,
                      .model = std::make_shared<Recorder>(sim::AdapterNvm{}, accesses)}};
    sim::DeviceTree tree;
    tree.rootBridges.resize(1);
    tree.rootBridges[0].functions = {std::move(function)};
    sim::BuildDevices(server.machine, std::move(tree), {.connected = true});
    auto* io = bds::HandleProtocol<EFI_PCI_IO_PROTOCOL>(bds::HandlesWith<EFI_PCI_IO_PROTOCOL>()[0]);
    UINT16 word = 0;
    static_cast<void>(type == bds::Intel_x710_Nic ? bds::ReadXl710EEProm(io, 0xFFFF, word)
                                                  : bds::ReadEEProm(io, type, 0xFFFF, word));
    ASSERT_FALSE(accesses.empty());
    EXPECT_EQ(accesses[0], command);
  }
}

// A driver's port whose function does not tell what is asked is left out, and the others are not.
TEST_F(MacInventoryTest, PortsOfDriversThatDoNotTellAreLeftOut) {
  Build(Controller(1, 0), {.mac = kMac});
  static EFI_PCI_IO_PROTOCOL silent;
  silent.Pci.Read = [](EFI_PCI_IO_PROTOCOL*, EFI_PCI_IO_PROTOCOL_WIDTH, UINT32 offset, UINTN, VOID*)
                        EFIAPI { return offset == 0 ? EFI_DEVICE_ERROR : EFI_SUCCESS; };
  static EFI_PCI_IO_PROTOCOL lost;
  lost.Pci.Read = [](EFI_PCI_IO_PROTOCOL*, EFI_PCI_IO_PROTOCOL_WIDTH, UINT32, UINTN, VOID*)
                      EFIAPI { return EFI_SUCCESS; };
  lost.GetLocation = [](EFI_PCI_IO_PROTOCOL*, UINTN*, UINTN*, UINTN*, UINTN*) EFIAPI { return EFI_UNSUPPORTED; };
  test::Data mac(37);
  const unsigned char head[] = {3, 11, 37, 0, 2, 0, 0, 0xAB, 0xCD, 0xEF};
  std::memcpy(mac.data(), head, sizeof(head));
  for (const int byte : {0x7F, 0xFF, 4, 0}) mac.push_back(static_cast<std::byte>(byte));
  static int nii;
  for (EFI_PCI_IO_PROTOCOL* io : {&silent, &lost, static_cast<EFI_PCI_IO_PROTOCOL*>(nullptr)}) {
    mac[9] = static_cast<std::byte>(mac[9] == std::byte{0xEF} ? 1 : 2 + (io == nullptr));  // each its own path
    const EFI_HANDLE handle = NewHandle(mac);
    Install(handle, ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL>, &nii);
    if (io != nullptr) Install(handle, ProtocolGuid<EFI_PCI_IO_PROTOCOL>, io);
  }
  Install(NewHandle(), ProtocolGuid<EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL>, &nii);
  std::vector<std::byte> info(sizeof(PCI_SLOT_INFO));
  Install(reinterpret_cast<PCI_SLOT_INFO*>(info.data()));
  bds::ADAPTER_INVENTORY inventory;
  EXPECT_EQ(bds::GET_MAC_ADDRESS_FROM_NII_PROTOCOL(inventory), EFI_SUCCESS);
  for (const char* said : {"Failed reading VenDevIds = EFI_DEVICE_ERROR\n", "Failed GetLocation = EFI_UNSUPPORTED\n",
                           "Failed LocateDevicePath for PciIO = EFI_NOT_FOUND\n",
                           "ObtainMacAddressFromNiiHandle:Failed HandleProtocol for DP = EFI_UNSUPPORTED\n",
                           "Failed obtaining MACAddress from Handle : "}) {
    EXPECT_TRUE(Logged(said)) << said << Log();
  }
  EXPECT_TRUE(Logged("Interfaces count=0\n"));
}

// The function's own configuration accesses, of which one fails; a write that fails took effect all the same.
struct FailingConfiguration {
  static inline EFI_PCI_IO_PROTOCOL_CONFIG_ACCESS real;
  static inline int left = 0;
  static EFI_STATUS EFIAPI Read(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT32 offset, UINTN count,
                                VOID* buffer) {
    return left-- == 0 ? EFI_DEVICE_ERROR : real.Read(self, width, offset, count, buffer);
  }
  static EFI_STATUS EFIAPI Write(EFI_PCI_IO_PROTOCOL* self, EFI_PCI_IO_PROTOCOL_WIDTH width, UINT32 offset, UINTN count,
                                 VOID* buffer) {
    const EFI_STATUS status = real.Write(self, width, offset, count, buffer);
    return left-- == 0 ? EFI_DEVICE_ERROR : status;
  }
};

TEST_F(MacInventoryTest, DecodingIsLeftAsItWasWhateverFails) {
  sim::PciFunction function = Controller(0x1521, 0x00B9);
  function.memory = false;
  Build(function, {.mac = kMac});
  FailingConfiguration::real = pciIo->Pci;
  int failed = 0;
  for (int place = 0; place < 7; ++place) {
    FailingConfiguration::left = place;
    pciIo->Pci = {FailingConfiguration::Read, FailingConfiguration::Write};
    bds::ADAPTER_INVENTORY inventory;
    EXPECT_EQ(bds::GET_MAC_ADDRESS_FROM_EEPROM(inventory), EFI_SUCCESS);
    pciIo->Pci = FailingConfiguration::real;
    EXPECT_EQ(Command() & 2, 0) << place;
    failed += inventory.gTotalEEPROMDevices == 0 ? 1 : 0;
  }
  EXPECT_EQ(failed, 5);  // ids, subsystem ids, command, switching on, header; switching off comes too late
}

TEST_F(MacInventoryTest, NoAllocationIsMissed) {
  Build(Controller(0x1521, 0x00D5), {.mac = kMac});
  std::vector<std::byte> info(sizeof(PCI_SLOT_INFO));
  Install(reinterpret_cast<PCI_SLOT_INFO*>(info.data()));
  for (int allocation = 0; allocation < 8; ++allocation) {
    FailAllocationAfter(allocation);
    bds::MACAddressInfoInitialize();
    machine.Faults().SetCallHook({});
    EXPECT_EQ(PoolBlocks(), 0U) << allocation;
  }
  EXPECT_TRUE(Logged("EEPROMSupported_AdapterTable[0].CardName Failed! Status = EFI_OUT_OF_RESOURCES\n"));
  EXPECT_TRUE(Logged("Failed memory allocation = "));
  EXPECT_TRUE(Logged("Failed allocating Memory [MacDB] = EFI_OUT_OF_RESOURCES\n"));
  EXPECT_TRUE(Logged("Failed allocating Memory [TempStr] = EFI_OUT_OF_RESOURCES\n"));
}

TEST_F(MacInventoryTest, SlotInformationMayTellMoreThanThereIsRoomFor) {
  constexpr UINT32 kEntries = 70;
  std::vector<std::byte> bytes(sizeof(PCI_SLOT_INFO) + kEntries * sizeof(PCI_SLOT_ENTRY));
  auto& info = *reinterpret_cast<PCI_SLOT_INFO*>(bytes.data());
  for (UINT32 i = 0; i < kEntries; ++i) {
    PCI_SLOT_ENTRY& entry = info.Entries[i];
    entry = {};
    entry.Kind = 2;
    entry.Enabled = 1;
    entry.SecondaryBus = entry.SubordinateBus = static_cast<UINT8>(i);
    entry.SlotNumber = static_cast<UINT16>(i + 1);
    entry.Name = i == 5 ? nullptr : u"S";
  }
  info.Count = 0xFFFFFFFF;
  Install(&info);
  bds::MACAddressInfoInitialize();
  const sim::Variable* found = Find(u"MacDB", bds::kMacDatabaseGuid);
  ASSERT_NE(found, nullptr);
  ASSERT_EQ(found->data.size(), sizeof(bds::MAC_DATABASE_HEADER));
  bds::MAC_DATABASE_HEADER header{};
  std::memcpy(&header, found->data.data(), sizeof(header));
  EXPECT_EQ(header.SlotCount, 6);
  EXPECT_EQ(UINT16{header.Slots[5].SlotId}, 6);
  EXPECT_EQ(header.Slots[5].Name[0], 0);
  EXPECT_EQ(UINT16{header.Lom.SlotId}, 0);
  EXPECT_TRUE(Logged("MacDB has no room for slot 64, leaving it out\n"));
  EXPECT_FALSE(Logged("slot 65"));
}

TEST_F(MacInventoryTest, AddressesOfDriversComeFromSoundPaths) {
  struct Case {
    std::vector<int> path;
    EFI_STATUS status;
  };
  std::vector<int> whole{3, 11, 37, 0, 2, 0, 0, 0xAB, 0xCD, 0xEF};
  whole.resize(37);
  std::vector<int> cut{3, 11, 10, 0, 2, 0, 0, 0xAB, 0xCD, 0xEF, 0x7F, 0xFF, 4, 0};
  std::vector<int> behindEnd{0x7F, 0x01, 4, 0};
  behindEnd.insert(behindEnd.end(), whole.begin(), whole.end());
  for (std::vector<int>* path : {&whole, &behindEnd}) {
    path->insert(path->end(), {0x7F, 0xFF, 4, 0});
  }
  const Case cases[] = {{whole, EFI_SUCCESS},          {cut, EFI_NOT_FOUND},
                        {behindEnd, EFI_NOT_FOUND},    {{0x7F, 0xFF, 4, 0}, EFI_NOT_FOUND},
                        {{1, 1, 0, 0}, EFI_NOT_FOUND}, {{}, EFI_DEVICE_ERROR}};
  for (const Case& each : cases) {
    test::Data bytes;
    for (const int byte : each.path) bytes.push_back(static_cast<std::byte>(byte));
    const UINT8* mac = nullptr;
    EXPECT_EQ(bds::ObtainMacAddressFromNiiHandle(NewHandle(bytes), mac), each.status);
    EXPECT_EQ(mac != nullptr && std::memcmp(mac, kMac.data(), 6) == 0, each.status == EFI_SUCCESS);
  }
}

}  // namespace

// Bus numbers, configuration space and PCI I/O.
#include "platform/pci_config.h"
#include "sim/bus/pci_io.h"
#include "sim/bus/root_bridge_io.h"
#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

RootBridge TwoLevels() {
  RootBridge root;
  root.functions = {Isa(0x1F, 0), Ahci(0x1F, 2, {}),
                    Bridge(1, 0, {Bridge(0, 0, {Network(0, 0, {1}), Network(0, 1, {2})})}),
                    Bridge(2, 0, {Display(0, 0, false)})};
  return root;
}

TEST(PciNumbers, BridgesTellTheBusesBehindThem) {
  std::uint32_t address = 0xC0000000;
  const RootBridge root = TwoLevels();
  const auto nodes = EnumeratePci(root, address);
  ASSERT_EQ(nodes.size(), 8U);
  std::vector<std::string> places;
  for (const auto& node : nodes) {
    const PciLocation& at = node->Location();
    places.push_back(std::to_string(at.bus) + ":" + std::to_string(at.device) + "." + std::to_string(at.function));
  }
  EXPECT_EQ(places,
            (std::vector<std::string>{"0:1.0", "1:0.0", "2:0.0", "2:0.1", "0:2.0", "3:0.0", "0:31.0", "0:31.2"}));
  const auto buses = [&](std::size_t node) { return nodes[node]->ReadConfig(0x18, 4) & 0xFFFFFF; };
  EXPECT_EQ(buses(0), 0x020100U);
  EXPECT_EQ(buses(1), 0x020201U);
  EXPECT_EQ(buses(4), 0x030300U);
  EXPECT_EQ(nodes[0]->ReadConfig(PCI_HEADER_TYPE_OFFSET, 1), 1U);
  EXPECT_EQ(nodes[2]->ReadConfig(PCI_HEADER_TYPE_OFFSET, 1), 0x80U) << "two functions";
  EXPECT_EQ(nodes[5]->ReadConfig(8, 4), 0x03000000U);
}

TEST(PciNumbers, AbsentBridgeTakesNoNumber) {
  RootBridge root = TwoLevels();
  root.functions[2].present = false;
  std::uint32_t address = 0xC0000000;
  const auto nodes = EnumeratePci(root, address);
  ASSERT_EQ(nodes.size(), 4U);
  EXPECT_EQ(nodes[1]->Location().bus, 1);
}

TEST(PciNumbers, GivenSecondaryBusIsTakenAndTheLastBusRespected) {
  RootBridge root;
  root.lastBus = 0x20;
  root.functions = {Bridge(1, 0, {Network(0, 0, {1})}), Bridge(2, 0, {Network(0, 0, {2})})};
  std::get<PciBridge>(root.functions[0].controller).secondaryBus = 0x20;
  std::uint32_t address = 0xC0000000;
  const auto nodes = EnumeratePci(root, address);
  ASSERT_EQ(nodes.size(), 3U) << "no number is left for the second bridge";
  EXPECT_EQ(nodes[1]->Location().bus, 0x20);
}

class CountingBar final : public BarModel {
 public:
  std::uint64_t Read(std::uint64_t offset, unsigned width) override { return offset * 0x100 + width; }
  void Write(std::uint64_t offset, unsigned, std::uint64_t value) override { last = {offset, value}; }
  std::pair<std::uint64_t, std::uint64_t> last;
};

class PciIoTest : public testing::Test {
 protected:
  PciIoTest() {
    model_ = std::make_shared<CountingBar>();
    root_.functions = {Display(2, 0, true)};
    root_.functions[0].bars = {{.index = 1, .io = false, .size = 0x1000, .model = model_}};
    root_.functions[0].vendorId = 0x102B;
    bridge_ = std::make_unique<RootBridgeIo>(root_, address_, bus_.context);
    pci_ = std::make_unique<PciIo>(*bridge_->Nodes()[0], bus_.context);
    io_ = ProtocolOf<EFI_PCI_IO_PROTOCOL>(*pci_);
  }

  FakeBus bus_;
  std::uint32_t address_ = 0xC0000000;
  RootBridge root_;
  std::shared_ptr<CountingBar> model_;
  std::unique_ptr<RootBridgeIo> bridge_;
  std::unique_ptr<PciIo> pci_;
  EFI_PCI_IO_PROTOCOL* io_ = nullptr;
};

TEST_F(PciIoTest, ConfigurationIsReadInAllWidths) {
  UINT16 vendor = 0;
  ASSERT_EQ(io_->Pci.Read(io_, EfiPciIoWidthUint16, 0, 1, &vendor), EFI_SUCCESS);
  EXPECT_EQ(vendor, 0x102B);
  UINT8 codes[4] = {};
  ASSERT_EQ(io_->Pci.Read(io_, EfiPciIoWidthUint8, 8, 4, codes), EFI_SUCCESS);
  EXPECT_EQ(codes[3], 3);
  UINT32 word = 0;
  EXPECT_EQ(io_->Pci.Read(io_, EfiPciIoWidthUint32, 2, 1, &word), EFI_INVALID_PARAMETER) << "not aligned";
  EXPECT_EQ(io_->Pci.Read(io_, EfiPciIoWidthUint32, 4096, 1, &word), EFI_UNSUPPORTED);
  EXPECT_EQ(io_->Pci.Read(io_, EfiPciIoWidthMaximum, 0, 1, &word), EFI_INVALID_PARAMETER);
  UINTN place[4] = {9, 9, 9, 9};
  ASSERT_EQ(io_->GetLocation(io_, &place[0], &place[1], &place[2], &place[3]), EFI_SUCCESS);
  EXPECT_EQ(place[2], 2U);
}

TEST_F(PciIoTest, MemoryReachesTheModelWithinItsSize) {
  UINT32 values[2] = {};
  ASSERT_EQ(io_->Mem.Read(io_, EfiPciIoWidthUint32, 1, 0x10, 2, values), EFI_SUCCESS);
  EXPECT_EQ(values[1], 0x1404U);
  ASSERT_EQ(io_->Mem.Read(io_, EfiPciIoWidthFifoUint32, 1, 0x10, 2, values), EFI_SUCCESS);
  EXPECT_EQ(values[1], 0x1004U);
  EXPECT_EQ(io_->Mem.Read(io_, EfiPciIoWidthUint32, 1, 0xFFE, 1, values), EFI_UNSUPPORTED);
  EXPECT_EQ(io_->Mem.Read(io_, EfiPciIoWidthUint32, 0, 0, 1, values), EFI_UNSUPPORTED) << "no such register";
  EXPECT_EQ(io_->Io.Read(io_, EfiPciIoWidthUint32, 1, 0, 1, values), EFI_UNSUPPORTED) << "memory, not I/O";
  UINT32 out = 0xABCD;
  ASSERT_EQ(io_->Mem.Write(io_, EfiPciIoWidthUint32, 1, 0x20, 1, &out), EFI_SUCCESS);
  EXPECT_EQ(model_->last, (std::pair<std::uint64_t, std::uint64_t>{0x20, 0xABCD}));
  auto* bridge = ProtocolOf<EFI_PCI_ROOT_BRIDGE_IO_PROTOCOL>(*bridge_);
  ASSERT_EQ(bridge->Mem.Read(bridge, EfiPciWidthUint32, 0xC0000010, 1, values), EFI_SUCCESS);
  EXPECT_EQ(values[0], 0x1004U);
}

}  // namespace
}  // namespace sim::test

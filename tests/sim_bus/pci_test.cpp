// Bus numbers, configuration space and PCI I/O.
#include "platform/pci_config.h"
#include "sim/bus/pci_io.h"
#include "sim/bus/root_bridge_io.h"
#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

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

class PciIoTest : public testing::Test {
 protected:
  PciIoTest() {
    root_.functions = {Display(2, 0, true)};
    root_.functions[0].vendorId = 0x102B;
    bridge_ = std::make_unique<RootBridgeIo>(root_, space_, bus_.context);
    pci_ = std::make_unique<PciIo>(*bridge_->Nodes()[0], bus_.context);
    io_ = ProtocolOf<EFI_PCI_IO_PROTOCOL>(*pci_);
  }

  FakeBus bus_;
  PciSpace space_;
  RootBridge root_;
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

}  // namespace
}  // namespace sim::test

// The checks of a device tree.
#include "sim/bus/device_tree.h"

#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

std::string CheckFunctions(std::vector<PciFunction> functions) {
  DeviceTree tree;
  tree.rootBridges.resize(1);
  tree.rootBridges[0].functions = std::move(functions);
  return CheckDeviceTree(tree);
}

TEST(DeviceTreeCheck, FaultsAreNamed) {
  const BlockSourcePtr disk = NumberedDisk(4);
  PciFunction wide = Isa(0x1F, 0);
  wide.device = 32;
  PciFunction oddBar = Isa(1, 0);
  oddBar.bars = {{.index = 0, .io = false, .size = 100, .model = nullptr}};
  const struct {
    std::vector<PciFunction> functions;
    const char* fault;
  } cases[] = {{{Isa(0x1F, 0), Ahci(0x1F, 0, {})}, "1f.0: the place is taken"},
               {{wide}, "device is 0 to 31"},
               {{oddBar}, "power of two"},
               {{Ahci(1, 0, {SataDisk(2, disk), SataDvd(2, disk)})}, "SATA port 2"},
               {{UsbHost(1, 0, {UsbHub(0, {UsbStick(3, disk), UsbKeyboard(3)})})}, "USB port 3"},
               {{Nvme(1, 0, {NvmeNamespace{true, 0, 0, {}}})}, "begin at 1"},
               {{Bridge(1, 0, {Isa(0, 0), Isa(0, 0)})}, "01.0, function 00.0: the place is taken"}};
  for (const auto& item : cases) {
    const std::string fault = CheckFunctions(item.functions);
    EXPECT_NE(fault.find(item.fault), std::string::npos) << "'" << fault << "' instead of " << item.fault;
  }
}

}  // namespace
}  // namespace sim::test

// Which drivers are asked for a controller, in which order, and how they let go of it.
#include "platform/bus_specific_driver_override.h"
#include "platform/driver_family_override.h"
#include "platform/platform_driver_override.h"
#include "sim/firmware/sim_driver.h"
#include "tests/sim_firmware/firmware_fixture.h"

namespace sim {
namespace {

// Opens kRed by driver and writes down what it is asked.
class Scribe : public SimDriver {
 public:
  Scribe(Machine& machine, std::string& asked, char name, UINT32 version = 0x10)
      : SimDriver(machine, u"scribe", version), machine_(machine), asked_(asked), name_(name) {}

  EFI_STATUS Supported(EFI_HANDLE, EFI_DEVICE_PATH_PROTOCOL*) override {
    asked_ += name_;
    return willing ? EFI_SUCCESS : EFI_UNSUPPORTED;
  }
  EFI_STATUS Start(EFI_HANDLE controller, EFI_DEVICE_PATH_PROTOCOL*) override {
    void* interface = nullptr;
    return machine_.Handles().OpenProtocol(controller, &kRed, &interface, Handle(), controller,
                                           EFI_OPEN_PROTOCOL_BY_DRIVER);
  }
  EFI_STATUS Stop(EFI_HANDLE controller, const std::vector<EFI_HANDLE>& children) override {
    stops.push_back(children);
    if (EFI_ERROR(stopStatus)) {
      return stopStatus;
    }
    for (const EFI_HANDLE child : children) {
      EXPECT_EQ(machine_.Handles().CloseProtocol(controller, &kRed, Handle(), child), EFI_SUCCESS);
    }
    if (children.empty() && letsGo) {
      EXPECT_EQ(machine_.Handles().CloseProtocol(controller, &kRed, Handle(), controller), EFI_SUCCESS);
    }
    return EFI_SUCCESS;
  }
  void Adopt(EFI_HANDLE controller, EFI_HANDLE child) {
    void* interface = nullptr;
    EXPECT_EQ(machine_.Handles().OpenProtocol(controller, &kRed, &interface, Handle(), child,
                                              EFI_OPEN_PROTOCOL_BY_CHILD_CONTROLLER),
              EFI_SUCCESS);
  }

  bool willing = false;
  bool letsGo = true;
  EFI_STATUS stopStatus = EFI_SUCCESS;
  std::vector<std::vector<EFI_HANDLE>> stops;

 private:
  Machine& machine_;
  std::string& asked_;
  char name_;
};

class ConnectTest : public FirmwareTest {
 protected:
  std::string asked;
  EFI_HANDLE device = NewHandle(kRed);
  EFI_HANDLE child = NewHandle(kBlue);
  EFI_HANDLE otherChild = NewHandle(kBlue);
};

EFI_HANDLE gPlatformChoice = nullptr;
EFI_HANDLE gBusChoice = nullptr;

EFI_STATUS EFIAPI PlatformDriver(EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL*, EFI_HANDLE, EFI_HANDLE* image) {
  const bool first = *image == nullptr;
  *image = gPlatformChoice;
  return first ? EFI_SUCCESS : EFI_NOT_FOUND;
}
EFI_STATUS EFIAPI BusDriver(EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL*, EFI_HANDLE* image) {
  *image = gBusChoice;  // names the same driver for ever
  return EFI_SUCCESS;
}
UINT32 EFIAPI FamilyVersion(EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL*) { return 5; }

TEST_F(ConnectTest, DriversAreAskedInTheOrderOfTheStandard) {
  Scribe low(machine, asked, 'l', 0x10);
  Scribe bus(machine, asked, 'b', 0x11);
  Scribe family(machine, asked, 'f', 0x12);
  Scribe platform(machine, asked, 'p', 0x13);
  Scribe context(machine, asked, 'c', 0x14);
  Scribe high(machine, asked, 'h', 0x20);
  EXPECT_EQ(bs->ConnectController(device, nullptr, nullptr, FALSE), EFI_NOT_FOUND);
  EXPECT_EQ(asked, "hcpfbl") << "by version alone";

  gPlatformChoice = platform.Handle();
  gBusChoice = bus.Handle();
  EFI_PLATFORM_DRIVER_OVERRIDE_PROTOCOL platformOverride{PlatformDriver, nullptr, nullptr};
  EFI_BUS_SPECIFIC_DRIVER_OVERRIDE_PROTOCOL busOverride{BusDriver};
  EFI_DRIVER_FAMILY_OVERRIDE_PROTOCOL familyOverride{FamilyVersion};
  EFI_HANDLE anywhere = nullptr;
  EFI_HANDLE familyHandle = family.Handle();
  machine.Install(anywhere, &platformOverride);
  machine.Install(device, &busOverride);
  machine.Install(familyHandle, &familyOverride);
  asked.clear();
  EFI_HANDLE images[] = {context.Handle(), nullptr};
  EXPECT_EQ(bs->ConnectController(device, images, nullptr, FALSE), EFI_NOT_FOUND);
  EXPECT_EQ(asked, "cpfbhl");
  DevicePath empty;
  EXPECT_EQ(bs->ConnectController(device, nullptr, empty.Get(), FALSE), EFI_SUCCESS) << "nothing more was wanted";

  asked.clear();
  bus.willing = true;
  EXPECT_EQ(bs->ConnectController(device, nullptr, nullptr, FALSE), EFI_SUCCESS);
  EXPECT_EQ(asked, "pfbpfhcl") << "after a start the others are asked again";
}

TEST_F(ConnectTest, DisconnectStopsTheChildrenThenTheController) {
  Scribe driver(machine, asked, 'd');
  EXPECT_EQ(bs->DisconnectController(device, nullptr, nullptr), EFI_SUCCESS) << "nobody manages it";
  ASSERT_EQ(driver.Start(device, nullptr), EFI_SUCCESS);
  driver.Adopt(device, child);
  driver.Adopt(device, otherChild);
  EXPECT_EQ(bs->DisconnectController(device, device, nullptr), EFI_INVALID_PARAMETER) << "no driver";
  EXPECT_EQ(bs->DisconnectController(device, driver.Handle(), device), EFI_NOT_FOUND) << "no child of it";
  EXPECT_TRUE(driver.stops.empty());
  EXPECT_EQ(bs->DisconnectController(device, nullptr, child), EFI_SUCCESS);
  EXPECT_THAT(driver.stops, testing::ElementsAre(std::vector<EFI_HANDLE>{child}));
  EXPECT_EQ(bs->DisconnectController(device, driver.Handle(), otherChild), EFI_SUCCESS);
  EXPECT_THAT(driver.stops, testing::ElementsAre(std::vector<EFI_HANDLE>{child}, std::vector<EFI_HANDLE>{otherChild},
                                                 std::vector<EFI_HANDLE>{}));
  EXPECT_TRUE(machine.Handles().Find(device, kRed)->opens.empty());
}

TEST_F(ConnectTest, ExclusiveOpenNeedsADriverThatLetsGo) {
  Scribe driver(machine, asked, 'd');
  ASSERT_EQ(driver.Start(device, nullptr), EFI_SUCCESS);
  void* interface = nullptr;
  const auto open = [&] {
    return bs->OpenProtocol(device, &kRed, &interface, child, nullptr, EFI_OPEN_PROTOCOL_EXCLUSIVE);
  };
  driver.stopStatus = EFI_TIMEOUT;
  EXPECT_EQ(open(), EFI_ACCESS_DENIED);
  EXPECT_EQ(bs->DisconnectController(device, nullptr, nullptr), EFI_DEVICE_ERROR);
  driver.stopStatus = EFI_SUCCESS;
  driver.letsGo = false;
  EXPECT_EQ(open(), EFI_ACCESS_DENIED) << "it said that it stopped";
  driver.letsGo = true;
  EXPECT_EQ(open(), EFI_SUCCESS);
}

}  // namespace
}  // namespace sim

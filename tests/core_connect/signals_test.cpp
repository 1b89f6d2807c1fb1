// Milestones: which listeners run, in order.
#include <gmock/gmock.h>

#include "core/steps.h"
#include "platform/firmware_volume2.h"
#include "platform/signals.h"
#include "sim/firmware/services/platform_records.h"
#include "support/event.h"
#include "tests/support/driver_fixture.h"

namespace {

using testing::ElementsAre;

struct Listener {
  std::vector<std::string>* Order;
  const char* Name;
};
VOID EFIAPI OnSignal(EFI_EVENT, VOID* context) {
  const auto& listener = *static_cast<Listener*>(context);
  listener.Order->push_back(listener.Name);
}

class SignalsTest : public test::DriverTest {
 protected:
  std::vector<std::string> order;
};

TEST_F(SignalsTest, EachStepSignalsItsOwnProtocol) {
  const struct {
    void (*Step)();
    EFI_GUID Guid;
    std::size_t Left;  // handles that still carry it
  } cases[] = {
      {bds::SignalConnectDriversEvent, kConnectDriversSignalGuid, 0},
      {bds::SignalEndOfDxe, kDxeSmmReadyToLockGuid, 0},
      {bds::SignalAllDriversConnectedEvent, kAllDriversConnectedSignalGuid, 0},
      {+[] { static_cast<void>(bds::SignalCompletePowerManagementProtocolEvent()); },
       kCompletePowerManagementSignalGuid, 1},
      {+[] { static_cast<void>(bds::SignalExitPmAuthProtocolEvent()); }, kExitPmAuthSignalGuid, 1},
  };
  for (const auto& row : cases) {
    order.clear();
    Listener listener{&order, "signal"};
    bds::Event event;
    void* registration = nullptr;
    ASSERT_EQ(event.Create(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, OnSignal, &listener), EFI_SUCCESS);
    ASSERT_EQ(machine.BootServices()->RegisterProtocolNotify(&row.Guid, event.get(), &registration), EFI_SUCCESS);
    row.Step();
    EXPECT_THAT(order, ElementsAre("signal"));
    EXPECT_EQ(machine.Handles().With(row.Guid).size(), row.Left);
  }
}

TEST_F(SignalsTest, TheEndOfDxeSavesThenSignalsThenLocks) {
  sim::AcpiS3SaveModel save;
  ASSERT_EQ(save.Install(machine.BootServices()), EFI_SUCCESS);
  EFI_FIRMWARE_VOLUME2_PROTOCOL volumes[2]{};
  EFI_HANDLE first = Install(&volumes[0]);
  EFI_HANDLE second = Install(&volumes[1]);
  Listener end{&order, "end of DXE"};
  Listener lock{&order, "lock"};
  bds::Event event;
  ASSERT_EQ(event.CreateInGroup(gEfiEndOfDxeEventGroupGuid, OnSignal, &end), EFI_SUCCESS);
  ASSERT_EQ(bds::NotifyOnProtocol(kDxeSmmReadyToLockGuid, OnSignal, &lock), EFI_SUCCESS);
  bds::SignalEndOfDxe();
  EXPECT_EQ(save.Saves(), 1U);
  EXPECT_THAT(order, ElementsAre("end of DXE", "lock"));
  EXPECT_THAT(std::vector<EFI_HANDLE>(bds::gCore.FirmwareVolumes.begin(), bds::gCore.FirmwareVolumes.end()),
              ElementsAre(first, second));
}

}  // namespace

// Milestones: what is reported and which listeners run, in order.
#include <gmock/gmock.h>

#include "core/steps.h"
#include "platform/firmware_volume2.h"
#include "platform/signals.h"
#include "sim/firmware/services/platform_records.h"
#include "support/event.h"
#include "tests/support/driver_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
  void SetUp() override { ASSERT_EQ(recorder.Install(machine.BootServices()), EFI_SUCCESS); }
  std::vector<UINT32> Codes() const {
    std::vector<UINT32> codes;
    for (const auto& record : recorder.Records()) {
      EXPECT_EQ(record.type, EFI_PROGRESS_CODE);
      EXPECT_EQ(record.instance, 0U);
      codes.push_back(record.value);
    }
    return codes;
  }
  sim::StatusCodeRecorder recorder;
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

TEST_F(SignalsTest, ProgressCodes) {
  bds::SignalConnectDriversEvent();
  bds::ReportConnectConOutProgressCode();
  bds::ReportConnectConInProgressCode();
  bds::ConInAvailabilityBeep();
  bds::SignalEndOfDxe();
  EXPECT_THAT(Codes(), ElementsAre(0x03051005U, 0x01030000U, 0x01010000U, 0x00008101U, 0x03051005U));
  EXPECT_EQ(bds::PciOptionRomControlLibInitialize(), EFI_SUCCESS);
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

using BareSignalsTest = test::DriverTest;

TEST_F(BareSignalsTest, EveryStepToleratesWhatIsMissing) {
  bds::SignalConnectDriversEvent();
  bds::SignalEndOfDxe();
  bds::ConInAvailabilityBeep();
  EXPECT_EQ(bds::gCore.FirmwareVolumes.Count, 0U);
  EXPECT_EQ(Log(), "");
}

}  // namespace

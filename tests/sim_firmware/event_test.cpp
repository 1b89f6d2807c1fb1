// Events: the order in which notifications run, timers on the virtual clock, groups, and waiting.
#include "sim/firmware/image/image_service.h"
#include "tests/sim_firmware/firmware_fixture.h"

namespace sim {
namespace {

class EventTest : public FirmwareTest {
 protected:
  struct Note {
    EventTest* test;
    char name;
    EFI_TPL priority;
  };
  static VOID EFIAPI OnNote(EFI_EVENT, VOID* context) {
    const auto* note = static_cast<Note*>(context);
    note->test->ran += note->name;
    note->test->times.push_back(note->test->machine.Time().Now());
    EXPECT_EQ(note->test->machine.Events().CurrentTpl(), note->priority);
  }
  EFI_EVENT Make(char name, EFI_TPL priority = TPL_CALLBACK, UINT32 type = EVT_NOTIFY_SIGNAL,
                 const EFI_GUID* group = nullptr) {
    notes_.push_back(std::make_unique<Note>(Note{this, name, priority}));
    EFI_EVENT event = nullptr;
    EXPECT_EQ(bs->CreateEventEx(type, priority, OnNote, notes_.back().get(), group, &event), EFI_SUCCESS);
    return event;
  }
  EFI_EVENT Plain(UINT32 type = 0) {
    EFI_EVENT event = nullptr;
    EXPECT_EQ(bs->CreateEvent(type, 0, nullptr, nullptr, &event), EFI_SUCCESS);
    return event;
  }

  std::string ran;
  std::vector<Ticks> times;

 private:
  std::vector<std::unique_ptr<Note>> notes_;
};

TEST_F(EventTest, PriorityDecidesTheOrderThenTheSignal) {
  const EFI_EVENT a = Make('a', TPL_CALLBACK);
  const EFI_EVENT b = Make('b', TPL_NOTIFY);
  const EFI_EVENT c = Make('c', TPL_CALLBACK);
  const EFI_EVENT d = Make('d', TPL_NOTIFY);
  const EFI_TPL old = bs->RaiseTPL(TPL_NOTIFY);
  for (const EFI_EVENT event : {c, d, a, b, c}) {
    bs->SignalEvent(event);
  }
  EXPECT_EQ(ran, "");
  bs->RestoreTPL(TPL_CALLBACK);
  EXPECT_EQ(ran, "db");
  bs->RestoreTPL(old);
  EXPECT_EQ(ran, "dbca") << "signalled twice, run once";
  bs->SignalEvent(c);
  EXPECT_EQ(ran, "dbcac");
}

TEST_F(EventTest, PriorityChangesAgainstTheRulesAreCounted) {
  bs->RaiseTPL(TPL_NOTIFY);
  bs->RaiseTPL(TPL_CALLBACK);
  EXPECT_TRUE(machine.Counts().HasComplaint("RaiseTPL to 8"));
  bs->RestoreTPL(TPL_HIGH_LEVEL);
  EXPECT_TRUE(machine.Counts().HasComplaint("RestoreTPL to 31"));
  EXPECT_EQ(machine.Events().CurrentTpl(), TPL_NOTIFY);
  bs->RestoreTPL(TPL_APPLICATION);
  EFI_EVENT careless = nullptr;
  const auto raise = [](EFI_EVENT, VOID* services)
                         EFIAPI { static_cast<EFI_BOOT_SERVICES*>(services)->RaiseTPL(TPL_NOTIFY); };
  ASSERT_EQ(bs->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, raise, bs, &careless), EFI_SUCCESS);
  bs->SignalEvent(careless);
  EXPECT_TRUE(machine.Counts().HasComplaint("came back at 16"));
  EXPECT_EQ(machine.Events().CurrentTpl(), TPL_APPLICATION);
}

TEST_F(EventTest, ServicesAboveTheirPriorityAreCounted) {
  struct Case {
    EFI_TPL highest;
    std::function<void()> call;
  };
  machine.Attach<ImageService>();
  const EFI_EVENT event = Plain(EVT_TIMER);
  void* block = nullptr;
  UINTN count = 0;
  EFI_GUID** guids = nullptr;
  const Case cases[] = {
      {TPL_APPLICATION, [&] { bs->WaitForEvent(0, nullptr, nullptr); }},
      {TPL_APPLICATION, [&] { bs->LoadImage(FALSE, nullptr, nullptr, nullptr, 0, nullptr); }},
      {TPL_CALLBACK, [&] { bs->UnloadImage(nullptr); }},
      {TPL_NOTIFY, [&] { bs->AllocatePool(EfiBootServicesData, 1, &block); }},
      {TPL_NOTIFY, [&] { bs->ConnectController(nullptr, nullptr, nullptr, FALSE); }},
      {TPL_NOTIFY, [&] { bs->ProtocolsPerHandle(nullptr, &guids, &count); }},
      {TPL_HIGH_LEVEL - 1, [&] { bs->SetTimer(event, TimerCancel, 0); }},
      {TPL_HIGH_LEVEL, [&] { bs->SignalEvent(event); }},
      {TPL_HIGH_LEVEL, [&] { bs->Stall(1); }},
  };
  int index = 0;
  for (const Case& c : cases) {
    for (const EFI_TPL tpl : {TPL_APPLICATION, TPL_CALLBACK, TPL_NOTIFY, TPL_HIGH_LEVEL}) {
      const auto before = machine.Counts().ComplaintCount();
      bs->RaiseTPL(tpl);
      c.call();
      bs->RestoreTPL(TPL_APPLICATION);
      EXPECT_EQ(machine.Counts().ComplaintCount() - before, tpl > c.highest ? 1u : 0u) << index << " at " << tpl;
    }
    ++index;
  }
}

TEST_F(EventTest, TimesBeyondTheEndOfTimeDoNotWrapAround) {
  const EFI_EVENT timer = Make('t', TPL_CALLBACK, EVT_TIMER | EVT_NOTIFY_SIGNAL);
  bs->Stall(10);
  EXPECT_EQ(bs->SetTimer(timer, TimerRelative, ~UINT64{0}), EFI_SUCCESS);
  bs->Stall(1000);
  EXPECT_EQ(ran, "");
  const BootOutcome outcome = machine.Run([&] { return bs->Stall(~UINTN{0}); });
  EXPECT_EQ(outcome.end, BootEnd::TimeLimit);
}

TEST_F(EventTest, CreateRefusesWhatTheStandardDoes) {
  struct Case {
    UINT32 type;
    EFI_TPL tpl;
    bool notify;
    bool group;
    EFI_STATUS status;
  };
  const Case cases[] = {
      {0, 0, false, false, EFI_SUCCESS},
      {EVT_TIMER, 0, false, false, EFI_SUCCESS},
      {EVT_NOTIFY_SIGNAL, TPL_CALLBACK, true, true, EFI_SUCCESS},
      {EVT_NOTIFY_SIGNAL, TPL_CALLBACK, false, false, EFI_INVALID_PARAMETER},
      {EVT_NOTIFY_WAIT, TPL_APPLICATION, true, false, EFI_INVALID_PARAMETER},
      {EVT_NOTIFY_WAIT, TPL_HIGH_LEVEL, true, false, EFI_INVALID_PARAMETER},
      {EVT_NOTIFY_WAIT | EVT_NOTIFY_SIGNAL, TPL_CALLBACK, true, false, EFI_INVALID_PARAMETER},
      {0x00000400, TPL_CALLBACK, true, false, EFI_INVALID_PARAMETER},
      {EVT_SIGNAL_EXIT_BOOT_SERVICES, TPL_CALLBACK, true, false, EFI_SUCCESS},
      {EVT_SIGNAL_EXIT_BOOT_SERVICES, TPL_CALLBACK, true, true, EFI_INVALID_PARAMETER},
      {EVT_SIGNAL_VIRTUAL_ADDRESS_CHANGE, TPL_CALLBACK, true, true, EFI_INVALID_PARAMETER},
  };
  for (const Case& c : cases) {
    EFI_EVENT event = nullptr;
    EXPECT_EQ(bs->CreateEventEx(c.type, c.tpl, c.notify ? OnNote : nullptr, nullptr, c.group ? &kRed : nullptr, &event),
              c.status)
        << std::hex << c.type;
  }
  const EFI_EVENT plain = Plain();
  EXPECT_EQ(bs->SetTimer(plain, TimerRelative, 1), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs->CheckEvent(Make('n')), EFI_INVALID_PARAMETER);
  EXPECT_EQ(bs->CloseEvent(plain), EFI_SUCCESS);
  EXPECT_EQ(bs->CloseEvent(plain), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(machine.Counts().HasComplaint("closed twice"));
}

TEST_F(EventTest, ClosingAQueuedEventTakesItsNotificationAway) {
  const EFI_EVENT event = Make('a');
  const EFI_TPL old = bs->RaiseTPL(TPL_NOTIFY);
  bs->SignalEvent(event);
  bs->CloseEvent(event);
  bs->RestoreTPL(old);
  EXPECT_EQ(ran, "");
}

TEST_F(EventTest, WaitGivesTheFirstSignalledEventAndClearsIt) {
  EFI_EVENT events[] = {Plain(), Plain(EVT_TIMER), Plain()};
  UINTN index = 9;
  bs->SignalEvent(events[2]);
  EXPECT_EQ(bs->WaitForEvent(3, events, &index), EFI_SUCCESS);
  EXPECT_EQ(index, 2u);
  bs->SetTimer(events[1], TimerRelative, 3 * kSecond);
  EXPECT_EQ(bs->WaitForEvent(3, events, &index), EFI_SUCCESS);
  EXPECT_EQ(index, 1u);
  EXPECT_EQ(machine.Time().Now() / kSecond, 3u);
  EXPECT_EQ(bs->CheckEvent(events[1]), EFI_NOT_READY);
  EXPECT_EQ(bs->WaitForEvent(0, events, &index), EFI_INVALID_PARAMETER);
  events[0] = Make('n');
  EXPECT_EQ(bs->WaitForEvent(3, events, &index), EFI_INVALID_PARAMETER);
  EXPECT_EQ(index, 0u);
  bs->RaiseTPL(TPL_CALLBACK);
  EXPECT_EQ(bs->WaitForEvent(3, events, &index), EFI_UNSUPPORTED);
}

TEST_F(EventTest, WaitAsksWhetherSomethingHappenedOutsideBeforeItGivesUp) {
  EFI_EVENT key = Plain();
  int asked = 0;
  machine.SetIdle([&] {
    if (++asked == 3) {
      bs->SignalEvent(key);
    }
    return asked < 4;
  });
  UINTN index = 9;
  const BootOutcome outcome = machine.Run([&] {
    EXPECT_EQ(bs->WaitForEvent(1, &key, &index), EFI_SUCCESS);
    EXPECT_EQ(asked, 3);
    return bs->WaitForEvent(1, &key, &index);
  });
  EXPECT_EQ(outcome.end, BootEnd::WaitsForever);
  EXPECT_EQ(asked, 4);
}

}  // namespace
}  // namespace sim

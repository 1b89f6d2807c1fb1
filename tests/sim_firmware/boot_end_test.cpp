// How boots end, what is left of them, and the instructions that are carried out on the simulated registers.
#include <sys/mman.h>

#include <cstring>

#include "tests/sim_firmware/firmware_fixture.h"

namespace sim {
namespace {

class BootEndTest : public FirmwareTest {};

struct Watch {
  bool* gone;
  ~Watch() { *gone = true; }
};

[[gnu::noinline]] int Descend(const std::function<void()>& bottom, int depth) {
  volatile char frame[256];
  std::memset(const_cast<char*>(frame), depth, sizeof(frame));
  if (depth == 0) {
    bottom();
    return 0;
  }
  return Descend(bottom, depth - 1) + frame[3];
}

[[gnu::noinline]] int UseUpTheStack(volatile char* above) {
  volatile char frame[4096];
  frame[0] = above[0];
  return above[0] == 0 ? 0 : UseUpTheStack(frame) + frame[1];
}

TEST_F(BootEndTest, EndsFromDeepInsideAndReleasesWhatWasHeld) {
  bool gone = false;
  const std::function<void()> deep = [this] { machine.EndBoot(BootEnd::Reset, "deep inside"); };
  const BootOutcome outcome = machine.Run([&]() -> EFI_STATUS {
    const AcrossCalls held(machine.Held(), std::make_shared<Watch>(Watch{&gone}));
    gone = false;
    Descend(deep, 100);
    return EFI_SUCCESS;
  });
  EXPECT_EQ(outcome.end, BootEnd::Reset);
  EXPECT_EQ(outcome.text, "deep inside");
  EXPECT_TRUE(gone);
  EXPECT_FALSE(machine.Running());
  EXPECT_THROW(machine.EndBoot(BootEnd::Reset), std::runtime_error);
}

TEST_F(BootEndTest, FaultsOfTheProcessorEndTheBoot) {
  const std::function<void()> faults[] = {
      [] {
        asm volatile("movl $1, (%0)" : : "r"(std::uintptr_t{8}) : "memory");
      },
      [] { asm volatile("ud2"); },
      [] {
        asm volatile("divl %%ecx" : : "a"(1), "d"(0), "c"(0));
      },
      [] {
        asm volatile("wrmsr" : : "a"(0), "d"(0), "c"(0x1B));
      },  // one that nothing here stands in for
      [] {
        volatile char top = 1;
        UseUpTheStack(&top);
      },
      [this] {
        machine.Legacy().SetWritable(0xF0000, 0x1000, false);
        asm volatile("movb $1, (%0)" : : "r"(std::uintptr_t{0xF0010}) : "memory");
      },
  };
  int index = 0;
  for (const auto& fault : faults) {
    machine.SetDriver(reinterpret_cast<EFI_HANDLE>(1), {});  // whose blocks are looked for on the stack
    const BootOutcome outcome = machine.Run([&] {
      fault();
      return EFI_SUCCESS;
    });
    EXPECT_EQ(outcome.end, BootEnd::Crashed) << index;
    ++index;
  }
  std::byte value{7};
  EXPECT_TRUE(machine.Legacy().Write(0xF0010, {&value, 1})) << "the firmware itself passes the lock by";
  EXPECT_TRUE(machine.Legacy().IsLocked(0xF0010));
  EXPECT_EQ(machine.Legacy().At(0xF0010, 1)[0], value);
}

// As a loader uses them around the hand-over to a kernel; software under test that is linked gets the same machine.
TEST_F(BootEndTest, InterruptsAndControlRegistersAreTheSimulatedProcessors) {
  EFI_EVENT timer = nullptr;
  ASSERT_EQ(bs->CreateEvent(EVT_TIMER, 0, nullptr, nullptr, &timer), EFI_SUCCESS);
  ASSERT_EQ(bs->SetTimer(timer, TimerRelative, 10'000'000), EFI_SUCCESS);
  std::uint64_t control = 0;
  bool woken = false;
  const BootOutcome outcome = machine.Run([&] {
    asm volatile("mov %0, %%cr4" : : "r"(std::uint64_t{0x20660}));
    asm volatile("mov %%cr4, %0" : "=r"(control));
    asm volatile("cli; wbinvd; sti; hlt");
    woken = bs->CheckEvent(timer) == EFI_SUCCESS && machine.Time().Now() >= kSecond;
    asm volatile("hlt");
    return EFI_SUCCESS;
  });
  EXPECT_EQ(control, 0x20660u);
  EXPECT_TRUE(woken) << "at " << machine.Time().Now();
  EXPECT_EQ(outcome.end, BootEnd::WaitsForever) << outcome.text;
}

TEST_F(BootEndTest, LoopsThatTakeNoTimeEndByTheirSteps) {
  machine.SetLimits(Machine::kTimeLimit, 10'000);
  const std::function<void()> turns[] = {
      [this] { bs->RestoreTPL(bs->RaiseTPL(TPL_NOTIFY)); },
      [this] {
        UINT64 count = 0;
        bs->GetNextMonotonicCount(&count);
      },
      [this] { machine.Ports().Out(PortBus::kSerialPort, 'x', 1); },
  };
  for (const auto& turn : turns) {
    const BootOutcome outcome = machine.Run([&]() -> EFI_STATUS {
      for (;;) {
        turn();
      }
    });
    EXPECT_EQ(outcome.end, BootEnd::TimeLimit);
    EXPECT_NE(outcome.text.find("10000 service calls"), std::string::npos) << outcome.text;
  }
}

TEST_F(BootEndTest, LoopOnTheClockEndsByItsTime) {
  const BootOutcome outcome = machine.Run([&]() -> EFI_STATUS {
    for (;;) {
      bs->Stall(1'000'000);
    }
  });
  EXPECT_EQ(outcome.end, BootEnd::TimeLimit);
  EXPECT_NE(outcome.text.find("30 virtual minutes"), std::string::npos) << outcome.text;
  EXPECT_EQ(machine.Run([] { return EFI_ABORTED; }).status, EFI_ABORTED) << "the next boot has its own limit";
}

TEST_F(BootEndTest, LeaksAreTheBlocksOfTheDriverThatNobodyReaches) {
  static void* kept[1];
  const EFI_HANDLE driver = NewHandle(kRed);
  machine.SetDriver(driver, {std::as_bytes(std::span(kept))});
  const BootOutcome outcome = machine.Run([&] {
    void* lost = nullptr;
    void* inner = nullptr;
    bs->AllocatePool(EfiBootServicesData, 24, &lost);  // the firmware's own
    machine.PushOwner(driver);
    bs->AllocatePool(EfiBootServicesData, 64, &kept[0]);
    bs->AllocatePool(EfiBootServicesData, 8, &inner);
    static_cast<void**>(kept[0])[2] = inner;
    bs->AllocatePool(EfiBootServicesData, 40, &lost);
    machine.PopOwner();
    return EFI_SUCCESS;
  });
  ASSERT_EQ(outcome.leaks.size(), 1u);
  EXPECT_EQ(outcome.leaks[0].block.size, 40u);
  EXPECT_EQ(outcome.leaks[0].block.serial, 4u);
}

TEST_F(BootEndTest, PoolTellsForeignAndTwiceFreedBlocks) {
  void* block = nullptr;
  ASSERT_EQ(bs->AllocatePool(EfiBootServicesData, 0, &block), EFI_SUCCESS);
  EXPECT_EQ(bs->FreePool(block), EFI_SUCCESS);
  EXPECT_EQ(bs->FreePool(block), EFI_INVALID_PARAMETER);
  int foreign = 0;
  EXPECT_EQ(bs->FreePool(&foreign), EFI_INVALID_PARAMETER);
  EXPECT_EQ(machine.Counts().ComplaintCount(), 2u);
  for (const UINT32 type : {UINT32{EfiConventionalMemory}, UINT32{EfiMaxMemoryType}, 0x6FFFFFFFu}) {
    EXPECT_EQ(bs->AllocatePool(static_cast<EFI_MEMORY_TYPE>(type), 8, &block), EFI_INVALID_PARAMETER) << type;
  }
  ASSERT_EQ(bs->AllocatePool(static_cast<EFI_MEMORY_TYPE>(0x70000000), 8, &block), EFI_SUCCESS);
  EXPECT_EQ(machine.Pool().InUse(), 8u);
}

// in and out are forbidden to programs, so that they arrive at the simulated ports.
TEST_F(BootEndTest, PortInstructionsAreCarriedOutWithTheirWidth) {
  std::vector<std::pair<std::uint32_t, unsigned>> written;
  machine.Ports().Claim(
      0x80, 0x8F, [](std::uint16_t, unsigned width) { return 0xA1B2C300u + width; },
      [&](std::uint16_t, std::uint32_t value, unsigned width) { written.emplace_back(value, width); });
  std::uint64_t byteIn = 0;
  std::uint64_t wordIn = 0;
  std::uint64_t longIn = 0;
  std::uint64_t fixedIn = 0;
  const char text[] = "Hello\r\n";
  const BootOutcome outcome = machine.Run([&] {
    const std::uint64_t old = 0x1122334455667788;
    const std::uint16_t port = 0x80;
    asm volatile("inb %%dx, %%al" : "=a"(byteIn) : "0"(old), "d"(port));
    asm volatile("inw %%dx, %%ax" : "=a"(wordIn) : "0"(old), "d"(port));
    asm volatile("inl %%dx, %%eax" : "=a"(longIn) : "0"(old), "d"(port));
    asm volatile("inb $0x80, %%al" : "=a"(fixedIn) : "0"(old));
    asm volatile("outb %%al, %%dx" : : "a"(old), "d"(port));
    asm volatile("outw %%ax, %%dx" : : "a"(old), "d"(port));
    asm volatile("outl %%eax, %%dx" : : "a"(old), "d"(port));
    asm volatile("outb %%al, $0x81" : : "a"(old));
    const char* source = text;
    std::uint64_t count = 7;
    asm volatile("rep outsb" : "+S"(source), "+c"(count) : "d"(PortBus::kSerialPort) : "memory");
    EXPECT_EQ(source, text + 7);
    EXPECT_EQ(count, 0u);
    return EFI_SUCCESS;
  });
  ASSERT_EQ(outcome.end, BootEnd::Returned) << outcome.text;
  EXPECT_EQ(byteIn, 0x1122334455667701u);
  EXPECT_EQ(wordIn, 0x112233445566C302u);
  EXPECT_EQ(longIn, 0xA1B2C304u);
  EXPECT_EQ(fixedIn, 0x1122334455667701u);
  EXPECT_THAT(written, testing::ElementsAre(std::pair(0x88u, 1u), std::pair(0x7788u, 2u), std::pair(0x55667788u, 4u),
                                            std::pair(0x88u, 1u)));
  EXPECT_EQ(machine.Log().Text(), "Hello\n");
}

}  // namespace
}  // namespace sim

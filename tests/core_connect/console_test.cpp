// Consoles: the order of displays, what lies behind the ISA bridge, and the console variables.
#include <gmock/gmock.h>

#include "core/connect_device_path.h"
#include "core/legacy_io_nodes.h"
#include "core/steps.h"
#include "platform/signals.h"
#include "tests/core_connect/connect_recorder.h"
#include "tests/support/fake_pci.h"

namespace {

using testing::ElementsAre;

class ConsoleTest : public test::ConnectTest {
 protected:
  EFI_HANDLE AddFunction(test::FakePci& pci, sim::DevicePath& path) {
    EFI_HANDLE handle = InstallPath(path);
    EXPECT_EQ(machine.Install(handle, &pci.PciIo), EFI_SUCCESS);
    return handle;
  }
  bool IsInstalled(const EFI_GUID& guid) { return machine.Handles().Find(image, guid) != nullptr; }

  sim::DevicePath paths[4] = {sim::DevicePath().Pci(0, 0), sim::DevicePath().Pci(1, 0), sim::DevicePath().Pci(2, 0),
                              sim::DevicePath().Pci(3, 0)};
};

TEST_F(ConsoleTest, AddInDisplaysComeBeforeEmbeddedOnes) {
  test::FakePci embedded(3, 0);
  embedded.Attributes = 0x2000;
  test::FakePci disk(1, 6);
  test::FakePci addIn(3, 0);
  test::FakePci unreadable(3, 0);
  unreadable.ConfigFails = true;
  EFI_HANDLE first = AddFunction(embedded, paths[0]);
  AddFunction(disk, paths[1]);
  EFI_HANDLE second = AddFunction(addIn, paths[2]);
  AddFunction(unreadable, paths[3]);
  bds::ConnectVgaConOut();
  EXPECT_THAT(recorder.Connected(), ElementsAre(second, first));
}

TEST_F(ConsoleTest, TheDevicesBehindTheIsaBridgeComeInTheirOrderAndTheBridgeIsRemembered) {
  test::FakePci isa(6, 1);
  test::FakePci pciBridge(6, 4);
  AddFunction(pciBridge, paths[0]);
  EFI_HANDLE bridge = AddFunction(isa, paths[1]);
  test::FakePci withoutPath(6, 1);
  Install(&withoutPath.PciIo);
  bds::ConnectPs2ConIn();
  ASSERT_EQ(recorder.Calls.size(), 5U);
  for (const auto& call : recorder.Calls) {
    EXPECT_EQ(call.Controller, bridge);
    EXPECT_FALSE(call.Recursive);
  }
  EXPECT_TRUE(recorder.Calls[0].Rest.Empty());
  EXPECT_EQ(recorder.Calls[1].Rest, sim::DevicePath().Acpi(0x030341D0));
  EXPECT_EQ(recorder.Calls[2].Rest, sim::DevicePath().Acpi(0x0F0341D0));
  EXPECT_EQ(recorder.Calls[3].Rest, sim::DevicePath().Acpi(0x050141D0, 0));
  EXPECT_EQ(recorder.Calls[4].Rest, sim::DevicePath().Acpi(0x050141D0, 1));
  ASSERT_TRUE(bds::gCore.IsaBridgePath);
  EXPECT_NE(bds::gCore.IsaBridgePath.get(), paths[1].Get()) << "the handle's own path goes with the handle";
  EXPECT_EQ(bds::HandleOfWholePath(bds::gCore.IsaBridgePath.get()), bridge);
}

TEST_F(ConsoleTest, StartedMarksNeedTheirDeviceVariable) {
  bds::InstallConOutStartedProtocol();
  bds::InstallConInStartedProtocol();
  EXPECT_FALSE(IsInstalled(kConsoleOutStartedGuid));
  EXPECT_FALSE(IsInstalled(kConsoleInStartedGuid));
  Set(u"ConOutDev", test::DataOf({1}), 6);
  bds::InstallConOutStartedProtocol();
  bds::InstallConInStartedProtocol();
  EXPECT_TRUE(IsInstalled(kConsoleOutStartedGuid));
  EXPECT_FALSE(IsInstalled(kConsoleInStartedGuid));
  bds::InitConVars();
  EXPECT_TRUE(IsInstalled(kConsoleInStartedGuid));
  EXPECT_EQ(machine.Handles().With(kConsoleOutStartedGuid).size(), 1U);
}

TEST_F(ConsoleTest, ConsoleVariablesFollowTheirDevices) {
  const test::Data out = test::DataOf({1, 2, 3});
  const test::Data in = test::DataOf({4, 5});
  const test::Data error = test::DataOf({6});
  const struct {
    const char* What;
    const test::Data* OutDev;
    const test::Data* InDev;
    const test::Data* ErrDev;
    const test::Data* ErrOut;     // expected, 7
    const test::Data* NewErrDev;  // expected, 6
  } cases[] = {{"nothing", nullptr, nullptr, nullptr, nullptr, nullptr},
               {"input only", nullptr, &in, nullptr, nullptr, nullptr},
               {"no error device: errors go to the output", &out, &in, nullptr, &out, &out},
               {"an error device", &out, &in, &error, &error, &error},
               {"an error device alone", nullptr, nullptr, &error, &error, &error}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.What);
    for (const char16_t* name : {u"ConOut", u"ConIn", u"ErrOut", u"ConOutDev", u"ConInDev", u"ErrOutDev"}) {
      static_cast<void>(store.Set(name, gEfiGlobalVariableGuid, 0, {}));
    }
    const std::pair<const char16_t*, const test::Data*> devices[] = {
        {u"ConOutDev", row.OutDev}, {u"ConInDev", row.InDev}, {u"ErrOutDev", row.ErrDev}};
    for (const auto& [name, data] : devices) {
      if (data != nullptr) {
        Set(name, *data, 6);
      }
    }
    bds::InitConVars();
    const std::tuple<const char16_t*, const test::Data*, UINT32> expected[] = {{u"ConOut", row.OutDev, 7},
                                                                               {u"ConIn", row.InDev, 7},
                                                                               {u"ErrOut", row.ErrOut, 7},
                                                                               {u"ErrOutDev", row.NewErrDev, 6}};
    for (const auto& [name, data, attributes] : expected) {
      if (data == nullptr) {
        EXPECT_EQ(Find(name), nullptr) << testing::PrintToString(name);
      } else {
        ExpectVariable(name, attributes, *data);
      }
    }
  }
}

TEST_F(ConsoleTest, AnErrorDeviceThatCannotBeReadIsNotReplaced) {
  for (const char16_t* name : {u"ConOutDev", u"ConInDev", u"ErrOutDev"}) {
    Set(name, test::DataOf({1, 2}), 6);
  }
  machine.Faults().FailCall("GetVariable", 5, EFI_DEVICE_ERROR);  // behind two for each of the others
  bds::InitConVars();
  EXPECT_NE(Find(u"ConIn"), nullptr);
  EXPECT_EQ(Find(u"ErrOut"), nullptr);
}

}  // namespace

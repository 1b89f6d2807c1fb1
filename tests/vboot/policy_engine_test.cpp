// Whether a policy is in force, the tags without one, names from controllers, and the policy debug text.
#include "vboot/policy_engine.h"

#include <gtest/gtest.h>

#include "bootopt/vendor_nodes.h"
#include "flexboot/state.h"
#include "platform/component_name.h"
#include "platform/flexboot_protocol.h"
#include "platform/setup_variable.h"
#include "sim/bus/device_set.h"
#include "support/device_path.h"
#include "tests/support/boot_server.h"
#include "vboot/option_pci.h"
#include "vboot/tag_processors.h"

namespace {

using namespace bdstest;

std::byte gPolicy[400];

void InstallPolicy(FakeServer& firmware, void* interface) {
  firmware.Install(firmware.AddHandle(), ProtocolGuid<FLEXBOOT_ORDER_HEADER>, interface);
}

TEST(HaveVbootPolicy, BootFlowValues) {
  struct Case {
    const char* Name;
    Blob Flow;
    bool Answer;
    const char* Message;
  };
  const Case cases[] = {
      {"F6 keeps the policy", LittleEndian<UINT32>(6), true,
       "HaveVbootPolicy:F6 requested, will present all devices\n"},
      {"F12", LittleEndian<UINT32>(0x1001), false, "HaveVbootPolicy:F12 requested, will present all devices\n"},
      {"F8", LittleEndian<UINT32>(0x1002), false, "HaveVbootPolicy:F8 requested, will present all devices\n"},
      {"F7", LittleEndian<UINT32>(0x1003), false, "HaveVbootPolicy:F7 requested, will present all devices\n"},
      {"SD card", LittleEndian<UINT32>(11), false,
       "HaveVbootPolicy:Quillcard BootOverride requested, will present all devices\n"},
      {"another value", LittleEndian<UINT32>(0x6006), true, ""},
      {"too short to hold a value", B({0x01, 0x10}), true, ""},
      {"longer than a value", LittleEndian<UINT64>(0x1001), false, ""},
      {"absent", {}, true, ""},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.Name);
    FakeServer firmware;
    InstallPolicy(firmware, gPolicy);
    if (!row.Flow.empty()) {
      firmware.SetVariable(kBootFlowName, kBootFlowGuid, 7, row.Flow);
    }
    EXPECT_EQ(bds::HaveVbootPolicy(), row.Answer);
    EXPECT_TRUE(firmware.Logged(row.Message)) << firmware.Log();
  }
}

TEST(HaveVbootPolicy, ReturnsTheInterfaceAndKeepsIt) {
  FakeServer firmware;
  FLEXBOOT_ORDER_HEADER* order = nullptr;
  EXPECT_FALSE(bds::HaveVbootPolicy(&order));
  EXPECT_EQ(order, nullptr);
  EXPECT_TRUE(firmware.Logged("HaveVbootPolicy:Failed locating FlexBootOrder protocol:EFI_NOT_FOUND\n"));
  const EFI_HANDLE handle = firmware.AddHandle();
  firmware.Install(handle, ProtocolGuid<FLEXBOOT_ORDER_HEADER>, gPolicy);
  ASSERT_TRUE(bds::HaveVbootPolicy(&order));
  EXPECT_EQ(static_cast<void*>(order), gPolicy);
  bds::BootServices()->LocateProtocol = nullptr;  // not asked again
  EXPECT_TRUE(bds::HaveVbootPolicy()) << "located once and kept";
  bds::gPolicyEngine.BotUpdatedOldWay = 1;
  EXPECT_FALSE(bds::HaveVbootPolicy());
  EXPECT_TRUE(firmware.Logged("HaveVbootPolicy:BMC Updated BOT in Old way, Returning FALSE\n"));
}

TEST(HaveVbootPolicy, ANullInterfaceIsNoPolicy) {
  FakeServer firmware;
  InstallPolicy(firmware, nullptr);
  EXPECT_FALSE(bds::HaveVbootPolicy());
}

// Adapters whose disks lie under a function other than the path's; each option and each tag looks for it.
TEST(OptionPci, EveryFunctionIsAskedOnceHoweverManyOptionsLookForTheirs) {
  constexpr UINT8 kFunctions = 20;
  FakeServer firmware;
  sim::DeviceTree tree;
  tree.rootBridges.resize(1);
  for (UINT8 i = 0; i < kFunctions; ++i) {
    sim::PciFunction function;
    function.device = i;
    function.vendorId = 0x10DF;
    function.deviceId = 0x100 + i;
    tree.rootBridges[0].functions.push_back(function);
  }
  sim::BuildDevices(firmware.machine, std::move(tree), {.connected = true});
  unsigned opened = 0;
  firmware.machine.Faults().SetCallHook([&](std::string_view service, std::uint64_t) {
    opened += service == "HandleProtocol" || service == "OpenProtocol" ? 1 : 0;
    return std::optional<EFI_STATUS>();
  });
  BBS_TABLE entries[9] = {};
  const auto read = [&](UINT32 device, UINT16& id) {
    BBS_TABLE& entry = entries[device % 9];
    entry.Device = device;
    auto& option = AddOption(PciRoot() + Pci(0, 0) + End());
    option.BbsIndex = 1;
    option.BbsEntry = &entry;
    bds::VBOOT_OPTION_WRAPPER wrapper;
    wrapper.Option = &option;
    bds::PoolPtr<char> message;
    return bds::ReadOptionPciConfig(wrapper, EfiPciIoWidthUint16, 2, &id, message);
  };
  for (const UINT32 device : {19U, 1U, 7U, 0U, 19U}) {
    UINT16 id = 0;
    EXPECT_EQ(read(device, id), EFI_SUCCESS);
    EXPECT_EQ(id, 0x100 + device);
  }
  UINT16 id = 0;
  EXPECT_EQ(read(30, id), EFI_DEVICE_ERROR);
  EXPECT_EQ(read(30, id), EFI_DEVICE_ERROR);
  EXPECT_EQ(opened, kFunctions + 7U);  // and the path's own of each reading
  bds::ForgetPciPlaces();
  firmware.machine.Faults().SetCallHook({});
}

TEST(LoaderTags, WithoutMemoryForALoadersPathTheTagFails) {
  struct Case {
    int allocations;  // that succeed
    EFI_STATUS expected;
    UINTN matches;
    const char* message;
  };
  const Case cases[] = {{0, EFI_OUT_OF_RESOURCES, 0, ""},  // the pattern
                        {1, EFI_OUT_OF_RESOURCES, 0, "no memory for a loader's path"},
                        {2, EFI_OUT_OF_RESOURCES, 1, "no memory for a loader's path"},
                        {9, EFI_SUCCESS, 2, ""}};
  for (const Case& each : cases) {
    SCOPED_TRACE(each.allocations);
    FakeServer firmware;
    EFI_UNICODE_COLLATION_PROTOCOL collation{};
    collation.MetaiMatch = [](EFI_UNICODE_COLLATION_PROTOCOL*, const CHAR16*, const CHAR16*)
                               EFIAPI -> BOOLEAN { return TRUE; };
    bds::gFlexBoot.Collation = &collation;
    bds::VBOOT_OPTION_WRAPPER wrappers[2];
    bds::OPTION_WRAPPER_LIST list;
    for (auto& wrapper : wrappers) {
      wrapper.Option = &AddOption(HardDrive(1, 7) + FilePath(u"\\EFI\\a.efi") + End());
      bds::LinkLast(list, &wrapper);
    }
    UINTN matches = 0;
    bds::TAG_CALL call{"BootLoaderName", "a.efi", list, 0x1000, matches};
    firmware.FailAllocationAfter(each.allocations);
    EXPECT_EQ(bds::ProcBootloaderName(call), each.expected);
    EXPECT_EQ(matches, each.matches);
    EXPECT_STREQ(call.Message ? call.Message.get() : "", each.message);
    firmware.machine.Faults().SetCallHook({});
  }
}

TEST(SetTags, WithoutAPolicyTheGroupsDecideAndTheShellIsOffered) {
  FakeServer firmware;
  auto& shell = AddOption(BuiltInApplication() + End());
  shell.Attributes = 0;
  auto& uefi = AddOption(PciRoot() + End());
  uefi.Attributes = 0;
  auto& legacy = AddOption(Bbs(2) + End());
  bds::VBootSetBootOptionTags();
  EXPECT_EQ(shell.Attributes, LOAD_OPTION_ACTIVE);
  EXPECT_EQ(uefi.Attributes, 0u);
  EXPECT_EQ(shell.Tag, 0x00040008u);
  EXPECT_EQ(legacy.Tag, 0x00000001u);
  EXPECT_EQ(firmware.CountLogged("I'm a Rack server!\n"), 2) << "once per option that is not legacy";
  EXPECT_TRUE(
      firmware.Logged("VBootSetBootOptionTags:FlexBoot policy not present, BIOS will use boot order table instead\n"));
}

TEST(StandinPath, IsKnownByItsFirstNode) {
  FakeServer firmware;
  const std::pair<Blob, bool> cases[] = {
      {HardwareVendor(bds::kVeyraStandinGuid) + End(), true},
      {HardwareVendor(bds::kVeyraStandinGuid, Blob(3)) + Pci(1, 1) + End(), true},
      {Pci(1, 1) + HardwareVendor(bds::kVeyraStandinGuid) + End(), false},
      {HardwareVendor(bds::kDeviceNameGuid) + End(), false},
      {Node(3, 10, LittleEndian(bds::kVeyraStandinGuid)) + End(), false},
      {Node(1, 4, Blob(4)) + End(), false},
  };
  for (const auto& [path, answer] : cases) {
    EXPECT_EQ(bds::VeyraStandinDevicePathTest(reinterpret_cast<const bds::DevicePath*>(path.data()), {}), answer);
  }
}

// A driver that names one controller.
struct NamingDriver {
  EFI_COMPONENT_NAME2_PROTOCOL Protocol{};
  EFI_HANDLE Controller = nullptr;
  std::u16string Name;
  NamingDriver(EFI_HANDLE controller, std::u16string name) : Controller(controller), Name(std::move(name)) {
    Protocol.GetControllerName = GetName;
  }
  static EFI_STATUS EFIAPI GetName(EFI_COMPONENT_NAME2_PROTOCOL* self, EFI_HANDLE controller, EFI_HANDLE child,
                                   const CHAR8*, CHAR16** name) {
    auto* driver = reinterpret_cast<NamingDriver*>(self);
    if (controller != driver->Controller || child != nullptr) {
      return EFI_UNSUPPORTED;
    }
    *name = driver->Name.data();
    return EFI_SUCCESS;
  }
};

std::optional<std::string> NameOf(const Blob& named, const Blob& asked, const std::u16string& text) {
  FakeServer firmware;
  fake::BlockIo blockIo(false);
  const EFI_HANDLE controller = firmware.AddHandle(named);
  firmware.Install<EFI_BLOCK_IO_PROTOCOL>(controller, blockIo);
  NamingDriver driver(controller, text);
  const EFI_HANDLE agent = firmware.AddHandle();
  firmware.Install(agent, driver.Protocol);
  firmware.OpenByDriver(controller, ProtocolGuid<EFI_BLOCK_IO_PROTOCOL>, agent);
  const EFI_HANDLE handle = asked.empty() ? controller : firmware.AddHandle(asked);
  bds::PoolPtr<char> name;
  return bds::GetControllerDeviceName(handle, name) ? std::optional<std::string>(name.get()) : std::nullopt;
}

TEST(ControllerDeviceName, FirstCharacterDecidesAndBlanksAtTheEndGo) {
  const Blob path = PciRoot() + Pci(1, 0) + End();
  const std::pair<std::u16string, std::optional<std::string>> cases[] = {
      {u"Marvel 9230", "Marvel 9230"},
      {u"Disk   ", "Disk"},
      {u"bay", "bay"},
      {u"yard", "yard"},
      {u"1st", "1st"},
      {u"8th", "8th"},
      {u"away", std::nullopt},
      {u"zone", std::nullopt},
      {u"Adapter", std::nullopt},
      {u"Z", std::nullopt},
      {u"0", std::nullopt},
      {u"9", std::nullopt},
      {u" x", std::nullopt},
      {u"", std::nullopt},
      {u"\x0142x", std::nullopt},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(NameOf(path, {}, text), expected);
  }
}

TEST(ControllerDeviceName, ComesFromAControllerAbove) {
  const Blob controller = PciRoot() + Pci(1, 0);
  EXPECT_EQ(NameOf(controller + End(), controller + Usb(1) + HardDrive(1, 1) + End(), u"Hub"), "Hub");
  EXPECT_EQ(NameOf(controller + End(), PciRoot() + Pci(2, 0) + End(), u"Hub"), std::nullopt);
}

TEST(ControllerDeviceName, AHandleWithoutPathHasNone) {
  FakeServer firmware;
  bds::PoolPtr<char> name;
  EXPECT_FALSE(bds::GetControllerDeviceName(firmware.AddHandle(), name));
}

std::string DebugText() {
  return bds::gPolicyEngine.PolicyDebugText
             ? std::string(bds::gPolicyEngine.PolicyDebugText.get(), bds::gPolicyEngine.PolicyDebugTextUsed)
             : "";
}

TEST(PolicyDebugText, LinesAreCutAtTheLongBuffer) {
  for (const std::size_t length : {0u, 1u, 148u, 149u, 150u, 298u, 299u, 300u, 1000u}) {
    SCOPED_TRACE(length);
    FakeServer firmware;
    const std::string line(length, 'x');
    bds::AppendPolicyDebugText("%a", line.c_str());
    EXPECT_EQ(DebugText(), line.substr(0, 299));
  }
}

TEST(PolicyDebugText, GrowsByAKilobyteWhenTheLineAndItsNulDoNotFit) {
  FakeServer firmware;
  const std::string line(256, 'x');
  std::string expected;
  for (int i = 0; i < 3; ++i) {
    bds::AppendPolicyDebugText("%a", line.c_str());
    expected += line;
  }
  bds::AppendPolicyDebugText("%a", std::string(255, 'y').c_str());  // 1023 bytes and the NUL
  expected += std::string(255, 'y');
  EXPECT_EQ(bds::gPolicyEngine.PolicyDebugTextSize, 1024u);
  EXPECT_EQ(bds::gPolicyEngine.PolicyDebugText[1023], 0);
  bds::AppendPolicyDebugText("z");
  expected += "z";
  EXPECT_EQ(bds::gPolicyEngine.PolicyDebugTextSize, 2048u);
  EXPECT_EQ(DebugText(), expected);
}

TEST(PolicyDebugText, DataGrowsTheBufferByItsSize) {
  FakeServer firmware;
  bds::AppendPolicyDebugText("head\n");
  const Blob data(5000, std::byte{'d'});
  bds::AppendPolicyDebugData(data);
  EXPECT_EQ(bds::gPolicyEngine.PolicyDebugTextSize, 1024u + 5000u);
  EXPECT_EQ(DebugText(), "head\n" + std::string(5000, 'd'));
  EXPECT_TRUE(firmware.Logged("On entry, offset 0x5, input size to add 0x1388 (5000)\n"));
  EXPECT_TRUE(firmware.Logged("buffer reallocate\n"));
  EXPECT_TRUE(firmware.Logged("On exit, offset 0x138d\n"));
}

TEST(PolicyDebugText, DataThatFitsIsDumpedWithItsEscapes) {
  FakeServer firmware;
  bds::AppendPolicyDebugData(B({'a', 0x0A, 0x7F, '~', ' '}));
  EXPECT_TRUE(firmware.Logged("a\\x0a\\x7f~ \n"));
  EXPECT_FALSE(firmware.Logged("buffer reallocate\n"));
  EXPECT_EQ(DebugText(), "a\n\x7f~ ");
}

TEST(PolicyDebugText, ThePoolRunningOutKeepsTheText) {
  FakeServer firmware;
  bds::AppendPolicyDebugText("head");
  firmware.FailAllocationAfter(0, true);
  bds::AppendPolicyDebugData(Blob(2000));
  for (int i = 0; i < 10; ++i) {
    bds::AppendPolicyDebugText("%a", std::string(290, 'x').c_str());
  }
  EXPECT_EQ(DebugText().substr(0, 5), "headx");
  EXPECT_EQ(bds::gPolicyEngine.PolicyDebugTextSize, 1024u);
}

}  // namespace

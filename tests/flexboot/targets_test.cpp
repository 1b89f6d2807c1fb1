// Targets and tags of each type, the boot mode that the policy and the firmware agree on, and loader texts.
#include "flexboot/policy_targets.h"

#include "flexboot/loader_text.h"
#include "flexboot/policy_parser.h"
#include "flexboot/state.h"
#include "platform/setup_variable.h"
#include "platform/zephan_mode.h"
#include "tests/flexboot/policy_text.h"
#include "tests/support/driver_fixture.h"

namespace test {
namespace {

class Targets : public DriverTest {
 protected:
  // Parses the policy and publishes its record, as the intake does.
  void Publish(const std::string& policy) {
    bds::StartFresh(bds::gFlexBoot);
    bds::StartFresh(bds::gPolicyEngine);
    bds::XML_CURSOR cursor = bds::StartXml(policy.data(), policy.size());
    FLEXBOOT_ORDER_HEADER header{};
    ASSERT_EQ(bds::IsolateBootHeader(cursor, header), EFI_SUCCESS);
    record_.assign(bds::FlexBootOrderSize(header.NumBootTargets), std::byte{0});
    std::memcpy(record_.data(), &header, sizeof(header));
    ASSERT_EQ(bds::IsolateBootTargets(cursor, Record()), EFI_SUCCESS);
    bds::gPolicyEngine.FlexBootOrder = &Record();  // located
  }
  FLEXBOOT_ORDER_HEADER& Record() { return *reinterpret_cast<FLEXBOOT_ORDER_HEADER*>(record_.data()); }
  void SetFirmware(bool uefi) {
    Data setup(kSetupSize);
    setup[kSetupUefiMode] = std::byte{uefi};
    Set(kSetupName, setup, 7, kSetupGuid);
  }
  void SetMode(UINT8 mode) {
    mode_ = {mode, 0};
    if (!std::exchange(published_, true)) Install(&mode_);
  }
  void AddFunction(UINTN slot, UINTN instance, UINT16 bus, UINT16 device, UINT16 function) {
    if (!bds::gFlexBoot.VeyraOrlaList) bds::gFlexBoot.VeyraOrlaList = bds::NewListHeader<bds::VEYRA_ORLA>();
    bds::VEYRA_ORLA* orla = bds::AppendNew(*bds::gFlexBoot.VeyraOrlaList.get());
    orla->Slot = slot;
    orla->Instance = instance;
    orla->Bus = bus;
    orla->Device = device;
    orla->Function = function;
  }
  // "NAME*" (several options) or "NAME", then the tags.
  std::string Generate() {
    bds::POLICY_TARGET_LIST targets;
    EXPECT_EQ(bds::GenerateListFromPolicy(targets), EFI_SUCCESS);
    std::string text;
    for (const bds::POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next) {
      text += fmt::format("{}{}:", target->Name, target->AllowMultiple != 0 ? "*" : "");
      for (const bds::POLICY_TAG* tag = target->TagList.First; tag != nullptr; tag = tag->Next) {
        text += fmt::format(" {}={}", tag->Name, tag->Value);
      }
      text += "|";
    }
    bds::FreeTargetList(targets);
    return text;
  }

  std::vector<std::byte> record_;
  ZEPHAN_MODE_INFO mode_{};
  bool published_ = false;
};

TEST_F(Targets, TagsOfEachType) {
  const std::string retry = "<RetrySameCategoryDevices value=\"yes\" />";
  const std::string pci =
      "<PciVid value=\"1137\" /><PciDid value=\"43\" /><PciSubVid value=\"1\" />"
      "<PciSubDid value=\"2\" /><PciClassId value=\"2\" /><PciAddress value=\"0:3b:1f.7\" />";
  const std::string pciTags =
      " PciVid=0x1137 PciDid=0x43 PciSubVid=0x1 PciSubDid=0x2 PciClassId=0x2 PciSegment=0x0"
      " PciBus=0x3b PciDevice=0x1f PciFunction=0x7";
  const std::string network =
      "<MACAddress value=\"00:25:B5:0a:0b:1f\" /><PciSlotId value=\"L\" /><PortNum value=\"1\" />";
  const std::string retryTag = " RetrySameCategoryDevices=0x1";
  const struct {
    const char* type;
    std::string elements;
    std::string target;
  } cases[] = {
      {"LocalStorageAny", retry, "LocalStorageAny*: LocalStorageAny=0x0" + retryTag},
      {"LocalHDDAny", "", "LocalHDDAny*: LocalHDDAny=0x0"},
      {"ISCSIAny", retry, "ISCSIAny*: ISCSIAny=0x0" + retryTag},
      {"OnboardHDD", "<HDDSlot value=\"1f\" />", "OnboardHDD*: OnboardHDD=0x0 HDDSlot=0x1f"},
      {"OnboardHDDAny", retry, "OnboardHDDAny*: OnboardHDDAny=0x0"},
      {"LocalHDD", pci + retry + "<ControllerId value=\"1\" /><LunId value=\"2\" /><PciSlotId value=\"M\" />",
       "LocalHDD*: LocalHDD=0x0" + pciTags + " ControllerId=0x1" + retryTag + " SlotID=0x4d"},
      {"SANAny", retry, "SANAny*: SANAny=0x0" + retryTag},
      {"SAN",
       pci + "<WWNN value=\"a\" /><WWPN value=\"b\" /><PrimaryTargetWWPN value=\"c\" /><PciSlotId value=\"MLOM\" />" +
           retry,
       "SAN*: SAN=0x0" + pciTags + " WWNN=a WWPN=b PrimaryTargetWWPN=c" + retryTag + " SlotID=0x3"},
      {"NVMEAny", retry, "NVMEAny*: NVMEAny=0x0" + retryTag},
      {"LANAny", retry, "LANAny*: LANAny=0x0" + retryTag},
      {"LAN", pci + network + "<VeyraOrla value=\"no\" />" + retry,
       "LAN*: LAN=0x0 MACAddress=00:25:b5:0a:0b:1f" + pciTags + " IsVeyraOrla=0x0" + retryTag +
           " SlotID=0x4c PortNum=0x1"},
      {"ISCSI", pci + network + "<VeyraOrla value=\"no\" />" + retry,
       "ISCSI*: ISCSI=0x0" + pciTags + " MACAddress=00:25:b5:0a:0b:1f" + retryTag + " SlotID=0x4c PortNum=0x1"},
      {"LocalCDD", retry, "LocalCDD*: LocalCDD=0x0" + retryTag},
      {"LocalFDD", retry, "LocalFDD: LocalFDD=0x0" + retryTag},
      {"USB", "<USBSubType value=\"CD\" />", "USB*: USB=0x0 USBSubType=0x3"},
      {"InternalUSB", retry, "InternalUsb: InternalUSB=0x0" + retryTag},
      {"ExternalUSB", "<RetrySameCategoryDevices value=\"no\" />",
       "ExternalUSB*: ExternalUSB=0x0 RetrySameCategoryDevices=0x0"},
      {"SDCard", "<ControllerId value=\"1\" /><LunId value=\"2\" />",
       "SDStorage*: SDStorage=0x0 ControllerId=0x1 LunId=0x2"},
      {"VirtualMedia", "<VMSubType value=\"IXMOVMediaCDD\" />", "VirtualMedia*: VirtualMedia=0x0 VMSubType=0x2"},
      {"IXMOVMediaCDD", retry, "IXMOVMediaCDD: IXMOVMediaCDD=0x0" + retryTag},
      {"KVMVMediaFDD", "", "KVMVMediaFDD: KVMVMediaFDD=0x0"},
      {"UefiShell", "<Shell value=\"1\" />" + retry, "UefiShell*: UefiShell=0x0 Shell=0x1" + retryTag},
  };
  SetFirmware(true);
  SetMode(0);
  for (const auto& row : cases) {
    SCOPED_TRACE(row.type);
    Publish(Policy(PolicyTarget(row.type, row.elements)));
    EXPECT_EQ(Generate(), row.target + "|");
  }
  EXPECT_TRUE(Logged("Case NVMEAny\n"));
}

TEST_F(Targets, VirtualAdaptersAndManagedSlots) {
  const std::string place = "<PciAddress value=\"0:90:1.0\" /><PhysicalAdaptorSlotNum value=\"2\" />";
  const std::string onCard = place + "<VeyraOrla value=\"yes\" />";
  const std::string there = " PciSegment=0x0 PciBus=0x47 PciDevice=0x0 PciFunction=0x3";
  const struct {
    const char* about;
    UINT8 mode;
    const char* type;
    std::string elements;
    std::string tags;
    const char* logged;
  } cases[] = {
      {"LAN: the function of that instance", 0, "LAN", onCard + "<VnicOrder value=\"3\" />", there + " IsVeyraOrla=0x1",
       "Mapping VNIC instance (2:3) to address\nmatched vNIC\n47 0 3\n"},
      {"ISCSI", 1, "ISCSI", onCard + "<VnicOrder value=\"3\" />", there,
       "Mapping iSCSI vNIC instance (2:3) to address matched vNIC\n47 0 3\n"},
      {"SAN", 1, "SAN", onCard + "<VhbaOrder value=\"3\" />", there,
       "Mapping vHBA instance (2:3) to address matched vNIC\n47 0 3\n"},
      {"no such instance: the policy's address", 0, "ISCSI", onCard + "<VnicOrder value=\"4\" />",
       " PciSegment=0x0 PciDevice=0x1 PciFunction=0x0", "Orla not found\n90 1 0\n"},
      {"managed: the slot instead of the bus", 1, "SAN", place,
       " PhysicalAdaptorSlotNum=0x2 PciSegment=0x0 PciDevice=0x1 PciFunction=0x0", ""},
      {"standalone: the address", 0, "SAN", "<PciAddress value=\"0:7f:1.0\" />",
       " PciSegment=0x0 PciBus=0x7f PciDevice=0x1 PciFunction=0x0", ""},
      {"managed disk in a slot", 1, "LocalHDD", "<PciAddress value=\"0:3:1.0\" /><PciSlotId value=\"5\" />",
       " PciSegment=0x0 PciDevice=0x1 PciFunction=0x0 SlotID=0x5", "Local Storage Target: invalidate BUS \n"},
  };
  SetFirmware(true);
  for (const auto& row : cases) {
    SCOPED_TRACE(row.about);
    SetMode(row.mode);
    Publish(Policy(PolicyTarget(row.type, row.elements)));
    AddFunction(2, 2, 0x47, 0, 2);
    AddFunction(3, 3, 0x48, 0, 1);
    AddFunction(2, 3, 0x47, 0, 3);
    EXPECT_EQ(Generate(), fmt::format("{0}*: {0}=0x0{1}|", row.type, row.tags));
    EXPECT_TRUE(Logged(row.logged)) << Log();
  }
}

TEST_F(Targets, PolicyAndFirmwareAgreeOnTheMode) {
  const struct {
    const char* about;
    const char* type;
    UINT8 management;
    int firmware;  // -1: no Setup variable
    UINT8 secureBoot;
    UINT8 bootMode;
    int firmwareAfter;
    bool mac;
  } cases[] = {
      {"they agree", "uefi", 0, 1, 0, 1, 1, true},
      {"the firmware follows to legacy", "legacy", 0, 1, 0, 0, 0, false},
      {"and to UEFI", "uefi", 0, 0, 0, 1, 1, true},
      {"Secure Boot forbids it", "legacy", 0, 1, 1, 1, 1, true},
      {"an open policy takes the firmware's", "UEFI", 0, 1, 0, 1, 1, true},
      {"legacy too", "", 0, 0, 0, 0, 0, false},
      {"managed: as the policy says", "legacy", 1, 1, 0, 0, 1, true},
      {"managed: open", "Legacy", 1, 1, 0, 2, 1, true},
      {"no Setup: legacy, and the policy's", "uefi", 0, -1, 0, 1, -1, true},
      {"no Setup, open", "both", 0, -1, 0, 0, -1, false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.about);
    static_cast<void>(store.Set(kSetupName, kSetupGuid, 0, {}));
    if (row.firmware >= 0) SetFirmware(row.firmware == 1);
    Set(u"SecureBoot", DataOf({row.secureBoot}), 6);
    SetMode(row.management);
    Publish(Policy(PolicyTarget("LAN", "<MACAddress value=\"00:25:b5:0a:0b:1f\" />"), "1", row.type));
    EXPECT_EQ(Generate().find("MACAddress") != std::string::npos, row.mac);
    EXPECT_EQ(bds::gPolicyEngine.BootMode, row.bootMode);
    const sim::Variable* setup = Find(kSetupName, kSetupGuid);
    EXPECT_EQ(setup == nullptr ? -1 : static_cast<int>(setup->data[kSetupUefiMode]), row.firmwareAfter);
  }
  EXPECT_TRUE(Logged("BIOS UEFI mode token changed to 0 according to the boot mode in Config policy \n"));
}

TEST_F(Targets, LoadersJoinTheirTargetsAndAnUnusableTargetEndsTheList) {
  SetFirmware(true);
  const std::string loader =
      "<UniquePartitionGUID value=\"guid\" /><BootLoaderPath value=\"EFI//redhat\" />"
      "<bootloadername value=\"no\" /><BootLoaderName value=\"\" /><DeviceName value=\"name\" />";
  const std::string san =
      "<SecondaryTargetUEFIBootParam><BootLoaderPath value=\"\\b\\\" /></SecondaryTargetUEFIBootParam>"
      "<PrimaryTargetUEFIBootParam><BootLoaderName value=\"a.efi\" /><DeviceName value=\"d\" />"
      "</PrimaryTargetUEFIBootParam>";
  Publish(Policy(PolicyTarget("LANAny", "") + PolicyTarget("LocalHDDAny", loader) + PolicyTarget("SANAny", san) +
                     PolicyTarget("Toaster", loader) + PolicyTarget("USB", ""),
                 "5"));
  EXPECT_EQ(Generate(),
            "LANAny*: LANAny=0x0|"
            "LocalHDDAny*: LocalHDDAny=0x0 UniquePartitionGUID=guid BootLoaderPath=\\EFI\\redhat\\ DeviceName=name|"
            "SANAny*: SANAny=0x0 PriLdrPath= PriLdrName=a.efi PriLdrDesc=d SecLdrPath=\\b\\ SecLdrName= SecLdrDesc=|");
  bds::StartFresh(bds::gPolicyEngine);
  bds::POLICY_TARGET_LIST none;
  EXPECT_EQ(bds::GenerateListFromPolicy(none), EFI_UNSUPPORTED);
}

TEST_F(Targets, AnExhaustedPoolLeavesNoHalfList) {
  Publish(Policy(PolicyTarget("LAN", "<PciVid value=\"1\" />") + PolicyTarget("USB", ""), "2"));
  bds::gFlexBoot.VeyraOrlaList = bds::NewListHeader<bds::VEYRA_ORLA>();
  EFI_STATUS status = EFI_OUT_OF_RESOURCES;
  int failures = 0;
  for (; status == EFI_OUT_OF_RESOURCES && failures < 100; ++failures) {
    machine.Faults().SetCallHook([left = failures](std::string_view service, std::uint64_t) mutable {
      return service == "AllocatePool" && left-- == 0 ? std::optional(EFI_OUT_OF_RESOURCES) : std::nullopt;
    });
    bds::POLICY_TARGET_LIST targets;
    status = bds::GenerateListFromPolicy(targets);
    EXPECT_EQ(targets.Count, status == EFI_SUCCESS ? 2U : 0U);
    bds::FreeTargetList(targets);
    machine.Faults().SetCallHook({});
  }
  EXPECT_EQ(status, EFI_SUCCESS);
  EXPECT_GT(failures, 6);
}

TEST_F(Targets, LoaderPathsAreNormalized) {
  const struct {
    const char* path;
    const char* normalized;
    bool corrected;
  } cases[] = {{"EFI/redhat", "\\EFI\\redhat\\", true},
               {"\\EFI\\redhat", "\\EFI\\redhat\\", false},
               {"\\EFI\\redhat\\", "\\EFI\\redhat\\", false},
               {"/", "\\", true},
               {"", "\\", true},
               {"\\\\a\\/\\b//", "\\a\\b\\", true}};
  for (const auto& row : cases) {
    bds::PoolPtr<char> normalized;
    EXPECT_EQ(bds::NormalizeLoaderPath(row.path, normalized), row.corrected) << row.path;
    EXPECT_STREQ(normalized.get(), row.normalized) << row.path;
  }
}

}  // namespace
}  // namespace test

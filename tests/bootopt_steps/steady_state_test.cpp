// The option steps of one boot after the other: a changing server loses and doubles nothing, whatever fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "bootopt/steps.h"
#include "platform/load_file.h"
#include "support/format.h"
#include "tests/support/fake_boot_server.h"
#include "vboot/policy_engine.h"

namespace {

using namespace bdstest;

void RunOptionSteps() {
  bds::UpdateBootOptionVariables();
  static_cast<void>(bds::ReadBootOptions());
  bds::UnmaskOrphanDevices();
  static_cast<void>(bds::CollectUsbBbsDevices());
  bds::CollectBootDevices();
  bds::FilterBootDeviceList();
  bds::MatchBootOptionsToDevices();
  bds::DeleteUnmatchedUefiHddBootDevices();
  bds::CreateBootOptionsForNewBootDevices();
  bds::VBootSetBootOptionTags();
  bds::PreProcessBootOptions();
  bds::SetBootOptionPriorities();
  bds::PostProcessBootOptions();
  bds::ApplyOemBootOptionPolicy();
  bds::MaskOrphanDevices();
  bds::SaveLegacyDevOrder();
  bds::SaveBootOptions();
}

// A server with slots for network cards, sticks and legacy disks that come and go.
class Server {
 public:
  static constexpr unsigned kSlots = 12;
  int WritesOfLastBoot = 0;

  void Plug(unsigned slot, bool plugged) { plugged_[slot] = plugged; }
  bool Plugged(unsigned slot) const { return plugged_[slot]; }

  // One boot's option steps on the variables given. disturb, when given, changes the server before the steps run.
  void Boot(std::map<VariableKey, StoredVariable>& nvram, const std::function<void(FakeServer&)>& disturb = {}) {
    FakeServer firmware;
    firmware.Variables = nvram;
    EFI_LOAD_FILE_PROTOCOL loadFile{};
    fake::BlockIo stick(false, true);
    FakeVolume volume;
    volume.Files.insert(u"\\EFI\\BOOT\\BOOTX64.EFI");
    std::vector<BBS_TABLE> bbs(25);
    for (auto& entry : bbs) {
      entry.BootPriority = 0xFFFF;
    }
    std::vector<std::unique_ptr<fake::DiskInfo>> disks;
    for (unsigned slot = 0; slot < kSlots; ++slot) {
      if (!plugged_[slot]) {
        continue;
      }
      if (slot % 3 == 2) {
        bbs.push_back(LegacyDisk(slot));
        continue;
      }
      const EFI_HANDLE handle = firmware.AddHandle(PciRoot() + Pci(slot, 0) + End());
      if (slot % 3 == 0) {
        firmware.Install(handle, loadFile);
      } else {
        firmware.Install(handle, volume.Protocol);
        firmware.Install<EFI_BLOCK_IO_PROTOCOL>(handle, stick);
        disks.push_back(std::make_unique<fake::DiskInfo>("SERIAL" + std::to_string(slot)));
        firmware.Install<EFI_DISK_INFO_PROTOCOL>(handle, *disks.back());
      }
    }
    firmware.PublishBbsTable(bbs);
    if (disturb) {
      disturb(firmware);
    }
    RunOptionSteps();
    nvram = firmware.Variables;
    WritesOfLastBoot = firmware.Writes;
  }

 private:
  static BBS_TABLE LegacyDisk(unsigned slot) {
    BBS_TABLE entry{};
    entry.BootPriority = 1;
    entry.DeviceType = slot % 2 == 0 ? BBS_TYPE_HARDDRIVE : BBS_TYPE_CDROM;
    entry.Bus = 1;
    entry.Device = slot;
    return entry;
  }
  bool plugged_[kSlots] = {};
};

std::vector<UINT16> BootOrderOf(const std::map<VariableKey, StoredVariable>& nvram) {
  for (const auto& [key, variable] : nvram) {
    if (key.first == u"BootOrder") {
      std::vector<UINT16> order(variable.Data.size() / 2);
      std::copy(variable.Data.begin(), variable.Data.end(), reinterpret_cast<std::byte*>(order.data()));
      return order;
    }
  }
  return {};
}

const Blob kForeignData = B({0xDE, 0xAD});

// Boot#### variables that still hold what the installer put into them.
int ForeignOptions(const std::map<VariableKey, StoredVariable>& nvram) {
  int count = 0;
  for (const auto& [key, variable] : nvram) {
    const Blob& data = variable.Data;
    count += data.size() > 2 && std::equal(kForeignData.begin(), kForeignData.end(), data.end() - 2) ? 1 : 0;
  }
  return count;
}

Blob ForeignImage(const Blob& path) {
  return LittleEndian<UINT32>(1) + LittleEndian(static_cast<UINT16>(path.size())) + Utf16(u"mine") + path +
         kForeignData;
}

std::map<VariableKey, StoredVariable> InstalledSystem(UINT16 highest) {
  FakeServer firmware;
  Blob order;
  for (const auto& [number, path] :
       {std::pair<UINT16, Blob>{2, HardDrive(1, 7) + FilePath(u"\\os.efi") + End()}, {highest, Bbs(1) + End()}}) {
    char16_t name[9];
    bds::FormatUtf16(name, "Boot%04X", number);
    firmware.SetVariable(name, gEfiGlobalVariableGuid, 7, ForeignImage(path));
    order = order + LittleEndian(number);
  }
  firmware.SetVariable(u"BootOrder", gEfiGlobalVariableGuid, 7, order);
  return firmware.Variables;
}

TEST(SteadyState, AThousandRandomBootsLoseAndDuplicateNothing) {
  for (const UINT16 highest : {UINT16{4}, UINT16{0xFFFA}, UINT16{0xFFFE}}) {
    SCOPED_TRACE(highest);
    std::mt19937 random(highest);
    Server server;
    auto nvram = InstalledSystem(highest);
    for (int boot = 1; boot <= 1000; ++boot) {
      const auto slot = static_cast<unsigned>(random() % Server::kSlots);
      server.Plug(slot, !server.Plugged(slot));
      server.Boot(nvram);
      std::vector<UINT16> order = BootOrderOf(nvram);
      unsigned present = 0;
      for (unsigned i = 0; i < Server::kSlots; ++i) {
        present += server.Plugged(i) ? 1 : 0;
      }
      ASSERT_EQ(order.size(), 2 + present) << "boot " << boot << ": one option per device and the two foreign ones";
      std::sort(order.begin(), order.end());
      ASSERT_EQ(std::adjacent_find(order.begin(), order.end()), order.end()) << "boot " << boot;
      ASSERT_TRUE(std::binary_search(order.begin(), order.end(), UINT16{2})) << "boot " << boot;
      ASSERT_TRUE(std::binary_search(order.begin(), order.end(), highest)) << "boot " << boot;
      int bootVariables = 0;
      for (const auto& [key, variable] : nvram) {
        bootVariables += key.first.starts_with(u"Boot") && key.first != u"BootOrder" ? 1 : 0;
      }
      ASSERT_EQ(ForeignOptions(nvram), 2) << "boot " << boot;
      ASSERT_EQ(bootVariables, static_cast<int>(order.size())) << "boot " << boot << ": no variable is left behind";
    }
  }
}

// Checks the order after a disturbed boot and an undisturbed one: nothing foreign lost, one option per device.
void ExpectWhole(const std::map<VariableKey, StoredVariable>& nvram, unsigned devices) {
  std::vector<UINT16> order = BootOrderOf(nvram);
  EXPECT_EQ(order.size(), 2 + devices);
  std::sort(order.begin(), order.end());
  EXPECT_EQ(std::adjacent_find(order.begin(), order.end()), order.end());
  EXPECT_TRUE(std::binary_search(order.begin(), order.end(), UINT16{2}));
  EXPECT_TRUE(std::binary_search(order.begin(), order.end(), UINT16{4}));
  EXPECT_EQ(ForeignOptions(nvram), 2);
}

// A server that ran for a while, and then lost two devices and got two others.
struct ChangedServer {
  ChangedServer() : nvram(InstalledSystem(4)) {
    for (const unsigned slot : {0u, 1u, 2u, 5u}) {
      server.Plug(slot, true);
    }
    server.Boot(nvram);
    for (const unsigned slot : {0u, 2u}) {
      server.Plug(slot, false);
    }
    for (const unsigned slot : {4u, 8u}) {
      server.Plug(slot, true);
    }
    auto undisturbed = nvram;
    server.Boot(undisturbed);
    writes = server.WritesOfLastBoot;
  }
  static constexpr unsigned kDevices = 4;
  Server server;
  std::map<VariableKey, StoredVariable> nvram;
  int writes = 0;  // of an undisturbed boot
};

TEST(SteadyState, AnyRefusedWriteIsMadeUpForOnTheNextBoot) {
  const ChangedServer start;
  ASSERT_GT(start.writes, 8);
  for (int refused = 1; refused <= start.writes; ++refused) {
    SCOPED_TRACE(refused);
    ChangedServer after = start;
    after.server.Boot(after.nvram, [refused](FakeServer& firmware) {
      firmware.RefuseWrite = [&firmware, refused](const std::u16string&) {
        return firmware.Writes == refused ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
      };
    });
    EXPECT_EQ(ForeignOptions(after.nvram), 2);
    after.server.Boot(after.nvram);
    ExpectWhole(after.nvram, ChangedServer::kDevices);
  }
}

TEST(SteadyState, AnyFailedAllocationLeavesForeignOptionsWholeAndInTheirOrder) {
  const ChangedServer start;
  int failures = 0;
  for (int successes = 0; successes < 3000; ++successes) {
    SCOPED_TRACE(successes);
    ChangedServer after = start;
    bool failed = false;
    after.server.Boot(after.nvram, [&](FakeServer& firmware) {
      firmware.PoolFailsAfter = successes;
      firmware.PoolFailed = &failed;
    });
    failures += failed ? 1 : 0;
    EXPECT_EQ(ForeignOptions(after.nvram), 2);
    const std::vector<UINT16> order = BootOrderOf(after.nvram);
    const auto first = std::find(order.begin(), order.end(), UINT16{2});
    EXPECT_NE(std::find(first, order.end(), UINT16{4}), order.end());
    EXPECT_EQ(std::count(order.begin(), order.end(), UINT16{2}), 1);
    EXPECT_EQ(std::count(order.begin(), order.end(), UINT16{4}), 1);
    if (!failed) {
      break;
    }
  }
  EXPECT_GT(failures, 50);
}

}  // namespace

// The option steps of one boot after the other: an unchanged server changes nothing, and a changing one loses nothing.
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

  void Plug(unsigned slot, bool plugged) { plugged_[slot] = plugged; }
  bool Plugged(unsigned slot) const { return plugged_[slot]; }

  void Boot(std::map<VariableKey, StoredVariable>& nvram, std::string& log) {
    FakeServer firmware;
    firmware.Variables = nvram;
    EFI_LOAD_FILE_PROTOCOL loadFile{};
    FakeBlockIo stick(true, false);
    FakeVolume volume;
    volume.Files.insert(u"\\EFI\\BOOT\\BOOTX64.EFI");
    std::vector<BBS_TABLE> bbs(25);
    for (auto& entry : bbs) {
      entry.BootPriority = 0xFFFF;
    }
    std::vector<std::unique_ptr<FakeDiskInfo>> disks;
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
        firmware.Install(handle, stick.Protocol);
        disks.push_back(std::make_unique<FakeDiskInfo>("SERIAL" + std::to_string(slot)));
        firmware.Install(handle, disks.back()->Protocol);
      }
    }
    firmware.PublishBbsTable(bbs);
    RunOptionSteps();
    nvram = firmware.Variables;
    log = firmware.Log();
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

Blob ForeignImage(const Blob& path) {
  return LittleEndian<UINT32>(1) + LittleEndian(static_cast<UINT16>(path.size())) + Utf16(u"mine") + path +
         B({0xDE, 0xAD});
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

TEST(SteadyState, AHundredBootsOfAnUnchangedServerChangeNothing) {
  Server server;
  for (unsigned slot = 0; slot < Server::kSlots; ++slot) {
    server.Plug(slot, true);
  }
  auto nvram = InstalledSystem(4);
  std::string log;
  server.Boot(nvram, log);
  const auto first = nvram;
  EXPECT_EQ(BootOrderOf(nvram).size(), 2u + Server::kSlots);
  for (int boot = 2; boot <= 100; ++boot) {
    server.Boot(nvram, log);
    ASSERT_EQ(nvram, first) << "boot " << boot;
  }
}

TEST(SteadyState, AThousandRandomBootsLoseAndDuplicateNothing) {
  for (const UINT16 highest : {UINT16{4}, UINT16{0xFFFA}, UINT16{0xFFFE}}) {
    SCOPED_TRACE(highest);
    std::mt19937 random(highest);
    Server server;
    auto nvram = InstalledSystem(highest);
    std::string log;
    for (int boot = 1; boot <= 1000; ++boot) {
      const auto slot = static_cast<unsigned>(random() % Server::kSlots);
      server.Plug(slot, !server.Plugged(slot));
      server.Boot(nvram, log);
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
      int foreign = 0;
      int bootVariables = 0;
      for (const auto& [key, variable] : nvram) {
        bootVariables += key.first.starts_with(u"Boot") && key.first != u"BootOrder" ? 1 : 0;
        const Blob tail = B({0xDE, 0xAD});
        foreign +=
            std::search(variable.Data.begin(), variable.Data.end(), tail.begin(), tail.end()) != variable.Data.end()
                ? 1
                : 0;
      }
      ASSERT_EQ(foreign, 2) << "boot " << boot;
      ASSERT_EQ(bootVariables, static_cast<int>(order.size())) << "boot " << boot << ": no variable is left behind";
    }
  }
}

}  // namespace

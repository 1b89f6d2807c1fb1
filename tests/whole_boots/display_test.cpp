// Who drives the controllers that also have a legacy option ROM, by the option ROM policy, and that there is a picture
// in any case: under the linked driver and under the image alike.
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "platform/csm_policy.h"
#include "platform/graphics_output.h"
#include "platform/pci_io.h"
#include "sim/csm/csm.h"
#include "tests/whole_boots/server_builder.h"

namespace sim::test {
namespace {

constexpr std::uint8_t kOnboardDisplay = 2, kNetwork = 3, kUsb = 4, kAddInDisplay = 5, kStorage = 6;

// Every function but the last has a legacy option ROM.
constexpr char kFunctions[] = R"(
[bmc]
files = false
[[root_bridge]]
[[root_bridge.function]]
kind = "vga"
device = 2
embedded = true
legacy_rom = true
[[root_bridge.function]]
kind = "network"
device = 3
mac = "02:00:00:00:00:01"
legacy_rom = true
[[root_bridge.function]]
kind = "ehci"
device = 4
legacy_rom = true
[[root_bridge.function]]
kind = "ahci"
device = 6
legacy_rom = true
[[root_bridge.function]]
kind = "vga"
device = 5
)";

struct Case {
  const char* name;
  const char* policy;  // switch, network, serial bus, storage, display, other
  bool csm;
  const char* drivers;  // of the onboard display, the network, the USB, the storage function and the add-in display
  // How often a driver let its controller go for the ROM: the onboard display's only, and not a thunk driver's.
  unsigned stops;
};
void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

constexpr Case kCases[] = {
    {"AllLegacy", "[0, 2, 2, 2, 2, 2]", true, "thunk thunk native thunk native", 0},
    {"AllUefi", "[0, 1, 1, 1, 1, 1]", true, "native native native native native", 1},
    {"NoOverride", "[0, 0, 0, 0, 0, 0]", true, "native native native native native", 1},
    {"LegacyVideoOnly", "[0, 1, 1, 1, 3, 1]", true, "thunk native native native native", 0},
    {"LegacyStorageOnly", "[0, 1, 1, 2, 1, 1]", true, "native native native thunk native", 1},
    {"NoCsm", "[0, 2, 2, 2, 2, 2]", false, "native native native native native", 0},
};

EFI_HANDLE FunctionAt(Machine& machine, std::uint8_t wanted) {
  for (const EFI_HANDLE handle : machine.Handles().With(ProtocolGuid<EFI_PCI_IO_PROTOCOL>)) {
    auto* pci = machine.Handles().Get<EFI_PCI_IO_PROTOCOL>(handle);
    UINTN segment = 0, bus = 0, device = 0, function = 0;
    static_cast<void>(pci->GetLocation(pci, &segment, &bus, &device, &function));
    if (device == wanted) return handle;
  }
  return nullptr;
}

// Whose driver holds the function: "thunk", "native" or "none".
std::string DriverOf(Machine& machine, std::uint8_t device) {
  for (const auto& interface : *machine.Handles().InterfacesOf(FunctionAt(machine, device))) {
    for (const auto& open : interface.opens) {
      if ((open.attributes & EFI_OPEN_PROTOCOL_BY_DRIVER) == 0) continue;
      const auto* mark = machine.Handles().InterfacesOf(open.agent);
      return std::any_of(mark->begin(), mark->end(), [](const auto& item) { return item.guid == kThunkDriverMarkGuid; })
                 ? "thunk"
                 : "native";
    }
  }
  return "none";
}

bool Decodes(Machine& machine, std::uint8_t device) {
  constexpr UINT64 kDecoding = EFI_PCI_IO_ATTRIBUTE_IO | EFI_PCI_IO_ATTRIBUTE_MEMORY | EFI_PCI_IO_ATTRIBUTE_BUS_MASTER;
  auto* pci = machine.Handles().Get<EFI_PCI_IO_PROTOCOL>(FunctionAt(machine, device));
  UINT64 enabled = 0, supported = 0;
  static_cast<void>(pci->Attributes(pci, EfiPciIoAttributeOperationSupported, 0, &supported));
  static_cast<void>(pci->Attributes(pci, EfiPciIoAttributeOperationGet, 0, &enabled));
  return (supported & kDecoding) != 0 && (enabled & kDecoding) == (supported & kDecoding);
}

// What a boot leaves of the displays, to be compared between the two ways.
struct Seen {
  std::string drivers;
  std::string screens;  // device paths of those with a picture, in the order in which their driver started
  std::size_t romsRun = 0;
  std::uint64_t stops = 0;
  bool decodes = false;  // the onboard display; the simulated display drivers leave that as it is
};

Seen BootOnce(const ServerDescription& description, const std::filesystem::path& image) {
  Server server(description, {.state = {}, .image = image});
  Seen seen;
  BootRequest request;
  request.afterEnd = [&seen](Machine& machine, const BootOutcome&) {
    for (const std::uint8_t device : {kOnboardDisplay, kNetwork, kUsb, kStorage, kAddInDisplay}) {
      seen.drivers += (seen.drivers.empty() ? "" : " ") + DriverOf(machine, device);
    }
    for (const EFI_HANDLE handle : machine.Handles().With(ProtocolGuid<EFI_GRAPHICS_OUTPUT_PROTOCOL>)) {
      const auto* path = machine.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(handle);
      const auto* pci = reinterpret_cast<const std::uint8_t*>(path) + 12;  // behind the root bridge's node
      seen.screens += fmt::format("{} ", pci[5]);
    }
    const Csm* csm = machine.Get<Csm>();
    seen.romsRun = csm == nullptr ? 0 : csm->OptionRomsRun();
    seen.decodes = Decodes(machine, kOnboardDisplay);
  };
  const BootReport report = server.Boot(request);
  EXPECT_TRUE(report.Started()) << report.outcome.text;
  ExpectClean(report, image.string());
  const auto stops = report.counts.find("driver.stop");
  seen.stops = stops == report.counts.end() ? 0 : stops->second;
  return seen;
}

class OptionRoms : public testing::TestWithParam<Case> {};

TEST_P(OptionRoms, ThePolicyDecidesWhoDrivesAndThereIsAPicture) {
  const Case& each = GetParam();
  const std::string text =
      fmt::format("[setup]\noption_rom_policy = {}\n[csm]\npresent = {}\n{}", each.policy, each.csm, kFunctions);
  const ServerDescription description = ParseServerDescription(text, "display", ".");
  const char* given = std::getenv("BDS_IMAGE");
  const std::filesystem::path image = given != nullptr ? given : "build/efi/bds.efi";
  for (const auto& way : {std::filesystem::path(), image}) {
    if (!way.empty() && !std::filesystem::exists(way)) {
      std::cout << way << " is not built: the linked driver alone\n";
      continue;
    }
    SCOPED_TRACE(way.empty() ? "linked" : way.string());
    const Seen seen = BootOnce(description, way);
    EXPECT_EQ(seen.drivers, each.drivers);
    // The add-in card comes first, though the bus finds the onboard one first.
    EXPECT_EQ(seen.screens, "5 2 ");
    EXPECT_EQ(seen.romsRun, each.csm ? 4U : 0U) << "each ROM once, however often they are shadowed";
    EXPECT_EQ(seen.stops, each.stops);
    EXPECT_EQ(seen.decodes, each.stops != 0) << "what was taken from its driver is left decoding for the ROM";
  }
}

INSTANTIATE_TEST_SUITE_P(Policies, OptionRoms, testing::ValuesIn(kCases), testing::PrintToStringParamName());

}  // namespace
}  // namespace sim::test

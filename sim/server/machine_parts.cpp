#include "sim/server/machine_parts.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "platform/memory_type_information.h"
#include "platform/simple_text_in.h"
#include "platform/simple_text_out.h"
#include "platform/veyra_hobs.h"
#include "sim/firmware/services/acpi_tables.h"
#include "sim/firmware/services/smbios_tables.h"

namespace sim {
namespace {

constexpr EFI_GUID kBuiltInShell{0x7C04A583, 0x9E3E, 0x4F1C, {0xAD, 0x65, 0xE0, 0x52, 0x68, 0xD0, 0xB4, 0xD1}};
constexpr EFI_GUID kVolumeName{0x2B6D1F9C, 0x5B0E, 0x4C0B, {0x8E, 0x6B, 0x9A, 0x71, 0x3C, 0x55, 0xD0, 0x01}};

std::vector<std::byte> ReadFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
  const auto* first = reinterpret_cast<const std::byte*>(bytes.data());
  return {first, first + bytes.size()};
}

// The simulator's own built-in shell: it greets, and the boot ends in it as it would end in a loader.
EFI_STATUS RunShell(EFI_HANDLE image, EFI_SYSTEM_TABLE* table) {
  if (table->ConOut != nullptr) {
    static_cast<void>(table->ConOut->OutputString(table->ConOut, u"Built-in EFI Shell\r\n"));
  }
  BootOutcome outcome;
  outcome.end = BootEnd::HandedOver;
  outcome.text = "the built-in shell";
  outcome.image = image;
  Machine::Current().EndBoot(std::move(outcome));
}

// The data of a block is what follows its header.
template <typename Block>
void AddBlock(HobList& hobs, const EFI_GUID& name, const Block& block) {
  static_cast<void>(hobs.AddGuid(name, std::as_bytes(std::span(&block, 1)).subspan(sizeof(EFI_HOB_GUID_TYPE))));
}

EFI_STATUS EFIAPI UpdateBbsDevices() {
  if (Csm* csm = Machine::Current().Get<Csm>(); csm != nullptr) {
    csm->AddDeviceEntries(true);
  }
  return EFI_SUCCESS;
}

}  // namespace

MachineParts::MachineParts(Machine& machine, const ServerDescription& server, VariableStore& store, Bmc& bmc)
    : machine_(machine),
      runtime_(machine, store),
      images_(machine),
      text_(machine.BootServices()),
      hobs_(server.firmware.bootMode),
      dxe_(machine.BootServices()),
      volume_(machine.BootServices()) {
  images_.SetExitBootServicesHandler([&store] { store.EnterRuntime(); });
  InstallConsole();
  AddPlatformBlocks(server);
  InstallMemory(server.firmware);
  if (server.firmware.pathToText) {
    static_cast<void>(text_.Install());
  }
  if (server.firmware.hiiStrings) {
    EFI_HANDLE handle = nullptr;
    static_cast<void>(machine_.Install(handle, hii_.Database()));
    static_cast<void>(machine_.Install(handle, hii_.Strings()));
    formBrowser_ = std::make_unique<FormBrowser>(machine_, hii_);
  }
  static_cast<void>(statusCodes_.Install(machine_.BootServices()));
  static_cast<void>(s3_.Install(machine_.BootServices()));
  static_cast<void>(InstallBootScriptSave(machine_.BootServices()));
  static_cast<void>(performance_.Install(machine_.BootServices(), machine_.RuntimeServices()));
  InstallFirmwareVolume(server.firmware);
  InstallPlatform(server, bmc);
  InstallSystemTables(server);
  machine_.SealTables();
}

// What an operating system reads of the machine.
void MachineParts::InstallSystemTables(const ServerDescription& server) {
  const unsigned sockets = std::max<unsigned>(server.platform.sockets, 1);
  SmbiosFacts facts{.product = server.name, .sockets = sockets, .slots = {}};
  for (const SlotRecord& slot : server.devices.slots) {
    facts.slots.push_back(slot.number);
  }
  static_cast<void>(InstallAcpiTables(machine_, sockets));
  static_cast<void>(InstallSmbiosTables(machine_, facts));
}

void MachineParts::InstallConsole() {
  static_cast<void>(console_.CreateKeyEvents(machine_.BootServices()));
  EFI_HANDLE handle = nullptr;
  static_cast<void>(machine_.Install(handle, console_.Output()));
  static_cast<void>(machine_.Install(handle, console_.Input()));
  static_cast<void>(machine_.Install(handle, console_.InputEx()));
  EFI_SYSTEM_TABLE* table = machine_.SystemTable();
  table->ConsoleInHandle = table->ConsoleOutHandle = table->StandardErrorHandle = handle;
  table->ConIn = console_.Input();
  table->ConOut = table->StdErr = console_.Output();
}

void MachineParts::AddPlatformBlocks(const ServerDescription& server) {
  if (server.platform.memoryBlock) {
    VEYRA_MEMORY_HOB memory{};
    memory.SocketCount = server.platform.sockets;
    AddBlock(hobs_, gVeyraMemoryHobGuid, memory);
  }
  if (server.platform.riserBlock) {
    VEYRA_BRIGHTMERE_TYPE_HOB riser{};
    for (const SlotRecord& slot : server.devices.slots) {
      riser.Slot1 = slot.riser && slot.number == 1 ? kBrightmereInSlot1 : riser.Slot1;
      riser.Slot2 = slot.riser && slot.number == 2 ? kBrightmereInSlot2 : riser.Slot2;
    }
    AddBlock(hobs_, gVeyraBrightmereTypeHobGuid, riser);
  }
}

void MachineParts::InstallMemory(const FirmwareDescription& firmware) {
  std::vector<EFI_MEMORY_TYPE_INFORMATION> needed;
  for (const MemoryTypePages& pages : firmware.memoryTypes) {
    needed.push_back({pages.type, pages.hobPages});
    usedPages_.push_back({pages.type, pages.usedPages});
  }
  if (!needed.empty()) {
    static_cast<void>(hobs_.AddMemoryTypeInformation(needed));
    usedPages_.push_back({EfiMaxMemoryType, 0});
    static_cast<void>(machine_.InstallConfigurationTable(gEfiMemoryTypeInformationGuid, usedPages_.data()));
  }
  static_cast<void>(machine_.InstallConfigurationTable(gEfiHobListGuid, const_cast<void*>(hobs_.Build())));
  if (firmware.untestedLength != 0) {
    static_cast<void>(dxe_.Memory().Add(EfiGcdMemoryTypeReserved, firmware.untestedBase, firmware.untestedLength,
                                        EFI_MEMORY_PRESENT | EFI_MEMORY_INITIALIZED));
  }
  static_cast<void>(dxe_.Install());
}

void MachineParts::InstallFirmwareVolume(const FirmwareDescription& firmware) {
  if (firmware.shellPresent) {
    std::vector<std::byte> shell =
        firmware.shell.empty() ? images_.RegisterBuiltin("built-in shell", RunShell) : ReadFile(firmware.shell);
    static_cast<void>(volume_.Add({kBuiltInShell, EFI_FV_FILETYPE_APPLICATION, u"Shell", std::move(shell)}));
  }
  volumePath_.FirmwareVolume(kVolumeName);
  EFI_HANDLE handle = nullptr;
  static_cast<void>(machine_.Install(handle, volumePath_.Get()));
  static_cast<void>(machine_.Install(handle, volume_.Protocol()));
}

void MachineParts::InstallHealth(const ServerDescription& server) {
  const auto& bridges = machine_.Get<DeviceSet>()->RootBridgeHandles();
  for (const HealthDescription& health : server.health) {
    const auto* path = machine_.Handles().Get<EFI_DEVICE_PATH_PROTOCOL>(bridges.at(health.rootBridge));
    healthDrivers_.push_back(std::make_unique<ScriptedHealth>(machine_, health, DevicePath::Copy(path),
                                                              server.firmware.hiiStrings ? &hii_ : nullptr));
  }
}

void MachineParts::InstallPlatform(const ServerDescription& server, Bmc& bmc) {
  machine_.Attach<DeviceSet>(server.devices);
  InstallHealth(server);
  if (server.csm.present) {
    machine_.Attach<Csm>(server.csm);
  }
  machine_.Attach<FrontEnd>(server.frontEnd);
  EFI_HANDLE handle = nullptr;
  if (server.managementModePresent) {
    mode_ = {server.managementMode, server.managementConfigFlag};
    static_cast<void>(machine_.Install(handle, &mode_));
  }
  if (server.usbSupport) {
    usb_.UpdateBbsDevices = UpdateBbsDevices;
    handle = nullptr;
    static_cast<void>(machine_.Install(handle, &usb_));
  }
  if (server.bmcFiles) {
    bmc.Attach(machine_.Ports());
  }
  if (server.ipmi != "none") {
    handle = nullptr;
    static_cast<void>(machine_.Install(handle, bmc.Transport().Protocol()));
  }
}

}  // namespace sim

#include "sim/server/description.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "core/step_table.h"
#include "platform/setup_variable.h"
#include "sim/bus/utf_text.h"
#include "sim/firmware/services/device_path_text.h"
#include "sim/server/drive_reader.h"
#include "sim/server/host_file.h"
#include "sim/server/setup_fields.h"

namespace sim {
namespace {

std::uint8_t Byte(TableReader& table, const char* key, std::uint64_t otherwise) {
  return static_cast<std::uint8_t>(table.Integer(key, otherwise, 0, 255));
}

void ReadSetupField(TableReader& table, const SetupField& field, std::vector<std::uint8_t>& setup) {
  if (field.size == 1) {
    setup[field.offset] = Byte(table, field.name, setup[field.offset]);
    return;
  }
  const auto values = table.Integers(field.name, 0, 255);
  if (!values.empty() && values.size() != field.size) {
    table.Fail(field.name, fmt::format("{} numbers: {}", field.size, field.meaning));
  }
  std::ranges::transform(values, setup.begin() + static_cast<std::ptrdiff_t>(field.offset),
                         [](std::uint64_t value) { return static_cast<std::uint8_t>(value); });
}

void ReadSetup(TableReader& root, NvramDescription& nvram) {
  nvram.setup = DefaultSetup();
  auto table = root.Table("setup");
  if (!table) {
    return;
  }
  nvram.setupDescribed = true;
  for (const SetupField& field : SetupFields()) {
    ReadSetupField(*table, field, *nvram.setup);
  }
  if (!table->Boolean("present", true)) {
    nvram.setup.reset();
  }
  table->Finish();
}

InstalledOption ReadOption(TableReader& table) {
  InstalledOption option;
  option.number = static_cast<std::uint16_t>(table.RequiredInteger("number", 0, 0xFFFF));
  option.name = table.RequiredText("name");
  const auto path = DevicePathFromText(Utf16OfText(table.RequiredText("path")));
  if (!path) {
    table.Fail("path", "a device path as a text");
  }
  option.path = *path;
  option.active = table.Boolean("active", true);
  table.Finish();
  return option;
}

NvramDescription ReadNvram(TableReader& root, const std::filesystem::path& folder) {
  NvramDescription nvram;
  ReadSetup(root, nvram);
  if (auto table = root.Table("nvram")) {
    nvram.size = table->Integer("size", nvram.size, 1024, 16 * 1024 * 1024);
    nvram.maximumVariable = table->Integer("maximum_variable", nvram.maximumVariable, 256, 1024 * 1024);
    if (const auto mode = table->OptionalInteger("boot_mode", 0, 255)) {
      nvram.bootMode = static_cast<std::uint8_t>(*mode);
    }
    if (const auto flow = table->OptionalInteger("boot_flow", 0, 0xFFFFFFFF)) {
      nvram.bootFlow = static_cast<std::uint32_t>(*flow);
    }
    if (table->Has("secure_boot")) {
      nvram.secureBoot = table->Boolean("secure_boot", false);
    }
    for (TableReader& element : table->Tables("option")) {
      nvram.options.push_back(ReadOption(element));
    }
    const std::string initial = table->Text("initial");
    if (!initial.empty()) {
      nvram.initial = folder / initial;
      if (!std::filesystem::is_directory(nvram.initial)) {
        table->Fail("initial", "an existing folder of variables");
      }
    }
    table->Finish();
  }
  return nvram;
}

std::optional<std::uint32_t> RealModePointer(TableReader& table, const char* key) {
  const auto value = table.OptionalInteger(key, 0, 0xFFFFFFFF);
  return value ? std::optional(static_cast<std::uint32_t>(*value)) : std::nullopt;
}

CsmDescription ReadCsm(TableReader& root) {
  CsmDescription csm;
  auto table = root.Table("csm");
  if (!table) {
    return csm;
  }
  csm.present = table->Boolean("present", true);
  csm.entriesFromDevices = table->Boolean("entries_from_devices", true);
  for (TableReader& element : table->Tables("entry")) {
    BbsEntryDescription entry;
    if (const auto index = element.OptionalInteger("index", 0, 255)) {
      entry.index = static_cast<std::uint8_t>(*index);
    }
    entry.bootPriority = static_cast<std::uint16_t>(element.Integer("boot_priority", entry.bootPriority, 0, 0xFFFF));
    entry.bus = static_cast<std::uint32_t>(element.Integer("bus", entry.bus, 0, 0xFFFFFFFF));
    entry.device = static_cast<std::uint32_t>(element.Integer("device", entry.device, 0, 0xFFFFFFFF));
    entry.function = static_cast<std::uint32_t>(element.Integer("function", entry.function, 0, 0xFFFFFFFF));
    entry.classCode = Byte(element, "class", 1);
    entry.subClass = Byte(element, "subclass", 0);
    entry.deviceType = static_cast<std::uint16_t>(element.Integer("type", entry.deviceType, 0, 0xFFFF));
    entry.statusFlags = static_cast<std::uint16_t>(element.Integer("status", entry.statusFlags, 0, 0xFFFF));
    entry.driveNumber = Byte(element, "drive_number", entry.driveNumber);
    entry.bootHandler = element.Boolean("boot_handler", entry.bootHandler);
    entry.description = element.Text("description");
    entry.manufacturer = element.Text("manufacturer");
    entry.descriptionPointer = RealModePointer(element, "description_pointer");
    entry.manufacturerPointer = RealModePointer(element, "manufacturer_pointer");
    entry.devicePath = element.Text("device_path");
    element.Finish();
    csm.entries.push_back(std::move(entry));
  }
  table->Finish();
  return csm;
}

FirmwareDescription ReadFirmware(TableReader& root, const std::filesystem::path& folder) {
  FirmwareDescription firmware;
  auto table = root.Table("firmware");
  if (!table) {
    return firmware;
  }
  firmware.bootMode = static_cast<std::uint32_t>(table->Integer("boot_mode", 0, 0, 0xFFFFFFFF));
  firmware.untestedBase = table->Integer("untested_base", 0, 0, INT64_MAX);
  firmware.untestedLength = table->Integer("untested_length", 0, 0, INT64_MAX);
  firmware.shellPresent = table->Boolean("shell_present", true);
  firmware.hiiStrings = table->Boolean("hii", true);
  firmware.pathToText = table->Boolean("path_to_text", true);
  firmware.shell = DriveReader(folder).ReadFile(*table, "shell");
  for (TableReader& element : table->Tables("memory_type")) {
    MemoryTypePages pages;
    pages.type = static_cast<std::uint32_t>(element.RequiredInteger("type", 0, 13));
    pages.hobPages = static_cast<std::uint32_t>(element.RequiredInteger("pages", 0, 0xFFFFFFFF));
    pages.usedPages = static_cast<std::uint32_t>(element.Integer("used", 0, 0, 0xFFFFFFFF));
    element.Finish();
    firmware.memoryTypes.push_back(pages);
  }
  table->Finish();
  return firmware;
}

std::vector<HealthDescription> ReadHealth(TableReader& root, const DeviceTree& devices) {
  std::vector<HealthDescription> drivers;
  for (TableReader& element : root.Tables("driver_health")) {
    HealthDescription health;
    health.rootBridge = element.Integer("root_bridge", 0, 0, 255);
    health.bus = Byte(element, "bus", 0);
    health.device = static_cast<std::uint8_t>(element.RequiredInteger("device", 0, 31));
    health.function = static_cast<std::uint8_t>(element.Integer("function", 0, 0, 7));
    for (const std::uint64_t status : element.Integers("statuses", 0, 5)) {
      health.statuses.push_back(static_cast<std::uint32_t>(status));
    }
    if (health.statuses.empty()) {
      element.Fail("statuses", "a list of health states from 0 (healthy) to 5 (reboot required)");
    }
    if (health.rootBridge >= devices.rootBridges.size()) {
      element.Fail("root_bridge", "the place of a described root bridge, from 0");
    }
    health.message = element.Text("message");
    element.Finish();
    drivers.push_back(std::move(health));
  }
  return drivers;
}

void ReadManagement(TableReader& root, ServerDescription& server) {
  auto table = root.Table("management");
  if (!table) {
    return;
  }
  server.managementModePresent = table->Boolean("present", true);
  server.managementMode = table->Boolean("managed", false) ? 1 : 0;
  server.managementConfigFlag = table->Boolean("configuring", false) ? 1 : 0;
  table->Finish();
}

void ReadPlatform(TableReader& root, ServerDescription& server) {
  auto table = root.Table("platform");
  if (!table) {
    return;
  }
  server.platform.sockets = static_cast<std::uint8_t>(table->Integer("sockets", server.platform.sockets, 1, 8));
  server.platform.memoryBlock = table->Boolean("memory_hob", true);
  server.platform.riserBlock = table->Boolean("riser_hob", true);
  server.devices.slotInformation = table->Boolean("slot_info", true);
  server.devices.pciProperties = table->Boolean("pci_properties", true);
  std::string& stale = server.platform.policyStale;
  stale = table->Text("policy_stale");
  if (!stale.empty() && std::ranges::none_of(std::span(bds::kStepNames).first(bds::kStepCount),
                                             [&stale](const char* step) { return stale == step; })) {
    table->Fail("policy_stale", "the name of a step, such as \"VBootSetBootOptionTags\"");
  }
  table->Finish();
}

void ReadBmc(TableReader& root, ServerDescription& server, const std::filesystem::path& folder) {
  auto table = root.Table("bmc");
  if (!table) {
    return;
  }
  server.ipmi = table->Text("ipmi", server.ipmi);
  if (server.ipmi != "builtin" && server.ipmi != "none" && !server.ipmi.starts_with("vm://")) {
    table->Fail("ipmi", "\"builtin\", \"none\" or \"vm://127.0.0.1:PORT\"");
  }
  server.bmcFiles = table->Boolean("files", true);
  if (const auto size = table->OptionalInteger("boot_order_block_size", 0, 0xFF)) {
    server.botBlockSize = static_cast<std::uint8_t>(*size);
  }
  const DriveReader files(folder);
  server.policy = files.ReadFile(*table, "policy");
  server.oneTimePolicy = files.ReadFile(*table, "one_time_policy");
  table->Finish();
}

ServerDescription ReadServer(TableReader& root, const std::filesystem::path& folder) {
  ServerDescription server;
  server.name = root.Text("name", "server");
  server.devices = ReadDeviceTree(root, folder);
  server.csm = ReadCsm(root);
  server.firmware = ReadFirmware(root, folder);
  server.nvram = ReadNvram(root, folder);
  server.health = ReadHealth(root, server.devices);
  ReadManagement(root, server);
  ReadPlatform(root, server);
  ReadBmc(root, server, folder);
  if (auto table = root.Table("front_end")) {
    server.frontEnd = static_cast<FrontEndKind>(table->RequiredWord("kind", {"absent", "returns", "boots", "menu"}));
    table->Finish();
  }
  server.usbSupport = root.Boolean("usb_support", true);
  root.Finish();
  return server;
}

// The parser's own words, but for two slips that it describes by what it met rather than by what is missing.
std::string ParseFault(const toml::parse_error& error, std::string_view text) {
  std::string fault(error.description());
  for (std::uint32_t line = 1; line < error.source().begin.line; ++line) {
    text.remove_prefix(std::min(text.find('\n') + 1, text.size()));
  }
  const std::string_view line = text.substr(0, text.find('\n'));
  const bool controls = std::ranges::any_of(line, [](char each) { return each >= 0 && each < ' ' && each != '\t'; });
  if (fault.find("control characters") != std::string::npos && !controls) {
    return "a text that is closed by a quote on its own line was expected";
  }
  const bool untyped = fault.find("determine value type") != std::string::npos;
  return untyped ? fault + "; a text stands in quotes" : fault;
}

}  // namespace

std::vector<std::uint8_t> DefaultSetup() {
  std::vector<std::uint8_t> setup(kSetupSize, 0);
  constexpr std::uint8_t kPolicy[] = {0, 2, 1, 2, 2, 1};
  std::copy(std::begin(kPolicy), std::end(kPolicy), setup.begin() + kSetupOptionRomPolicy);
  setup[kSetupStrictGroupOrder] = 1;
  setup[kSetupUefiMode] = 1;
  return setup;
}

ServerDescription ParseServerDescription(std::string_view text, const std::string& name,
                                         const std::filesystem::path& folder) {
  try {
    const toml::table table = toml::parse(text, name);
    TableReader root(table, name, "");
    return ReadServer(root, folder);
  } catch (const toml::parse_error& error) {
    throw DescriptionError(name, error.source().begin.line, "", ParseFault(error, text));
  }
}

ServerDescription LoadServerDescription(const std::filesystem::path& file) {
  const auto text = ReadHostFile(file);
  if (!text) {
    throw DescriptionError(file.string(), 0, "", "cannot be read");
  }
  return ParseServerDescription(*text, file.string(), file.parent_path());
}

}  // namespace sim

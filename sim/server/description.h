// A described server as plain values: what the TOML file says, checked, with every default filled in.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/bus/device_tree.h"
#include "sim/csm/bbs_description.h"
#include "sim/server/table_reader.h"

namespace sim {

// What the setup front end does when the driver hands over to it.
enum class FrontEndKind { Absent, Returns, Boots, Menu };

struct MemoryTypePages {
  std::uint32_t type = 0;
  std::uint32_t hobPages = 0;   // what the last boots needed, by the hand-off block
  std::uint32_t usedPages = 0;  // what this boot needs, by the configuration table
};

struct FirmwareDescription {
  std::uint32_t bootMode = 0;  // of the hand-off block list
  std::vector<MemoryTypePages> memoryTypes;
  std::uint64_t untestedBase = 0;  // reserved memory that is initialised but not tested
  std::uint64_t untestedLength = 0;
  std::filesystem::path shell;  // the built-in shell's file; empty: the simulator's own
  bool shellPresent = true;
  bool hiiStrings = true;  // the HII database is there
  bool pathToText = true;  // the device-path-to-text protocol is there
};

// What the platform tells the driver besides its devices.
struct PlatformDescription {
  std::uint8_t sockets = 2;  // processors, in the memory block
  bool memoryBlock = true;   // the two hand-off blocks
  bool riserBlock = true;
  std::string policyStale;  // the driver's step during which the platform calls the boot policy stale; empty: never
};

// A boot option as an installer leaves it.
struct InstalledOption {
  std::uint16_t number = 0;
  std::string name;
  std::vector<std::byte> path;  // one device path
  bool active = true;
};

struct NvramDescription {
  std::uint64_t size = 256 * 1024;  // bytes of non-volatile storage
  std::uint64_t maximumVariable = 64 * 1024;
  std::optional<std::vector<std::uint8_t>> setup;  // the Setup variable; absent: the server has none
  bool setupDescribed = false;                     // by a [setup] table, not by the defaults alone
  std::optional<std::uint8_t> bootMode;            // first byte of the platform's boot mode record
  std::optional<std::uint32_t> bootFlow;           // hot key of the boot menu, at each boot; absent: no such variable
  std::optional<bool> secureBoot;                  // the SecureBoot variable, at each boot; absent: there is none
  std::vector<InstalledOption> options;            // of a state without variables, in boot order
  std::filesystem::path initial;                   // efivarfs-style folder that a state without variables starts from
};

// A driver that answers scripted health for one PCI function.
struct HealthDescription {
  std::size_t rootBridge = 0;  // its place among the described ones
  std::uint8_t bus = 0;
  std::uint8_t device = 0;
  std::uint8_t function = 0;
  std::vector<std::uint32_t> statuses;  // answered one after the other; the last one stays
  std::string message;
};

struct ServerDescription {
  std::string name;
  DeviceTree devices;
  CsmDescription csm;
  bool managementModePresent = true;
  std::uint8_t managementMode = 0;  // 1: managed
  std::uint8_t managementConfigFlag = 0;
  FrontEndKind frontEnd = FrontEndKind::Returns;
  bool usbSupport = true;
  std::optional<std::uint8_t> botBlockSize;  // of the boot order table; none: as the BMC's state says
  std::string ipmi = "builtin";  // "builtin", "none" or "vm://127.0.0.1:PORT"
  bool bmcFiles = true;          // the BMC answers on its BT registers
  std::filesystem::path policy;  // files that a BMC without files starts with; empty: none
  std::filesystem::path oneTimePolicy;
  PlatformDescription platform;
  FirmwareDescription firmware;
  NvramDescription nvram;
  std::vector<HealthDescription> health;
};

// Reads and checks a description. Throws DescriptionError; paths in it are relative to the file's own folder.
ServerDescription LoadServerDescription(const std::filesystem::path& file);
// The same from a text, for tests; folder is what its paths are relative to.
ServerDescription ParseServerDescription(std::string_view text, const std::string& name,
                                         const std::filesystem::path& folder);

// Defaults of the Setup record: UEFI boot on, loose group order, option ROM policy 0, 2, 1, 2, 2, 1, no health checks.
std::vector<std::uint8_t> DefaultSetup();

// The [[root_bridge]] and [[slot]] tables (description_devices.cpp).
DeviceTree ReadDeviceTree(TableReader& root, const std::filesystem::path& folder);

}  // namespace sim

// One described server over several boots: what stays is in its state (NVRAM, BMC), everything else is built anew for
// each boot and torn down behind it.
//   Server server(LoadServerDescription("rack.toml"), {.state = "state"});
//   BootReport report = server.Boot({});
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/bmc/bmc.h"
#include "sim/firmware/clock.h"
#include "sim/firmware/image/loader_policy.h"
#include "sim/firmware/machine.h"
#include "sim/firmware/services/console.h"
#include "sim/firmware/variables/efivars_folder.h"
#include "sim/firmware/variables/variable_store.h"
#include "sim/server/boot_request_watch.h"
#include "sim/server/console_keys.h"
#include "sim/server/deleted_options.h"
#include "sim/server/description.h"
#include "sim/server/devices_without_option.h"
#include "sim/server/loader_order_watch.h"

namespace sim {

class StateError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ServerOptions {
  std::filesystem::path state;  // holds nvram/ and bmc/; empty: nothing is kept beyond this object
  std::filesystem::path image;  // bds.efi to run; empty: the driver linked into this program
};

struct BootRequest {
  LoaderPolicy loader;                        // what starting an operating system's loader means
  EFI_STATUS legacyBootStatus = EFI_SUCCESS;  // an error: LegacyBoot answers it; else it ends the boot
  std::uint64_t debugMask = 0x80000046;
  bool trace = false;                                      // the driver's calls with an effect are told onTraffic too
  bool tracePci = false;                                   // and its accesses to network controllers' registers
  std::vector<std::string> faults;                         // in FaultScript's words, or a BMC fault's
  std::function<void(const std::string& line)> onLogLine;  // as the debug text leaves the serial port
  std::function<void(const std::string& step)> onStep;     // as the driver begins it
  std::function<void(const std::string& line)> onTraffic;  // one per IPMI request and BMC exchange, with its time
  std::function<void(std::string_view utf8)> onConsole;    // as text appears on the console
  ConsoleModel::CursorHandler onCursor;                    // as somebody places the cursor or clears the screen
  ConsoleModel::ColourHandler onColours;                   // as somebody chooses the colours of what follows
  ConsoleKeys* keys = nullptr;                             // keys typed at the console; null: none
  std::function<void(Machine&)> beforeStart;  // for tests: the machine is complete, the driver not yet started
  std::function<void(Machine&, const BootOutcome&)> afterEnd;  // the machine is still there
};

// One option of the order in force at the end of the boot.
struct OptionReport {
  std::uint16_t number = 0;
  bool inOrder = false;
  bool readable = true;  // false: BootOrder names it, but there is no such variable, or it is malformed
  std::uint32_t attributes = 0;
  std::u16string name;
  std::string path;         // of its first device path
  std::string device = {};  // the same behind the mask of a device that was absent
  bool legacy = false;
  bool firmware = false;  // it carries the firmware's marker
  bool group = false;
};

// One attempt to start something, in the order in which they happened.
struct AttemptReport {
  std::optional<std::uint16_t> option = std::nullopt;  // whose attempt it is; none: a driver's image and the like
  std::string what;                                    // the image's path, or the legacy device
  bool legacy = false;
  bool loaded = false;  // false: LoadImage failed
  EFI_STATUS status = EFI_SUCCESS;
  std::string reason;  // of a failed load
  bool ended = false;  // it ended the boot
};

struct StepReport {
  std::string name;
  Ticks start = 0;
  Ticks duration = 0;
  TimesPassed waited{};            // the duration by what it passed for
  std::size_t writesBefore = 0;    // variable writes of this boot before it
  std::uint64_t serviceCalls = 0;  // boot and runtime services, calls within the firmware included
};

// A Boot#### variable that was no load option when the boot began.
struct DamagedOption {
  std::u16string name;
  std::size_t size = 0;  // bytes
  bool deleted = false;  // the driver deleted it
};

// A fault of the request, and where it was met.
struct FaultReport {
  std::string words;
  std::uint64_t met = 0;    // how often
  std::uint64_t first = 0;  // number of the call, write or exchange that it befell first
  std::string step;         // in which that happened; empty: before the first
  Ticks at = 0;
};

struct BootReport {
  BootOutcome outcome;
  std::optional<std::uint16_t> bootCurrent;    // number of the option that was started, or that was being tried last
  std::optional<std::uint16_t> bootNext;       // set at the end
  std::optional<std::uint16_t> bootNextTaken;  // set at the beginning and taken away in this boot
  BootRequestReport request;                   // the BMC's
  std::vector<DamagedOption> damaged;          // found at the beginning
  // Those that were there at the beginning; of a boot that did not save its options, those of loaders only.
  std::vector<DeletedOption> deleted;
  std::vector<LoaderMove> movedLoaders;
  std::vector<FaultReport> faults;                        // as scripted, those that were not met too
  std::vector<DeviceWithoutOption> devicesWithoutOption;  // of a boot that saved its options
  std::vector<std::uint16_t> bootOrder;
  std::vector<OptionReport> options;  // those in the order first, in order; then the others by number
  std::vector<AttemptReport> attempts;
  std::vector<StepReport> steps;
  std::vector<VariableWrite> writes;  // this boot's
  std::map<std::string, std::uint64_t> counts;
  std::vector<std::string> complaints;         // misuse of services by the software under test
  std::vector<std::string> foreignComplaints;  // by loaders and drivers from the server's media, each with its path
  std::size_t poolPeak = 0;                    // bytes
  std::size_t poolInUse = 0;                   // bytes held by the driver at the end
  std::string log;
  std::string console;
  std::vector<std::string> screen;  // its lines at the end, UTF-8
  bool Started() const;             // an option was started
};

class Server {
 public:
  // Throws StateError when the state folder is damaged (the message names the file) or the image cannot be read.
  Server(ServerDescription description, ServerOptions options);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  const ServerDescription& Description() const { return description_; }
  // Changes what is plugged in; takes effect at the next boot.
  ServerDescription& Description() { return description_; }
  VariableStore& Variables() { return store_; }
  const VariableStore& Variables() const { return store_; }
  // What the BMC keeps between boots, as Bmc::FilesOf and Bmc::ParametersOf name it; may not exist yet.
  const std::filesystem::path& BmcFolder() const { return bmcFolder_; }

  // What whoever wrote the description should know before a boot, one sentence each.
  const std::vector<std::string>& Notes() const { return notes_; }

  // Power on (or after a reset), until the boot ends. Throws StateError when the BMC's state is damaged.
  BootReport Boot(const BootRequest& request);

 private:
  struct Parts;  // what one boot is made of
  void LoadVariables();
  void NoteSetup();
  void GiveInitialVariables();
  void GiveBootVariables();
  void PlaceBmc();
  void GivePolicies();

  ServerDescription description_;
  ServerOptions options_;
  std::vector<std::byte> image_;
  std::filesystem::path bmcFolder_;
  std::vector<std::string> notes_;
  VariableStore store_;
  std::unique_ptr<EfivarsFolder> folder_;
};

}  // namespace sim

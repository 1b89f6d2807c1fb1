#include "sim/server/server.h"

#include <fmt/format.h>

#include <cstdlib>

#include "bootopt/names/string_package.h"
#include "core/entry.h"
#include "platform/bds_arch.h"
#include "platform/setup_variable.h"
#include "sim/server/boot_recorder.h"
#include "sim/server/host_file.h"
#include "sim/server/installed_options.h"
#include "sim/server/machine_parts.h"
#include "sim/server/policy_files.h"
#include "sim/server/policy_stale_signal.h"
#include "sim/server/setup_fields.h"

// The host program's data and zero-initialised sections: the linked driver's state records lie in them.
extern "C" std::byte __data_start[];  // NOLINT: names of the linker
extern "C" std::byte _end[];          // NOLINT

namespace sim {
namespace {

constexpr CHAR16 kSecureBootName[] = u"SecureBoot";

std::vector<std::byte> ReadWhole(const std::filesystem::path& file) {
  const auto bytes = ReadHostFile(file);
  if (!bytes) {
    throw StateError(fmt::format("{}: cannot be read", file.string()));
  }
  const auto* first = reinterpret_cast<const std::byte*>(bytes->data());
  return {first, first + bytes->size()};
}

void AddFaults(Machine& machine, const std::vector<std::string>& faults, BmcOptions& options) {
  for (const std::string& words : faults) {
    std::string error;
    const std::string_view first = std::string_view(words).substr(0, words.find(' '));
    if (first == "call" || first == "power") {
      if (!machine.Faults().Add(words, error)) {
        throw StateError(error);
      }
      continue;
    }
    if (first == "ipmi") {
      const auto fault = IpmiFault::Parse(words, error);
      if (!fault) {
        throw StateError(error);
      }
      options.ipmiFaults.push_back(*fault);
      continue;
    }
    const auto fault = BmcFault::Parse(words, error);
    if (!fault) {
      throw StateError(error +
                       ". Other faults: \"call SERVICE N STATUS [COUNT]\", \"power KIND N\", "
                       "\"ipmi REQUEST N ANSWER [COUNT]\"");
    }
    options.faults.push_back(*fault);
  }
}

}  // namespace

bool BootReport::Started() const {
  return outcome.end == BootEnd::HandedOver || outcome.end == BootEnd::LegacyBoot ||
         outcome.end == BootEnd::ExitedBootServices;
}

Server::Server(ServerDescription description, ServerOptions options)
    : description_(std::move(description)),
      options_(std::move(options)),
      store_({.nonVolatileSize = description_.nvram.size, .maximumVariableSize = description_.nvram.maximumVariable}) {
  if (!options_.image.empty()) {
    image_ = ReadWhole(options_.image);
  }
  LoadVariables();
  NoteSetup();
  GiveInitialVariables();
  PlaceBmc();
  GivePolicies();
}

Server::~Server() {
  if (options_.state.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(bmcFolder_, ignored);
  }
}

// A BMC keeps its files over the boots of a server; without a state folder they lie in one that goes with the server.
void Server::PlaceBmc() {
  if (!options_.state.empty()) {
    bmcFolder_ = options_.state / "bmc";
    std::error_code ignored;
    if (std::filesystem::exists(bmcFolder_, ignored) && !std::filesystem::is_directory(bmcFolder_, ignored)) {
      throw StateError(fmt::format("{}: is no folder", bmcFolder_.string()));
    }
    return;
  }
  std::string place = (std::filesystem::temp_directory_path() / "bds-sim-bmc-XXXXXX").string();
  if (mkdtemp(place.data()) == nullptr) {
    throw StateError("no temporary folder for the BMC's files can be made");
  }
  bmcFolder_ = place;
}

// The description's policies are what a new BMC is handed over with; what becomes of them is the BMC's and the
// driver's.
void Server::GivePolicies() {
  std::error_code none;
  const std::filesystem::path files = Bmc::FilesOf(bmcFolder_);
  if (std::filesystem::exists(files, none) && !std::filesystem::is_empty(files, none)) {
    return;
  }
  if (!description_.policy.empty()) {
    PutPolicy(bmcFolder_, description_.policy, PolicyFile::Lasting);
  }
  if (!description_.oneTimePolicy.empty()) {
    PutPolicy(bmcFolder_, description_.oneTimePolicy, PolicyFile::OneTime);
  }
}

void Server::LoadVariables() {
  const auto load = [this](const std::filesystem::path& path) {
    EfivarsFolder folder(path);
    if (!folder.Load(store_)) {
      throw StateError(folder.Error());
    }
  };
  const std::filesystem::path nvram = options_.state / "nvram";
  const bool kept = !options_.state.empty();
  std::error_code unusable;  // creating the folder then says why
  const bool fresh = !kept || !std::filesystem::exists(nvram, unusable) || std::filesystem::is_empty(nvram, unusable);
  if (fresh && !description_.nvram.initial.empty()) {
    load(description_.nvram.initial);
  }
  if (fresh && !InstallOptions(store_, description_.nvram.options)) {
    throw StateError("the NVRAM is too small for the described boot options");
  }
  if (!kept) {
    return;
  }
  folder_ = std::make_unique<EfivarsFolder>(nvram);
  std::error_code failed;
  std::filesystem::create_directories(nvram, failed);
  if (failed) {
    throw StateError(fmt::format("{}: cannot be made: {}", nvram.string(), failed.message()));
  }
  if (!fresh) {
    load(nvram);
  } else if (!folder_->Save(store_)) {
    throw StateError(folder_->Error());
  }
  store_.SetSink(folder_.get());
}

constexpr std::uint8_t kSwitchedOnByPolicy = 2;  // the driver's own doing

// A description edited after the first boot changes nothing of a state, which looks like a boot that ignores it.
void Server::NoteSetup() {
  const Variable* setup = store_.Find(kSetupName, kSetupGuid);
  if (setup == nullptr || !description_.nvram.setupDescribed || !description_.nvram.setup) {
    return;
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(setup->data.data());
  std::vector<std::uint8_t> described = *description_.nvram.setup;
  if (setup->data.size() > kSetupEfiBootOptionsEnable && bytes[kSetupEfiBootOptionsEnable] == kSwitchedOnByPolicy) {
    described[kSetupEfiBootOptionsEnable] = kSwitchedOnByPolicy;
  }
  const auto differences = SetupDifferences({bytes, setup->data.size()}, described);
  if (!differences.empty()) {
    notes_.push_back(
        fmt::format("the state's own Setup holds and differs from the description: {}", fmt::join(differences, "; ")));
  }
}

void Server::GiveInitialVariables() {
  const auto give = [this](const CHAR16* name, const EFI_GUID& guid, std::span<const std::byte> data) {
    constexpr std::uint32_t kKept = EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS;
    if (store_.Find(name, guid) == nullptr && EFI_ERROR(store_.Set(name, guid, kKept, data))) {
      const bool unwritable = folder_ != nullptr && !folder_->Error().empty();
      throw StateError(unwritable ? folder_->Error() : "the NVRAM is too small for the server's own records");
    }
  };
  if (description_.nvram.setup) {
    give(kSetupName, kSetupGuid, std::as_bytes(std::span(*description_.nvram.setup)));
  }
  if (description_.nvram.bootMode) {
    std::vector<std::byte> record(kVeyraNvramDataSize);
    record[kVeyraBootMode] = std::byte{*description_.nvram.bootMode};
    give(kVeyraNvramDataName, kVeyraNvramDataGuid, record);
  }
}

// What the firmware's earlier phases say anew at each boot.
void Server::GiveBootVariables() {
  const auto give = [this](const CHAR16* name, const EFI_GUID& guid, std::uint32_t attributes, auto value) {
    if (EFI_ERROR(store_.Set(name, guid, attributes, std::as_bytes(std::span(&value, 1))))) {
      throw StateError("there is no room for the variables of a boot");
    }
  };
  if (description_.nvram.bootFlow) {
    give(kBootFlowName, kBootFlowGuid, EFI_VARIABLE_BOOTSERVICE_ACCESS, *description_.nvram.bootFlow);
  }
  if (description_.nvram.secureBoot) {
    give(kSecureBootName, gEfiGlobalVariableGuid, EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS,
         static_cast<std::uint8_t>(*description_.nvram.secureBoot ? 1 : 0));
  }
}

// One boot: the machine, its parts and the BMC live as long as this does.
struct Server::Parts {
  Parts(Server& owner, const BootRequest& bootRequest)
      : server(owner), request(bootRequest), recorder(machine, request) {
    BmcOptions options;
    AddFaults(machine, request.faults, options);
    options.folder = server.bmcFolder_;
    options.ipmi = server.description_.ipmi.starts_with("vm://") ? server.description_.ipmi : "";
    options.botBlockSize = server.description_.botBlockSize;
    BmcHooks hooks;
    hooks.onWrite = [this](std::string_view kind) { machine.OnWrite(kind); };
    hooks.onTraffic = [this](const std::string& line) { recorder.OnTraffic(line); };
    hooks.onFault = [this](std::string_view words, std::uint64_t nth) { recorder.OnFault(words, nth); };
    hooks.onIpmi = [this](const IpmiExchange& exchange) { recorder.OnIpmi(exchange); };
    machine.Faults().SetMetHook(hooks.onFault);
    hooks.onPowerLoss = [this] { machine.EndBoot(BootEnd::PowerLost, "the power was lost in a BMC exchange"); };
    std::string error;
    bmc = Bmc::Create(std::move(options), machine.Time(), machine.Counts(), hooks, error);
    if (bmc == nullptr) {
      throw StateError(error);
    }
    parts = std::make_unique<MachineParts>(machine, server.description_, server.store_, *bmc);
    parts->Images().Policy() = request.loader;
    recorder.Connect(*parts, server.description_.ipmi != "none");
    policyStale = std::make_unique<PolicyStaleSignal>(machine, server.description_.platform.policyStale);
    recorder.OnStep([this](std::string_view step) { policyStale->OnStep(step); });
    CreateDriver();
  }

  void CreateDriver() {
    const std::string text = fmt::format("debug-mask=0x{:X}", request.debugMask | BootRecorder::kStepLevel);
    const std::u16string options(text.begin(), text.end());
    if (server.image_.empty()) {
      const auto strings = bds::StringPackageList();
      driver = parts->Images().CreateLinkedDriverImage(
          options, reinterpret_cast<const EFI_HII_PACKAGE_LIST_HEADER*>(strings.data()));
      machine.SetDriver(driver, {MemoryExtent(__data_start, static_cast<std::size_t>(_end - __data_start))});
      return;
    }
    driver = parts->Images().LoadDriverImage(server.image_, {}, options);
    if (driver == nullptr) {
      throw StateError(fmt::format("{}: {}", server.options_.image.string(), parts->Images().Error()));
    }
    machine.SetDriver(driver, parts->Images().WritableMemory(driver));
  }

  // What the DXE core does: the driver's entry point, then the BDS protocol's service.
  EFI_STATUS RunDriver() {
    EFI_STATUS status = EFI_SUCCESS;
    if (server.image_.empty()) {
      machine.PushOwner(driver);
      status = EfiMain(driver, machine.SystemTable());
      machine.PopOwner();
    } else {
      status = machine.BootServices()->StartImage(driver, nullptr, nullptr);
    }
    void* bds = nullptr;
    if (!EFI_ERROR(status)) {
      status = machine.Handles().LocateProtocol(&ProtocolGuid<EFI_BDS_ARCH_PROTOCOL>, nullptr, &bds);
    }
    if (!EFI_ERROR(status)) {
      machine.PushOwner(driver);
      static_cast<EFI_BDS_ARCH_PROTOCOL*>(bds)->Entry(static_cast<EFI_BDS_ARCH_PROTOCOL*>(bds));
      machine.PopOwner();
    }
    return status;
  }

  Server& server;
  const BootRequest& request;
  Machine machine;
  BootRecorder recorder;
  std::unique_ptr<Bmc> bmc;
  std::unique_ptr<MachineParts> parts;
  std::unique_ptr<PolicyStaleSignal> policyStale;
  EFI_HANDLE driver = nullptr;
};

BootReport Server::Boot(const BootRequest& request) {
  store_.PowerCycle();
  GiveBootVariables();
  store_.ForgetJournal();
  Parts boot(*this, request);
  if (Csm* csm = boot.machine.Get<Csm>(); csm != nullptr) {
    csm->bootStatus = request.legacyBootStatus;
  }
  if (request.beforeStart) {
    request.beforeStart(boot.machine);
  }
  BootReport report;
  report.outcome = boot.machine.Run([&boot] { return boot.RunDriver(); });
  boot.bmc->WriteParameters();
  boot.recorder.Finish(report, store_, boot.driver);
  if (request.afterEnd) {
    request.afterEnd(boot.machine, report.outcome);
  }
  return report;
}

}  // namespace sim

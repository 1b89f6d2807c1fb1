// The whole BMC of the simulated server: its files behind the block-transfer registers, its boot option parameters
// behind the IPMI transport, and the folder that keeps both from boot to boot.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/bmc/bt_interface.h"
#include "sim/bmc/ipmi_fault.h"
#include "sim/bmc/ipmi_transport.h"
#include "sim/bmc/vm_client.h"

namespace sim {

struct BmcOptions {
  std::optional<std::filesystem::path> folder;  // holds files/ and parameters.toml; none: kept in memory
  std::string ipmi;                             // empty: the built-in model; else "vm://127.0.0.1:PORT"
  std::vector<BmcFault> faults;
  std::vector<IpmiFault> ipmiFaults;
  std::optional<std::uint8_t> botBlockSize;  // what the built-in model says of the boot order table's blocks
};

class Bmc {
 public:
  // Null with `error` set when the folder's state is damaged or the simulator at the address does not answer.
  static std::unique_ptr<Bmc> Create(BmcOptions options, Clock& clock, Counters& counters, BmcHooks hooks,
                                     std::string& error);
  Bmc(const Bmc&) = delete;
  Bmc& operator=(const Bmc&) = delete;
  ~Bmc();

  static std::filesystem::path FilesOf(const std::filesystem::path& folder) { return folder / "files"; }
  static std::filesystem::path ParametersOf(const std::filesystem::path& folder) { return folder / "parameters.toml"; }

  void Attach(PortBus& bus) { interface_.Attach(bus); }

  // What a reset of the server does to its side of the BMC; files and parameters keep.
  void ResetInterface();

  // Writes the parameters into the folder if they changed. Dozens of requests of a start change them, and each
  // replacement of a file waits for the disk: whoever ends a start calls this, and the destructor does.
  void WriteParameters();

  FileStore& Files() { return files_; }
  BtInterface& Interface() { return interface_; }
  BmcState& State() { return state_; }  // of the built-in model
  IpmiTransportDevice& Transport() { return *transport_; }

 private:
  Bmc(BmcOptions options, Clock& clock, Counters& counters, BmcHooks hooks);
  bool ConnectIpmi(std::string& error);
  void OnChange();
  void MakeOneTimePolicyStale();
  void EndSetInProgress();

  BmcOptions options_;
  Clock& clock_;
  Counters& counters_;
  BmcHooks hooks_;
  FileStore files_;
  FileServer server_;
  BtInterface interface_;
  BmcState state_;
  bool changed_ = false;  // since the parameters were last written
  std::unique_ptr<IpmiResponder> responder_;
  std::unique_ptr<FaultyResponder> faulty_;
  std::unique_ptr<IpmiTransportDevice> transport_;
};

}  // namespace sim

// What the BMC asked a boot for and what became of it, found out from outside: from the IPMI requests that pass, the
// variables before and after, and the order in force at the end. The driver is not asked.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/bmc/ipmi_exchange.h"
#include "sim/firmware/variables/variable_store.h"

namespace sim {

struct BootRequestReport {
  enum class Source { None, Bmc, Nvram };
  Source source = Source::None;         // who asked: the BMC now, or an earlier boot's persistent request
  std::array<std::uint8_t, 5> flags{};  // data 1 to 5 of the boot flags; what the BMC gave, valid or not
  bool acknowledged = false;            // the driver told the BMC that the BIOS handled the request
  bool cleared = false;                 // the driver took the request away from the BMC
  bool kept = false;                    // a persistent request stands in NVRAM at the end
  bool followed = false;                // the order in force has a device of the kind asked for in front
  std::optional<std::uint16_t> option;  // that option
  std::string result;                   // what was done and, if not what was asked, why
  bool Asked() const { return source != Source::None; }
  bool Persistent() const { return (flags[0] & 0x40) != 0; }
  bool Efi() const { return (flags[0] & 0x20) != 0; }
};

// Results of a boot that nobody asked anything of.
inline constexpr const char* kNothingAsked = "nothing was asked for";
inline constexpr const char* kNoTransport = "the server has no IPMI transport";

class BootRequestWatch {
 public:
  // Before the driver starts; transport: the server has an IPMI transport.
  void Begin(const VariableStore& store, bool transport);
  void OnIpmi(const IpmiExchange& exchange);
  // At the end of the boot.
  BootRequestReport Report(const VariableStore& store) const;

 private:
  // The first good answer about a parameter of the System Boot Options, and what the last other one was.
  struct Parameter {
    bool answered = false;
    std::vector<std::uint8_t> data;
    std::string failure;
    bool set = false;  // the driver's last setting was accepted
  };
  std::string Unread() const;
  bool FlagsOfBmc(BootRequestReport& report) const;
  void TakeSource(BootRequestReport& report) const;
  void Judge(BootRequestReport& report, const VariableStore& store) const;

  bool transport_ = true;
  std::vector<std::byte> storedBefore_;
  std::map<std::uint8_t, Parameter> parameters_;
};

}  // namespace sim

// The block-transfer interface's three registers as a state machine (IPMI 2.0, chapter 11), and the BMC behind it that
// answers file transfer requests after a while of virtual time. A host that breaks the handshake is complained about.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "sim/bmc/bt_fault.h"
#include "sim/bmc/file_protocol.h"
#include "sim/bmc/ipmi_exchange.h"
#include "sim/firmware/clock.h"
#include "sim/firmware/counters.h"
#include "sim/firmware/port_bus.h"

namespace sim {

// What the BMC's side reports to the machine. Each may end the boot, so each is called last. May be empty.
struct BmcHooks {
  std::function<void(std::string_view kind)> onWrite;  // "bmc-exchange" when a request took effect; "bmc" for a change
  std::function<void()> onPowerLoss;                   // of a scripted fault
  // One line per request taken, with what befell it in brackets, and per wait that the host gives up. Ends no boot.
  std::function<void(const std::string& line)> onTraffic;
  // A scripted fault befell that exchange.
  std::function<void(std::string_view words, std::uint64_t exchange)> onFault;
  // One IPMI request and its answer.
  std::function<void(const IpmiExchange& exchange)> onIpmi;
};

class BtInterface {
 public:
  static constexpr std::uint16_t kControl = 0x620;
  static constexpr std::uint16_t kBuffer = 0x621;
  static constexpr std::uint16_t kInterruptMask = 0x622;

  // How long the BMC takes to pick a request up, and from then to its answer.
  static constexpr Ticks kTakeTime = 20 * kMicrosecond;
  static constexpr Ticks kAnswerTime = 300 * kMicrosecond;

  // One request handed over and the answer made for it (empty: none), as they went over the wire.
  struct Exchange {
    Ticks at = 0;
    Frame request;
    Frame response;
  };

  BtInterface(FileServer& server, Clock& clock, Counters& counters, BmcHooks hooks = {});

  void Attach(PortBus& bus);
  void AddFault(const BmcFault& fault) { faults_.push_back(fault); }

  // What a reset of the server does: registers, lock and what was under way are gone, the faults still scripted too.
  void Reset();

  // Requests handed over so far, those sent again included; counted as "bmc.exchanges". Further counters: "bmc.bytes"
  // both ways, "bmc.retries" requests sent again after a bad checksum, "bmc.timeouts" answers or a free interface that
  // the host waited for in vain.
  std::uint64_t Exchanges() const { return exchangeCount_; }
  // The last exchanges, oldest first; at most kMaxTrace.
  const std::vector<Exchange>& Trace() const { return trace_; }
  bool LockTaken() const { return (interruptMask_ & kLock) != 0; }

  std::uint8_t Read(std::uint16_t port);
  void Write(std::uint16_t port, std::uint8_t value);

 private:
  static constexpr std::uint8_t kLock = 0x10;
  static constexpr std::size_t kMaxTrace = 100'000;
  static constexpr std::size_t kMaxRequest = 256;

  struct Pending {
    Ticks due = 0;
    Frame response;
    bool lying = false;
  };

  bool Befalls(BmcFault::Kind kind, std::uint64_t exchange, std::uint64_t* value = nullptr);
  void WriteControl(std::uint8_t value);
  void HandOver();
  void Progress();
  void TakeRequest();
  bool RequestIsSound();
  Pending MakeAnswer(bool& changed);
  void Corrupt(Pending& answer);
  std::uint8_t ReadControl();
  std::uint8_t ReadBuffer();
  std::uint8_t ReadInterruptMask();
  bool LooksStuck();
  void WatchTimeout();
  void Complain(std::string text);
  void Note(std::string_view text);
  void TellExchange();
  void Tell(std::uint64_t exchange, std::string_view what);

  FileServer& server_;
  Clock& clock_;
  Counters& counters_;
  BmcHooks hooks_;
  std::vector<BmcFault> faults_;

  bool h2bAttention_ = false;
  bool b2hAttention_ = false;
  bool hostBusy_ = false;
  bool writePointerCleared_ = false;
  std::uint8_t interruptMask_ = 0;

  std::string notes_;  // faults that befell since the last line of traffic

  Frame request_;
  Ticks takeAt_ = 0;
  std::optional<Pending> pending_;
  Frame response_;
  bool responseLies_ = false;
  std::size_t readPosition_ = 0;

  std::uint64_t exchangeCount_ = 0;
  std::vector<Exchange> trace_;
  // The last request, when its answer was damaged on the way, and that answer as it should have been: asked again, the
  // BMC repeats the answer and does not read or write another piece.
  std::optional<Exchange> damaged_;
  std::optional<Ticks> awaitingSince_;
  bool stuck_ = false;
  std::uint64_t stuckPolls_ = 0;
  Ticks lastControlRead_ = 0;
};

}  // namespace sim

// The BMC put together.
#include "sim/bmc/bmc.h"

#include <utility>

namespace sim {

std::unique_ptr<Bmc> Bmc::Create(BmcOptions options, Clock& clock, Counters& counters, BmcHooks hooks,
                                 std::string& error) {
  std::unique_ptr<Bmc> bmc(new Bmc(std::move(options), clock, counters, std::move(hooks)));
  if (bmc->options_.folder) {
    auto state = BmcState::Load(ParametersOf(*bmc->options_.folder), error);
    if (!state) {
      return nullptr;
    }
    bmc->state_ = *state;
    bmc->EndSetInProgress();
  }
  bmc->state_.botBlockSize = bmc->options_.botBlockSize.value_or(bmc->state_.botBlockSize);
  return bmc->ConnectIpmi(error) ? std::move(bmc) : nullptr;
}

Bmc::Bmc(BmcOptions options, Clock& clock, Counters& counters, BmcHooks hooks)
    : options_(std::move(options)),
      clock_(clock),
      counters_(counters),
      hooks_(std::move(hooks)),
      files_(options_.folder ? FileStore(FilesOf(*options_.folder)) : FileStore()),
      server_(files_),
      interface_(server_, clock, counters, hooks_) {
  for (const BmcFault& fault : options_.faults) {
    interface_.AddFault(fault);
  }
}

bool Bmc::ConnectIpmi(std::string& error) {
  if (options_.ipmi.empty()) {
    IpmiModel::Events events;
    events.onChange = [this] { OnChange(); };
    events.onOneTimeStale = [this] { MakeOneTimePolicyStale(); };
    responder_ = std::make_unique<IpmiModel>(state_, clock_, std::move(events));
  } else {
    auto client = std::make_unique<VmClient>();
    if (!client->Connect(options_.ipmi, error)) {
      return false;
    }
    // The files are kept here, whoever answers the requests.
    client->onDone = [this](std::uint8_t netFn, std::uint8_t command) {
      if (IpmiModel::IsOneTimeStale(netFn, command)) {
        MakeOneTimePolicyStale();
      }
    };
    responder_ = std::move(client);
  }
  faulty_ = std::make_unique<FaultyResponder>(*responder_, options_.ipmiFaults, hooks_.onFault);
  transport_ = std::make_unique<IpmiTransportDevice>(*faulty_, clock_, counters_);
  transport_->onExchange = hooks_.onIpmi;
  transport_->onTraffic = hooks_.onTraffic;
  return true;
}

void Bmc::MakeOneTimePolicyStale() {
  static_cast<void>(files_.Rename("OneTimeConfigPolicy.xml", "OneTimeConfigPolicy_stale.xml"));
}

// A reset or start of the server ends the setting of parameters that it was in the middle of (IPMI 2.0, 28.14).
void Bmc::EndSetInProgress() { state_.setInProgress = 0; }

void Bmc::ResetInterface() {
  EndSetInProgress();
  interface_.Reset();
  server_.CloseAll();
}

Bmc::~Bmc() { WriteParameters(); }

void Bmc::WriteParameters() {
  std::string error;
  if (!std::exchange(changed_, false)) {
    return;
  }
  if (options_.folder && !state_.Save(ParametersOf(*options_.folder), error)) {
    counters_.Complain("BMC: " + error);
  }
}

// What changed is remembered before the power can go.
void Bmc::OnChange() {
  changed_ = true;
  if (hooks_.onWrite) {
    hooks_.onWrite("bmc");
  }
}

}  // namespace sim

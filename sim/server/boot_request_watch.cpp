#include "sim/server/boot_request_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "bmc/ipmi_variables.h"
#include "sim/bmc/bmc_state.h"
#include "sim/server/boot_recorder.h"
#include "sim/server/boot_request_kinds.h"

namespace sim {
namespace {

// Chassis commands and the parameters of the System Boot Options (IPMI 2.0, 28.12, 28.13 and table 28-14).
constexpr std::uint8_t kChassis = 0x00;
constexpr std::uint8_t kSet = 0x08;
constexpr std::uint8_t kGet = 0x09;
constexpr std::uint8_t kSelectorMask = 0x7F;
constexpr std::uint8_t kSetInProgress = 0;
constexpr std::uint8_t kAcknowledge = 4;
constexpr std::uint8_t kBootFlags = 5;
constexpr std::uint8_t kBiosBit = 0x01;
constexpr std::size_t kAnswerHead = 2;  // version and selector, in front of the data

std::uint8_t Selector(const BootRequestReport& report) { return report.flags[1] >> 2 & 0x0F; }

std::string NumberList(const std::vector<std::uint16_t>& numbers) {
  std::string text;
  for (const std::uint16_t number : numbers) {
    text += fmt::format("{}Boot{:04X}", text.empty() ? "" : ", ", number);
  }
  return text;
}

std::string MissingText(const RequestKind& kind, bool efi, const VariableStore& store) {
  std::string text = fmt::format("not followed: no {} option for {}", efi ? "UEFI" : "legacy", kind.words);
  const auto others = OptionsOfKind(store, kind, !efi);
  if (!others.empty()) {
    text +=
        fmt::format("; {} would do, but the request asked for a {} boot", NumberList(others), efi ? "UEFI" : "legacy");
  }
  return text;
}

}  // namespace

void BootRequestWatch::Begin(const VariableStore& store, bool transport) {
  transport_ = transport;
  if (const Variable* stored = store.Find(bds::kIpmiBootFlagsName, bds::kIpmiVariablesGuid)) {
    storedBefore_ = stored->data;
  }
}

void BootRequestWatch::OnIpmi(const IpmiExchange& exchange) {
  if (exchange.netFn != kChassis || exchange.request.empty() ||
      (exchange.command != kGet && exchange.command != kSet)) {
    return;
  }
  Parameter& parameter = parameters_[exchange.request[0] & kSelectorMask];
  const bool good = exchange.reply != nullptr && exchange.reply->completion == kIpmiDone;
  if (exchange.command == kSet) {
    parameter.set = good;
    return;
  }
  if (!good) {
    parameter.failure = exchange.reply == nullptr
                            ? "the BMC did not answer"
                            : fmt::format("the BMC answered with completion code 0x{:02X}", exchange.reply->completion);
    return;
  }
  if (!parameter.answered || exchange.request[0] == kSetInProgress) {
    const auto& data = exchange.reply->data;
    parameter.answered = true;
    parameter.data.assign(data.begin() + std::min(kAnswerHead, data.size()), data.end());
  }
}

// Why the driver does not know what the BMC asks for; empty when it does.
std::string BootRequestWatch::Unread() const {
  if (!transport_) {
    return kNoTransport;
  }
  const auto failure = [this](std::uint8_t number) {
    const auto found = parameters_.find(number);
    return found == parameters_.end() || found->second.answered ? std::string() : found->second.failure;
  };
  for (const std::uint8_t number : {kSetInProgress, kAcknowledge, kBootFlags}) {
    if (std::string why = failure(number); !why.empty()) {
      return why;
    }
  }
  if (parameters_.contains(kAcknowledge)) {
    return {};
  }
  const auto progress = parameters_.find(kSetInProgress);
  const bool setting =
      progress != parameters_.end() && !progress->second.data.empty() && (progress->second.data[0] & 0x03) == 0x01;
  return setting ? "somebody was still setting the BMC's boot options" : "the BMC was not asked";
}

// The flags as the BMC gave them; false when it gave none.
bool BootRequestWatch::FlagsOfBmc(BootRequestReport& report) const {
  const auto found = parameters_.find(kBootFlags);
  if (found == parameters_.end() || found->second.data.size() != report.flags.size()) {
    return false;
  }
  std::ranges::copy(found->second.data, report.flags.begin());
  return true;
}

void BootRequestWatch::TakeSource(BootRequestReport& report) const {
  report.result = Unread();
  if (!report.result.empty()) {
    return;
  }
  const auto& acknowledge = parameters_.at(kAcknowledge);
  const std::uint8_t handled = acknowledge.data.size() > 1 ? acknowledge.data[1] : std::uint8_t{0};
  const bool given = FlagsOfBmc(report);
  if (!given && handled != 0 && (handled & kBiosBit) == 0) {
    report.result = fmt::format("another party handled the BMC's request (acknowledge 0x{:02X})", handled);
    return;
  }
  if (given && (report.flags[0] & BmcState::kValid) != 0) {
    report.source = BootRequestReport::Source::Bmc;
    return;
  }
  if (storedBefore_.size() == kAnswerHead + report.flags.size()) {
    report.source = BootRequestReport::Source::Nvram;
    std::memcpy(report.flags.data(), storedBefore_.data() + kAnswerHead, report.flags.size());
    return;
  }
  const bool empty = std::ranges::all_of(report.flags, [](std::uint8_t byte) { return byte == 0; });
  report.result = empty ? kNothingAsked : "the BMC's boot flags lack the valid bit";
}

void BootRequestWatch::Judge(BootRequestReport& report, const VariableStore& store) const {
  const RequestKind& kind = KindOfRequest(Selector(report));
  if (report.source == BootRequestReport::Source::Bmc && !report.acknowledged) {
    report.result = "not followed: the BMC did not take the acknowledge";
    return;
  }
  if (kind.action != RequestAction::Device) {
    report.followed = kind.action != RequestAction::Unknown;
    report.result = kind.action == RequestAction::Setup ? "setup is asked for through BootFlow"
                    : kind.action == RequestAction::Unknown
                        ? fmt::format("not followed: {} is never booted", kind.words)
                    : !storedBefore_.empty() ? "the persistent request in NVRAM has ended"
                                             : "no device is asked for";
    return;
  }
  const auto candidates = OptionsOfKind(store, kind, report.Efi());
  if (candidates.empty()) {
    report.result = MissingText(kind, report.Efi(), store);
    return;
  }
  std::vector<std::uint16_t> order;
  const auto options = ReportOptions(store, order);
  const bool first = !order.empty() && std::ranges::find(candidates, order.front()) != candidates.end();
  if (!first) {
    report.result =
        fmt::format("not followed: {} would do, but another option stands in front", NumberList(candidates));
    return;
  }
  report.followed = true;
  report.option = order.front();
  report.result = fmt::format("Boot{:04X} stands in front", order.front());
}

BootRequestReport BootRequestWatch::Report(const VariableStore& store) const {
  BootRequestReport report;
  const auto set = [this](std::uint8_t number) {
    const auto found = parameters_.find(number);
    return found != parameters_.end() && found->second.set;
  };
  report.acknowledged = set(kAcknowledge);
  report.cleared = set(kBootFlags);
  report.kept = store.Find(bds::kIpmiBootFlagsName, bds::kIpmiVariablesGuid) != nullptr;
  TakeSource(report);
  if (report.Asked()) {
    Judge(report, store);
  }
  return report;
}

}  // namespace sim

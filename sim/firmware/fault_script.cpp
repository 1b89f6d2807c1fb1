#include "sim/firmware/fault_script.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <sstream>

#include "sim/firmware/priority_limits.h"
#include "support/format.h"

namespace sim {
namespace {

constexpr std::string_view kWriteKinds[] = {"nvram", "bmc", "bmc-exchange", "pci"};

// Calls and writes are counted from 1.
std::optional<std::uint64_t> Number(const std::string& text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() && value != 0 ? std::optional(value) : std::nullopt;
}

}  // namespace

void FaultScript::FailCall(std::string service, std::uint64_t nth, EFI_STATUS status, std::uint64_t count) {
  callFaults_.push_back({std::move(service), nth, count, status, {}});
}

void FaultScript::LosePowerAfterWrite(std::string kind, std::uint64_t nth) {
  powerFaults_.push_back({std::move(kind), nth, {}});
}

bool FaultScript::Add(std::string_view words, std::string& error) {
  std::istringstream stream{std::string(words)};
  const std::vector<std::string> parts{std::istream_iterator<std::string>(stream), {}};
  const auto nth = parts.size() < 3 ? std::nullopt : Number(parts[2]);
  const auto wrong = [&](std::string_view why) {
    error = fmt::format("\"{}\": {}", words, why);
    return false;
  };
  if (nth && parts[0] == "power" && parts.size() == 3) {
    if (std::ranges::find(kWriteKinds, parts[1]) == std::end(kWriteKinds)) {
      return wrong("expected a kind of write: nvram, bmc, bmc-exchange or pci");
    }
    LosePowerAfterWrite(parts[1], *nth);
    powerFaults_.back().words = words;
    return true;
  }
  if (nth && parts[0] == "call" && (parts.size() == 4 || parts.size() == 5)) {
    const auto status = StatusFromName(parts[3]);
    const auto count = parts.size() == 4 ? std::optional<std::uint64_t>(1) : Number(parts[4]);
    if (!IsServiceName(parts[1])) {
      return wrong("expected a boot or runtime service, such as SetVariable");
    }
    if (!status) {
      return wrong("expected a status, such as EFI_NOT_FOUND or 0x800000000000000E");
    }
    if (count) {
      FailCall(parts[1], *nth, *status, *count);
      callFaults_.back().words = words;
      return true;
    }
  }
  return wrong("expected \"call SERVICE N STATUS [COUNT]\" or \"power KIND N\", N and COUNT from 1");
}

std::optional<EFI_STATUS> FaultScript::OnCall(std::string_view service) {
  if (callFaults_.empty() && !callHook_) {
    return std::nullopt;
  }
  const std::uint64_t nth = ++calls_[std::string(service)];
  for (const CallFault& fault : callFaults_) {
    if (fault.service == service && nth >= fault.first && nth - fault.first < fault.count) {
      Met(fault.words, nth);
      return fault.status;
    }
  }
  return callHook_ ? callHook_(service, nth) : std::nullopt;
}

bool FaultScript::OnWrite(std::string_view kind) {
  const std::uint64_t nth = ++writes_[std::string(kind)];
  if (writeHook_) {
    writeHook_(kind, nth);
  }
  for (const PowerFault& fault : powerFaults_) {
    if (fault.kind == kind && fault.nth == nth) {
      Met(fault.words, nth);
      return true;
    }
  }
  return false;
}

void FaultScript::Met(std::string_view words, std::uint64_t nth) const {
  if (metHook_) {
    metHook_(words, nth);
  }
}

std::uint64_t FaultScript::WritesOf(std::string_view kind) const {
  const auto found = writes_.find(kind);
  return found == writes_.end() ? 0 : found->second;
}

std::string StatusName(EFI_STATUS status) {
  const char* name = bds::StatusName(status);
  return name != nullptr ? name : fmt::format("0x{:X}", status);
}

std::optional<EFI_STATUS> StatusFromName(std::string_view name) {
  for (EFI_STATUS code = 0; code < 64; ++code) {
    for (const EFI_STATUS status : {code, code | EfiErrorBit}) {
      const char* known = bds::StatusName(status);
      if (known != nullptr && name == known) {
        return status;
      }
    }
  }
  if (name.starts_with("0x")) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(name.data() + 2, name.data() + name.size(), value, 16);
    if (error == std::errc{} && end == name.data() + name.size()) {
      return value;
    }
  }
  return std::nullopt;
}

}  // namespace sim

#include "sim/bmc/ipmi_fault.h"

#include <charconv>
#include <sstream>

#include <fmt/format.h>

namespace sim {
namespace {

constexpr std::uint8_t kChassis = 0x00;
constexpr std::uint8_t kSetSystemBootOptions = 0x08;
constexpr std::uint8_t kGetSystemBootOptions = 0x09;
constexpr std::uint8_t kOem = 0x36;
constexpr std::uint8_t kOemOneTimeStale = 0x16;
constexpr std::uint64_t kAlways = ~std::uint64_t{0};

template <typename Number>
std::optional<Number> ParseWhole(std::string_view text, int base) {
  Number number = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return code == std::errc{} && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

bool ParseRequest(const std::string& word, IpmiFault& fault) {
  if (word == "oem") {
    fault.netFn = kOem;
    fault.command = kOemOneTimeStale;
    return true;
  }
  const bool set = word.starts_with("set-");
  if (!set && !word.starts_with("get-")) {
    return false;
  }
  fault.netFn = kChassis;
  fault.command = set ? kSetSystemBootOptions : kGetSystemBootOptions;
  fault.parameter = ParseWhole<std::uint8_t>(std::string_view(word).substr(4), 16);
  return fault.parameter.has_value();
}

bool ParseAnswer(const std::string& word, IpmiFault& fault) {
  if (word == "silence") {
    return true;
  }
  if (word == "damage") {
    fault.answer = IpmiFault::Answer::Damage;
    return true;
  }
  const auto code = ParseWhole<std::uint8_t>(word, 16);
  fault.answer = IpmiFault::Answer::Refusal;
  fault.code = code.value_or(kIpmiDone);
  return fault.code != kIpmiDone;
}

bool ParseCount(const std::string& word, std::uint64_t& count) {
  count = word == "always" ? kAlways : ParseWhole<std::uint64_t>(word, 10).value_or(0);
  return count != 0;
}

}  // namespace

std::optional<IpmiFault> IpmiFault::Parse(std::string_view words, std::string& error) {
  std::istringstream stream{std::string(words)};
  std::string ipmi;
  std::string request;
  std::string first;
  std::string answer;
  std::string count = "1";
  std::string more;
  IpmiFault fault;
  fault.words = words;
  const bool complete = static_cast<bool>(stream >> ipmi >> request >> first >> answer);
  stream >> count >> more;
  if (complete && more.empty() && ipmi == "ipmi" && ParseRequest(request, fault) && first != "always" &&
      ParseCount(first, fault.first) && ParseAnswer(answer, fault) && ParseCount(count, fault.count)) {
    return fault;
  }
  error = fmt::format(
      "\"{}\" is not a fault of IPMI: expected \"ipmi REQUEST N ANSWER [COUNT]\" with a REQUEST such as get-7d, set-00 "
      "or oem, an ANSWER of silence, damage or a completion code such as c0, and a COUNT from 1 or always",
      words);
  return std::nullopt;
}

FaultyResponder::FaultyResponder(IpmiResponder& inner, std::vector<IpmiFault> faults,
                                 std::function<void(std::string_view words, std::uint64_t nth)> met)
    : inner_(inner), met_(std::move(met)) {
  for (IpmiFault& fault : faults) {
    faults_.push_back({std::move(fault)});
  }
}

const IpmiFault* FaultyResponder::Befalling(std::uint8_t netFn, std::uint8_t command,
                                            std::span<const std::uint8_t> data) {
  const IpmiFault* befalling = nullptr;
  for (Scripted& scripted : faults_) {
    const IpmiFault& fault = scripted.fault;
    const bool parameter = !fault.parameter || (!data.empty() && data[0] == *fault.parameter);
    if (fault.netFn != netFn || fault.command != command || !parameter) {
      continue;
    }
    ++scripted.requests;
    if (befalling == nullptr && scripted.requests >= fault.first && scripted.requests - fault.first < fault.count) {
      befalling = &fault;
      if (met_) {
        met_(fault.words, scripted.requests);
      }
    }
  }
  return befalling;
}

std::optional<IpmiReply> FaultyResponder::Request(std::uint8_t netFn, std::uint8_t command,
                                                  std::span<const std::uint8_t> data) {
  const IpmiFault* fault = Befalling(netFn, command, data);
  if (fault != nullptr && fault->answer == IpmiFault::Answer::Silence) {
    return std::nullopt;
  }
  if (fault != nullptr && fault->answer == IpmiFault::Answer::Refusal) {
    return IpmiReply{fault->code, {}};
  }
  std::optional<IpmiReply> reply = inner_.Request(netFn, command, data);
  if (fault != nullptr && reply && !reply->data.empty()) {
    reply->data.back() ^= 1;
  }
  return reply;
}

}  // namespace sim

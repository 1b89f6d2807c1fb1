// Faults of the BMC's IPMI side, scripted before a boot.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/bmc/ipmi_model.h"

namespace sim {

struct IpmiFault {
  enum class Answer {
    Silence,
    Refusal,  // a completion code
    Damage,   // the true answer with one bit of its last byte turned over
  };

  std::uint8_t netFn = 0;
  std::uint8_t command = 0;
  std::optional<std::uint8_t> parameter;  // of the boot options' requests
  std::uint64_t first = 1;                // the number of the first such request that it befalls, from 1
  std::uint64_t count = 1;
  Answer answer = Answer::Silence;
  std::uint8_t code = 0;  // of a refusal

  std::string words;  // as Parse was given them

  // "ipmi REQUEST N ANSWER [COUNT]": REQUEST is get-PP or set-PP, PP being a boot option parameter in hexadecimal, or
  // oem; ANSWER is silence, damage or a completion code in hexadecimal; COUNT is a number or "always". Empty with
  // `error` set when the words are none.
  static std::optional<IpmiFault> Parse(std::string_view words, std::string& error);
};

// Lets faults befall the requests to another responder.
class FaultyResponder : public IpmiResponder {
 public:
  // Both are the caller's and outlive this object. `met` is called with a fault's words and the request's number.
  FaultyResponder(IpmiResponder& inner, std::vector<IpmiFault> faults,
                  std::function<void(std::string_view words, std::uint64_t nth)> met);

  std::optional<IpmiReply> Request(std::uint8_t netFn, std::uint8_t command,
                                   std::span<const std::uint8_t> data) override;

 private:
  struct Scripted {
    IpmiFault fault;
    std::uint64_t requests = 0;  // met so far that it could befall
  };
  const IpmiFault* Befalling(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data);

  IpmiResponder& inner_;
  std::vector<Scripted> faults_;
  std::function<void(std::string_view words, std::uint64_t nth)> met_;
};

}  // namespace sim

// Faults of the BMC's file interface, scripted before a boot.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

struct BmcFault {
  enum class Kind {
    H2bStuck,     // the BMC does not take the request: H2B_ATN stays set
    NoAnswer,     // the request is taken, nothing comes back
    Late,         // the answer comes `value` milliseconds late
    WrongLength,  // an answer of another length than the request asks for, well framed
    WrongEcho,    // the answer names another opcode
    BadChecksum,
    LockHeld,  // another agent holds the lock bit
    RefuseOpen,
    RefuseRead,
    RefuseWrite,
    RefuseRename,
    LyingLength,  // the answer's length byte is `value`; the bytes are those of the true answer
    PowerLoss,    // the power goes right after the exchange
  };
  static constexpr std::uint64_t kAlways = ~std::uint64_t{0};

  // As in the words.
  static std::string_view Name(Kind kind);

  Kind kind = Kind::NoAnswer;
  std::uint64_t value = 0;  // of Late and LyingLength
  std::uint64_t count = 1;  // how many of the exchanges that it can befall it befalls; kAlways without end
  std::uint64_t first = 1;  // the number of the first exchange that it can befall, from 1; a request sent again counts

  std::string words;  // as Parse was given them

  // Words as on the command line: NAME[:VALUE][xCOUNT][@FIRST], VALUE being the count for the faults that have no
  // value of their own, COUNT a number or "always": "bad-checksum:3", "late:6000@2", "no-answer:always". Empty with
  // `error` set, which then lists what is known, when it is not one.
  static std::optional<BmcFault> Parse(std::string_view words, std::string& error);
};

}  // namespace sim

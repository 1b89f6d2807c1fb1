// Faults of the BMC's file interface in words.
#include "sim/bmc/bt_fault.h"

#include <charconv>
#include <iterator>

#include <fmt/format.h>

namespace sim {
namespace {

struct Row {
  std::string_view name;
  BmcFault::Kind kind;
  bool hasValue;
  std::string_view form;
};
using Kind = BmcFault::Kind;
constexpr Row kFaults[] = {
    {"h2b-stuck", Kind::H2bStuck, false, "h2b-stuck[:COUNT]"},
    {"no-answer", Kind::NoAnswer, false, "no-answer[:COUNT]"},
    {"late", Kind::Late, true, "late:MILLISECONDS[xCOUNT]"},
    {"wrong-length", Kind::WrongLength, false, "wrong-length[:COUNT]"},
    {"wrong-echo", Kind::WrongEcho, false, "wrong-echo[:COUNT]"},
    {"bad-checksum", Kind::BadChecksum, false, "bad-checksum[:COUNT]"},
    {"lock-held", Kind::LockHeld, false, "lock-held[:COUNT]"},
    {"refuse-open", Kind::RefuseOpen, false, "refuse-open[:COUNT]"},
    {"refuse-read", Kind::RefuseRead, false, "refuse-read[:COUNT]"},
    {"refuse-write", Kind::RefuseWrite, false, "refuse-write[:COUNT]"},
    {"refuse-rename", Kind::RefuseRename, false, "refuse-rename[:COUNT]"},
    {"lying-length", Kind::LyingLength, true, "lying-length:BYTE[xCOUNT]"},
    {"power-loss", Kind::PowerLoss, false, "power-loss[@EXCHANGE]"},
};
constexpr std::uint64_t kMaxLateness = 3'600'000;

std::optional<std::uint64_t> Number(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
  return code == std::errc{} && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::optional<std::uint64_t> Count(std::string_view text) {
  if (text == "always") {
    return BmcFault::kAlways;
  }
  const auto number = Number(text);
  return number && *number != 0 ? number : std::nullopt;
}

// Cuts the text behind the mark off; empty without the mark.
std::optional<std::string_view> CutAt(std::string_view& words, char mark) {
  const std::size_t at = words.rfind(mark);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view tail = words.substr(at + 1);
  words = words.substr(0, at);
  return tail;
}

std::string Known() {
  std::string known;
  for (const Row& row : kFaults) {
    known += fmt::format("{}{}", known.empty() ? "" : ", ", row.form);
  }
  return known + "; each may end in @FIRST, the number of the first exchange";
}

}  // namespace

std::string_view BmcFault::Name(Kind kind) {
  for (const Row& row : kFaults) {
    if (row.kind == kind) {
      return row.name;
    }
  }
  return "unknown";
}

std::optional<BmcFault> BmcFault::Parse(std::string_view words, std::string& error) {
  const std::string_view whole = words;
  const auto wrong = [&](std::string_view why) {
    error = fmt::format("\"{}\" is not a fault of the BMC: {}. Known are {}", whole, why, Known());
    return std::nullopt;
  };
  const auto first = CutAt(words, '@');
  const std::size_t colon = words.find(':');
  const std::string_view name = words.substr(0, colon);
  const Row* row = nullptr;
  for (const Row& candidate : kFaults) {
    row = candidate.name == name ? &candidate : row;
  }
  if (row == nullptr) {
    return wrong("no such name");
  }
  BmcFault fault{row->kind, 0, 1, 1, std::string(whole)};
  if (first) {
    const auto number = Number(*first);
    if (!number || *number == 0) {
      return wrong("the first exchange is a number from 1");
    }
    fault.first = *number;
  }
  std::string_view value = colon == std::string_view::npos ? std::string_view{} : words.substr(colon + 1);
  if (row->hasValue) {
    const auto count = CutAt(value, 'x');
    const auto number = Number(value);
    const std::uint64_t limit = row->kind == Kind::LyingLength ? 0xFF : kMaxLateness;
    if (!number || *number > limit) {
      return wrong(fmt::format("its value is a number up to {}", limit));
    }
    fault.value = *number;
    value = count.value_or("1");
  }
  if (colon != std::string_view::npos) {
    const auto count = Count(value);
    if (!count) {
      return wrong("the count is a number from 1, or \"always\"");
    }
    fault.count = *count;
  }
  return fault;
}

}  // namespace sim

// The terminal that the program runs in: whether it has colours, how errors are said, and its keyboard as the console
// of the simulated server.
#pragma once

#include <termios.h>

#include <deque>
#include <optional>
#include <string>

#include "sim/cli/style.h"
#include "sim/firmware/services/console.h"
#include "sim/server/console_keys.h"

namespace sim {

// Colours when standard output is a terminal and NO_COLOR is not set.
Style OutputStyle();

// Says on standard error what is wrong; gives kExitWrong.
int Fail(const std::string& message);

// Reads single keys from a terminal while it exists. Whatever ends the program, a signal included, the terminal's mode
// is restored. One at a time.
class RawTerminal {
 public:
  explicit RawTerminal(int descriptor);
  ~RawTerminal();
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;

 private:
  bool active_ = false;
};

// Keys given beforehand, then those of a file descriptor.
class TypedKeys : public ConsoleKeys {
 public:
  static constexpr int kNone = -1;
  // What comes behind an escape this soon, in milliseconds of real time, belongs to a key's sequence.
  static constexpr int kSequenceTime = 25;

  // Reads no descriptor when it is kNone.
  TypedKeys(std::deque<EFI_INPUT_KEY> first, int descriptor) : first_(std::move(first)), descriptor_(descriptor) {}

  std::optional<EFI_INPUT_KEY> Next() override;
  bool Wait() override;

 private:
  enum class Input { Bytes, Nothing, Ended };
  Input ReadBytes(int timeout);
  std::optional<EFI_INPUT_KEY> TakeKey();

  std::deque<EFI_INPUT_KEY> first_;
  int descriptor_;
  TerminalKeys terminal_;
  bool pending_ = false;                // bytes were read that have not all become keys
  std::optional<EFI_INPUT_KEY> ahead_;  // taken by Wait
};

// Keys from a text: its characters, and {enter} {esc} {tab} {backspace} {up} {down} {left} {right} {home} {end} {del}
// {pgup} {pgdn} {f1} to {f12}, {{} for a brace. Nothing, with the reason in error, for any other word in braces.
std::optional<std::deque<EFI_INPUT_KEY>> ParseKeys(const std::string& text, std::string& error);

}  // namespace sim

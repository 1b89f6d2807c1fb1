#include "sim/cli/terminal.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <utility>

#include "sim/cli/commands.h"
#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

// What a signal handler needs; written before the handlers are in place.
int rawDescriptor = -1;
termios modeBefore{};

constexpr std::array kFatalSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

void Restore() {
  if (rawDescriptor >= 0) {
    tcsetattr(rawDescriptor, TCSANOW, &modeBefore);
  }
}

extern "C" void RestoreAndDie(int signal) {
  Restore();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

struct KeyWord {
  std::string_view word;
  EFI_INPUT_KEY key;
};
// Scan codes: UEFI 2.10, appendix B.
constexpr KeyWord kKeyWords[] = {
    {"enter", {0, u'\r'}}, {"esc", {0x17, 0}},   {"tab", {0, u'\t'}}, {"backspace", {0, u'\b'}}, {"up", {0x01, 0}},
    {"down", {0x02, 0}},   {"right", {0x03, 0}}, {"left", {0x04, 0}}, {"home", {0x05, 0}},       {"end", {0x06, 0}},
    {"insert", {0x07, 0}}, {"del", {0x08, 0}},   {"pgup", {0x09, 0}}, {"pgdn", {0x0A, 0}},       {"f1", {0x0B, 0}},
    {"f2", {0x0C, 0}},     {"f3", {0x0D, 0}},    {"f4", {0x0E, 0}},   {"f5", {0x0F, 0}},         {"f6", {0x10, 0}},
    {"f7", {0x11, 0}},     {"f8", {0x12, 0}},    {"f9", {0x13, 0}},   {"f10", {0x14, 0}},        {"f11", {0x15, 0}},
    {"f12", {0x16, 0}},    {"{", {0, u'{'}},
};

const EFI_INPUT_KEY* FindKey(std::string_view word) {
  for (const KeyWord& each : kKeyWords) {
    if (each.word == word) {
      return &each.key;
    }
  }
  return nullptr;
}

}  // namespace

Style OutputStyle() {
  const char* noColour = std::getenv("NO_COLOR");
  return {isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0')};
}

int Fail(const std::string& message) {
  std::fflush(stdout);
  fmt::print(stderr, "bds-sim: {}\n", message);
  return kExitWrong;
}

RawTerminal::RawTerminal(int descriptor) {
  if (isatty(descriptor) != 1 || tcgetattr(descriptor, &modeBefore) != 0) {
    return;
  }
  rawDescriptor = descriptor;
  for (const int signal : kFatalSignals) {
    std::signal(signal, RestoreAndDie);
  }
  static const int atExit = std::atexit(Restore);
  static_cast<void>(atExit);
  termios raw = modeBefore;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);  // signals stay, so that Ctrl-C ends the program
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;
  raw.c_cc[VSUSP] = _POSIX_VDISABLE;  // a stopped program would leave its mode to the shell
  active_ = tcsetattr(descriptor, TCSANOW, &raw) == 0;
}

RawTerminal::~RawTerminal() {
  if (active_) {
    Restore();
  }
  if (rawDescriptor >= 0) {
    for (const int signal : kFatalSignals) {
      std::signal(signal, SIG_DFL);
    }
    rawDescriptor = -1;
  }
}

// timeout in milliseconds, -1 without end. At the end of the input nothing is read ever after.
TypedKeys::Input TypedKeys::ReadBytes(int timeout) {
  if (descriptor_ == kNone) {
    return Input::Ended;
  }
  pollfd waiting{descriptor_, POLLIN, 0};
  if (poll(&waiting, 1, timeout) <= 0) {
    return Input::Nothing;
  }
  std::array<char, 256> bytes{};
  const ssize_t count = read(descriptor_, bytes.data(), bytes.size());
  if (count <= 0) {
    descriptor_ = kNone;
    return Input::Ended;
  }
  terminal_.Feed({bytes.data(), static_cast<std::size_t>(count)});
  return Input::Bytes;
}

// The key that the bytes read so far give. An escape that nothing follows soon is the escape key.
std::optional<EFI_INPUT_KEY> TypedKeys::TakeKey() {
  const auto key = terminal_.Next();
  if (key || !pending_) {
    return key;
  }
  if (ReadBytes(kSequenceTime) != Input::Bytes) {
    terminal_.Flush();
  }
  const auto late = terminal_.Next();
  pending_ = late.has_value();
  return late;
}

std::optional<EFI_INPUT_KEY> TypedKeys::Next() {
  if (!first_.empty()) {
    const EFI_INPUT_KEY key = first_.front();
    first_.pop_front();
    return key;
  }
  if (ahead_) {
    return std::exchange(ahead_, std::nullopt);
  }
  if (ReadBytes(0) == Input::Bytes) {
    pending_ = true;
  }
  return TakeKey();
}

bool TypedKeys::Wait() {
  if (!first_.empty() || ahead_) {
    return true;
  }
  for (;;) {
    ahead_ = TakeKey();
    if (ahead_) {
      return true;
    }
    switch (ReadBytes(-1)) {
      case Input::Bytes:
        pending_ = true;
        break;
      case Input::Nothing:  // a signal came
        break;
      case Input::Ended:
        return false;
    }
  }
}

std::optional<std::deque<EFI_INPUT_KEY>> ParseKeys(const std::string& text, std::string& error) {
  std::deque<EFI_INPUT_KEY> keys;
  const auto wide = Utf16FromUtf8(text);
  if (!wide) {
    error = "the keys are no UTF-8 text";
    return std::nullopt;
  }
  for (std::size_t at = 0; at < wide->size(); ++at) {
    const char16_t character = (*wide)[at];
    if (character != u'{') {
      keys.push_back({0, character == u'\n' ? u'\r' : character});
      continue;
    }
    const std::size_t end = wide->find(u'}', at + 1);
    const std::string word = Utf8FromUtf16(wide->substr(at + 1, end == std::u16string::npos ? end : end - at - 1));
    const EFI_INPUT_KEY* key = end == std::u16string::npos ? nullptr : FindKey(word);
    if (key == nullptr) {
      error = fmt::format("unknown key {{{}}}; known are the names that --help lists", word);
      return std::nullopt;
    }
    keys.push_back(*key);
    at = end;
  }
  return keys;
}

}  // namespace sim

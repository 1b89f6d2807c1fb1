// The machine's console: text output captured as it is written and echoed if wanted, keys from a script or a terminal.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/boot_services.h"
#include "platform/simple_text_in.h"
#include "platform/simple_text_out.h"
#include "sim/firmware/services/text_screen.h"

namespace sim {

inline constexpr std::uint16_t kScanNull = 0x00;
inline constexpr std::uint16_t kScanUp = 0x01;
inline constexpr std::uint16_t kScanDown = 0x02;
inline constexpr std::uint16_t kScanRight = 0x03;
inline constexpr std::uint16_t kScanLeft = 0x04;
inline constexpr std::uint16_t kScanEsc = 0x17;

class ConsoleModel {
 public:
  using Echo = std::function<void(std::string_view utf8)>;
  using CursorHandler = std::function<void(int column, int row, bool cleared)>;
  using ColourHandler = std::function<void(int attribute)>;
  using KeySource = std::function<std::optional<EFI_INPUT_KEY>()>;

  // The interfaces exist from here on; the events that wait for a key are made by CreateKeyEvents.
  ConsoleModel();
  ConsoleModel(const ConsoleModel&) = delete;
  ConsoleModel& operator=(const ConsoleModel&) = delete;
  // Makes WaitForKey and WaitForKeyEx; called once boot services are there.
  EFI_STATUS CreateKeyEvents(EFI_BOOT_SERVICES* services);

  EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL* Output() { return &output_.protocol; }
  EFI_SIMPLE_TEXT_INPUT_PROTOCOL* Input() { return &input_.protocol; }
  EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL* InputEx() { return &inputEx_.protocol; }

  // Everything written so far, as UTF-8 with "\n" for a line's end. Bounded: past kMaxText the oldest half is dropped.
  const std::string& Text() const { return text_; }
  bool Contains(std::string_view part) const { return text_.find(part) != std::string::npos; }
  void Clear() { text_.clear(); }
  void SetEcho(Echo echo) { echo_ = std::move(echo); }
  // The screen as it is now, and a handler that is told where somebody put the cursor; cleared: the screen is empty.
  const TextScreen& Screen() const { return screen_; }
  void SetCursorHandler(CursorHandler handler) { onCursor_ = std::move(handler); }
  // Told the attribute for what is written next (UEFI 2.10, 12.4.3: foreground in bits 0 to 3, background in 4 to 6).
  void SetColourHandler(ColourHandler handler) { onColours_ = std::move(handler); }

  // Keys that are read before the source is asked. Type sends each character of a text; "\n" is the enter key.
  void Press(EFI_INPUT_KEY key) { keys_.push_back(key); }
  void Type(std::u16string_view text);
  void SetKeySource(KeySource source) { source_ = std::move(source); }
  std::optional<EFI_INPUT_KEY> ReadKey();

 private:
  static constexpr std::size_t kMaxText = 4 * 1024 * 1024;
  static constexpr INT32 kDefaultAttribute = 0x07;

  template <typename Protocol>
  struct Interface {
    Protocol protocol{};
    ConsoleModel* self = nullptr;
  };
  struct OutputCalls;
  struct InputCalls;

  void Write(std::u16string_view text);
  void TellCursor(bool cleared);
  void SetColours(INT32 attribute);
  bool KeyWaiting();

  Interface<EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL> output_;
  Interface<EFI_SIMPLE_TEXT_INPUT_PROTOCOL> input_;
  Interface<EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL> inputEx_;
  SIMPLE_TEXT_OUTPUT_MODE mode_{};
  EFI_BOOT_SERVICES* services_ = nullptr;
  std::string text_;
  TextScreen screen_{80, 25};
  Echo echo_;
  CursorHandler onCursor_;
  ColourHandler onColours_;
  std::deque<EFI_INPUT_KEY> keys_;
  KeySource source_;
};

// Keys from a terminal's bytes: printable characters, enter, backspace, escape and the arrow keys' sequences. Feed
// takes what was read; Next gives one key at a time. A lone escape counts as the escape key once Flush says no more
// follows.
class TerminalKeys {
 public:
  void Feed(std::string_view bytes) {
    bytes_.append(bytes);
    flushed_ = false;
  }
  void Flush() { flushed_ = true; }
  std::optional<EFI_INPUT_KEY> Next();

 private:
  std::string bytes_;
  bool flushed_ = false;
};

}  // namespace sim

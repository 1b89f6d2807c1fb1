// Text output with the cursor arithmetic of UEFI 2.10, 12.4, and key input (12.2, 12.3).
#include "sim/firmware/services/console.h"

#include <iterator>

#include "sim/firmware/machine.h"
#include "sim/firmware/variables/variable_name_text.h"

namespace sim {
namespace {

constexpr UINT32 kShiftStateValid = 0x80000000;
constexpr UINT8 kToggleStateValid = 0x80;
constexpr std::size_t kMaxString = 1024 * 1024;  // characters that one call may write

// Mode 0 is 80 by 25 everywhere, mode 1 is 80 by 50 where it exists (UEFI 2.10, 12.4.3).
struct TextMode {
  int columns;
  int rows;
};
constexpr TextMode kModes[] = {{80, 25}, {80, 50}, {100, 31}};

}  // namespace

// The mode record and the interface are the caller's to read, so both are kept current.
struct ConsoleModel::OutputCalls {
  using Protocol = EFI_SIMPLE_TEXT_OUTPUT_PROTOCOL;
  static ConsoleModel& Of(Protocol* protocol) { return *reinterpret_cast<Interface<Protocol>*>(protocol)->self; }

  static EFI_STATUS EFIAPI Reset(Protocol* protocol, BOOLEAN) {
    ConsoleModel& self = Of(protocol);
    self.SetColours(kDefaultAttribute);
    self.mode_.CursorVisible = TRUE;
    return SetMode(protocol, 0);
  }
  static EFI_STATUS EFIAPI OutputString(Protocol* protocol, const CHAR16* text) {
    if (text == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    std::size_t length = 0;
    while (length < kMaxString && text[length] != 0) {
      ++length;
    }
    Of(protocol).Write({text, length});
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI TestString(Protocol*, const CHAR16* text) {
    return text == nullptr ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI QueryMode(Protocol*, UINTN mode, UINTN* columns, UINTN* rows) {
    if (columns == nullptr || rows == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    if (mode >= std::size(kModes)) {
      return EFI_UNSUPPORTED;
    }
    *columns = kModes[mode].columns;
    *rows = kModes[mode].rows;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI SetMode(Protocol* protocol, UINTN mode) {
    if (mode >= std::size(kModes)) {
      return EFI_UNSUPPORTED;
    }
    Of(protocol).mode_.Mode = static_cast<INT32>(mode);
    Of(protocol).screen_ = TextScreen(kModes[mode].columns, kModes[mode].rows);
    return ClearScreen(protocol);
  }
  static EFI_STATUS EFIAPI SetAttribute(Protocol* protocol, UINTN attribute) {
    if (attribute > 0x7F) {
      return EFI_UNSUPPORTED;
    }
    Of(protocol).SetColours(static_cast<INT32>(attribute));
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI ClearScreen(Protocol* protocol) {
    Of(protocol).screen_.Clear();
    Of(protocol).TellCursor(true);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI SetCursorPosition(Protocol* protocol, UINTN column, UINTN row) {
    const TextScreen& screen = Of(protocol).screen_;
    if (column >= static_cast<UINTN>(screen.Columns()) || row >= static_cast<UINTN>(screen.Rows())) {
      return EFI_UNSUPPORTED;
    }
    Of(protocol).screen_.MoveTo(static_cast<int>(column), static_cast<int>(row));
    Of(protocol).TellCursor(false);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI EnableCursor(Protocol* protocol, BOOLEAN visible) {
    Of(protocol).mode_.CursorVisible = visible != FALSE ? TRUE : FALSE;
    return EFI_SUCCESS;
  }
};

struct ConsoleModel::InputCalls {
  template <typename Protocol>
  static ConsoleModel& Of(Protocol* protocol) {
    return *reinterpret_cast<Interface<Protocol>*>(protocol)->self;
  }

  template <typename Protocol>
  static EFI_STATUS EFIAPI Reset(Protocol* protocol, BOOLEAN) {
    Of(protocol).keys_.clear();
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI ReadKeyStroke(EFI_SIMPLE_TEXT_INPUT_PROTOCOL* protocol, EFI_INPUT_KEY* key) {
    if (key == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const auto read = Of(protocol).ReadKey();
    if (!read) {
      return EFI_NOT_READY;
    }
    *key = *read;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI ReadKeyStrokeEx(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL* protocol, EFI_KEY_DATA* data) {
    if (data == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    const auto read = Of(protocol).ReadKey();
    *data = {read.value_or(EFI_INPUT_KEY{}), {kShiftStateValid, kToggleStateValid}};
    return read ? EFI_SUCCESS : EFI_NOT_READY;
  }
  static EFI_STATUS EFIAPI SetState(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL*, UINT8* state) {
    return state == nullptr ? EFI_INVALID_PARAMETER : EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI RegisterKeyNotify(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL*, EFI_KEY_DATA*, EFI_KEY_NOTIFY_FUNCTION,
                                             VOID**) {
    return EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI UnregisterKeyNotify(EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL*, VOID*) {
    return EFI_INVALID_PARAMETER;
  }

  // Asked while somebody waits or checks: the event is signalled as long as a key waits.
  static void EFIAPI WaitNotify(EFI_EVENT event, VOID* context) {
    auto* self = static_cast<ConsoleModel*>(context);
    if (self->KeyWaiting()) {
      static_cast<void>(self->services_->SignalEvent(event));
    }
  }
};

ConsoleModel::ConsoleModel() {
  using Out = OutputCalls;
  using In = InputCalls;
  mode_ = {static_cast<INT32>(std::size(kModes)), 0, kDefaultAttribute, 0, 0, TRUE};
  output_ = {{Out::Reset, Out::OutputString, Out::TestString, Out::QueryMode, Out::SetMode, Out::SetAttribute,
              Out::ClearScreen, Out::SetCursorPosition, Out::EnableCursor, &mode_},
             this};
  input_ = {{In::Reset<EFI_SIMPLE_TEXT_INPUT_PROTOCOL>, In::ReadKeyStroke, nullptr}, this};
  inputEx_ = {{In::Reset<EFI_SIMPLE_TEXT_INPUT_EX_PROTOCOL>, In::ReadKeyStrokeEx, nullptr, In::SetState,
               In::RegisterKeyNotify, In::UnregisterKeyNotify},
              this};
}

EFI_STATUS ConsoleModel::CreateKeyEvents(EFI_BOOT_SERVICES* services) {
  services_ = services;
  for (EFI_EVENT* event : {&input_.protocol.WaitForKey, &inputEx_.protocol.WaitForKeyEx}) {
    const EFI_STATUS status = services->CreateEvent(EVT_NOTIFY_WAIT, TPL_NOTIFY, InputCalls::WaitNotify, this, event);
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

void ConsoleModel::TellCursor(bool cleared) {
  mode_.CursorColumn = screen_.Column();
  mode_.CursorRow = screen_.Row();
  if (onCursor_) {
    onCursor_(screen_.Column(), screen_.Row(), cleared);
  }
}

void ConsoleModel::SetColours(INT32 attribute) {
  const bool changed = attribute != mode_.Attribute;
  mode_.Attribute = attribute;
  if (changed && onColours_) {
    onColours_(attribute);
  }
}

void ConsoleModel::Write(std::u16string_view text) {
  if (services_ != nullptr) {
    Machine::Current().Time().EndRows();  // whoever writes does not only wait
  }
  std::u16string shown;
  for (const char16_t character : text) {
    screen_.Put(character);
    if (character != u'\r') {
      shown.push_back(character);
    }
  }
  mode_.CursorColumn = screen_.Column();
  mode_.CursorRow = screen_.Row();
  const std::string utf8 = Utf8FromUtf16(shown);
  text_ += utf8;
  if (text_.size() > kMaxText) {
    text_.erase(0, text_.size() - kMaxText / 2);
  }
  if (echo_) {
    echo_(utf8);
  }
}

void ConsoleModel::Type(std::u16string_view text) {
  for (const char16_t character : text) {
    Press({kScanNull, character == u'\n' ? u'\r' : character});
  }
}

bool ConsoleModel::KeyWaiting() {
  if (keys_.empty() && source_) {
    if (const auto key = source_()) {
      keys_.push_back(*key);
    }
  }
  return !keys_.empty();
}

std::optional<EFI_INPUT_KEY> ConsoleModel::ReadKey() {
  if (!KeyWaiting()) {
    if (services_ != nullptr) {
      Machine::Current().OnKeyPoll();
    }
    return std::nullopt;
  }
  const EFI_INPUT_KEY key = keys_.front();
  keys_.pop_front();
  return key;
}

std::optional<EFI_INPUT_KEY> TerminalKeys::Next() {
  if (bytes_.empty()) {
    return std::nullopt;
  }
  const auto take = [this](std::size_t count, EFI_INPUT_KEY key) {
    bytes_.erase(0, count);
    return key;
  };
  if (bytes_[0] != '\x1B') {
    const auto character = static_cast<unsigned char>(bytes_[0]);
    const bool enter = character == '\n' || character == '\r';
    return take(1, {kScanNull, enter ? u'\r' : character == 0x7F ? u'\b' : static_cast<CHAR16>(character)});
  }
  if (bytes_.size() >= 3 && bytes_[1] == '[' && bytes_[2] >= 'A' && bytes_[2] <= 'D') {
    return take(3, {static_cast<UINT16>(kScanUp + (bytes_[2] - 'A')), 0});
  }
  const bool mayGrow = bytes_.size() < 3 && (bytes_.size() == 1 || bytes_[1] == '[');
  if (mayGrow && !flushed_) {
    return std::nullopt;
  }
  return take(1, {kScanEsc, 0});
}

}  // namespace sim

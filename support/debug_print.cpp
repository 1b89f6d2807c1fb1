// The debug sink is a 16550 at 0x3F8: when its transmitter is empty it takes 16 bytes, so text leaves in such runs.
#include "support/debug_print.h"

#include "platform/io_ports.h"
#include "platform/loaded_image.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {

constinit DEBUG_STATE gDebug;

namespace {

constexpr UINT16 kSerialData = 0x3F8;
constexpr UINT16 kSerialLineStatus = 0x3FD;
constexpr UINT8 kTransmitterEmpty = 0x20;
constexpr UINT32 kTransmitterPolls = 100000;  // then the port counts as stuck, once for the whole boot
constexpr UINT32 kFifoSize = 16;

class SerialSink final : public TextSink {
 public:
  SerialSink() = default;
  SerialSink(const SerialSink&) = delete;
  SerialSink& operator=(const SerialSink&) = delete;
  ~SerialSink() { Flush(); }

  void Put(CHAR16 character) override {
    if (used_ == kFifoSize) {
      Flush();
    }
    fifo_[used_++] = static_cast<UINT8>(MayPass(character) ? character : u'?');
  }

 private:
  // Texts from outside must not steer the terminal that shows the log.
  static constexpr bool MayPass(CHAR16 character) {
    return (character >= 0x20 && character < 0x7F) || character == u'\n' || character == u'\r' || character == u'\t';
  }

  void Flush() {
    if (used_ != 0 && TransmitterEmpties()) {
      IoWriteString8(kSerialData, fifo_, used_);
    }
    used_ = 0;
  }

  // A port that is not the driver's alone may never empty. Waiting again at each text would cost the boot minutes.
  static bool TransmitterEmpties() {
    for (UINT32 polls = 0; !gDebug.PortStuck && (IoRead8(kSerialLineStatus) & kTransmitterEmpty) == 0; ++polls) {
      gDebug.PortStuck = polls == kTransmitterPolls;
    }
    return !gDebug.PortStuck;
  }

  UINT8 fifo_[kFifoSize];
  UINT32 used_ = 0;
};

template <typename Character>
void PrintInPieces(const Character* text, UINTN length) {
  constexpr UINTN kLongText = 120;
  constexpr UINTN kPiece = 100;
  if (length < kLongText) {
    DebugPrint("%a", text);
    return;
  }
  for (; length > kPiece; length -= kPiece, text += kPiece) {
    DebugPrint("%.100a", text);
  }
  DebugPrint("%a", text);
}

}  // namespace

void DebugPrintV(UINT64 level, const char* format, std::span<const FormatArgument> arguments) {
  if ((level & gDebug.Mask) == 0 || gDebug.PortStuck) {
    return;
  }
  SerialSink sink;
  FormatTo(sink, format, arguments);
}

void DebugPrintText(const char* text) { PrintInPieces(text, TextLength(text)); }
void DebugPrintText(const CHAR16* text) { PrintInPieces(text, TextLength(text)); }

void DebugHexDump(std::span<const std::byte> bytes) {
  constexpr UINTN kLine = 16;
  for (UINTN offset = 0; offset < bytes.size(); offset += kLine) {
    const auto line = bytes.subspan(offset, bytes.size() - offset < kLine ? bytes.size() - offset : kLine);
    char text[kLine + 1] = {};
    DebugPrint("%08x: ", offset);
    for (UINTN i = 0; i < kLine; ++i) {
      if (i >= line.size()) {
        DebugPrint("   ");
        continue;
      }
      const auto value = static_cast<UINT8>(line[i]);
      DebugPrint("%02x ", value);
      text[i] = value >= 0x20 && value < 0x7F ? static_cast<char>(value) : '.';
    }
    DebugPrint(" %a\n", text);
  }
}

void InitializeDebugMask(EFI_HANDLE imageHandle) {
  StartFresh(gDebug);
  const auto* image = HandleProtocol<EFI_LOADED_IMAGE_PROTOCOL>(imageHandle);
  constexpr CHAR16 kKey[] = u"debug-mask=";
  constexpr UINTN kKeyLength = sizeof(kKey) / sizeof(CHAR16) - 1;
  if (image == nullptr || image->LoadOptions == nullptr || image->LoadOptionsSize <= kKeyLength * sizeof(CHAR16) ||
      !EqualMemory(image->LoadOptions, kKey, kKeyLength * sizeof(CHAR16))) {
    return;
  }
  const auto* text = static_cast<const CHAR16*>(image->LoadOptions);
  const UINTN length = image->LoadOptionsSize / sizeof(CHAR16);
  UINT64 mask = 0;
  if (ParseNumber({text + kKeyLength, length - kKeyLength}, mask)) {
    gDebug.Mask = mask;
  }
}

}  // namespace bds

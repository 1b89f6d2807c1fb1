#include "support/format.h"

#include "support/memory.h"

namespace bds {
namespace {

using Kind = FormatArgument::Kind;

struct StatusNameRow {
  EFI_STATUS Status;
  const char* Name;
};
constexpr StatusNameRow kStatusNames[] = {
    {EFI_SUCCESS, "EFI_SUCCESS"},
    {EFI_WARN_UNKNOWN_GLYPH, "EFI_WARN_UNKNOWN_GLYPH"},
    {EFI_WARN_DELETE_FAILURE, "EFI_WARN_DELETE_FAILURE"},
    {EFI_WARN_WRITE_FAILURE, "EFI_WARN_WRITE_FAILURE"},
    {EFI_WARN_BUFFER_TOO_SMALL, "EFI_WARN_BUFFER_TOO_SMALL"},
    {EFI_WARN_STALE_DATA, "EFI_WARN_STALE_DATA"},
    {EFI_WARN_FILE_SYSTEM, "EFI_WARN_FILE_SYSTEM"},
    {EFI_WARN_RESET_REQUIRED, "EFI_WARN_RESET_REQUIRED"},
    {EFI_LOAD_ERROR, "EFI_LOAD_ERROR"},
    {EFI_INVALID_PARAMETER, "EFI_INVALID_PARAMETER"},
    {EFI_UNSUPPORTED, "EFI_UNSUPPORTED"},
    {EFI_BAD_BUFFER_SIZE, "EFI_BAD_BUFFER_SIZE"},
    {EFI_BUFFER_TOO_SMALL, "EFI_BUFFER_TOO_SMALL"},
    {EFI_NOT_READY, "EFI_NOT_READY"},
    {EFI_DEVICE_ERROR, "EFI_DEVICE_ERROR"},
    {EFI_WRITE_PROTECTED, "EFI_WRITE_PROTECTED"},
    {EFI_OUT_OF_RESOURCES, "EFI_OUT_OF_RESOURCES"},
    {EFI_VOLUME_CORRUPTED, "EFI_VOLUME_CORRUPTED"},
    {EFI_VOLUME_FULL, "EFI_VOLUME_FULL"},
    {EFI_NO_MEDIA, "EFI_NO_MEDIA"},
    {EFI_MEDIA_CHANGED, "EFI_MEDIA_CHANGED"},
    {EFI_NOT_FOUND, "EFI_NOT_FOUND"},
    {EFI_ACCESS_DENIED, "EFI_ACCESS_DENIED"},
    {EFI_NO_RESPONSE, "EFI_NO_RESPONSE"},
    {EFI_NO_MAPPING, "EFI_NO_MAPPING"},
    {EFI_TIMEOUT, "EFI_TIMEOUT"},
    {EFI_NOT_STARTED, "EFI_NOT_STARTED"},
    {EFI_ALREADY_STARTED, "EFI_ALREADY_STARTED"},
    {EFI_ABORTED, "EFI_ABORTED"},
    {EFI_ICMP_ERROR, "EFI_ICMP_ERROR"},
    {EFI_TFTP_ERROR, "EFI_TFTP_ERROR"},
    {EFI_PROTOCOL_ERROR, "EFI_PROTOCOL_ERROR"},
    {EFI_INCOMPATIBLE_VERSION, "EFI_INCOMPATIBLE_VERSION"},
    {EFI_SECURITY_VIOLATION, "EFI_SECURITY_VIOLATION"},
    {EFI_CRC_ERROR, "EFI_CRC_ERROR"},
    {EFI_END_OF_MEDIA, "EFI_END_OF_MEDIA"},
    {EFI_END_OF_FILE, "EFI_END_OF_FILE"},
    {EFI_INVALID_LANGUAGE, "EFI_INVALID_LANGUAGE"},
    {EFI_COMPROMISED_DATA, "EFI_COMPROMISED_DATA"},
    {EFI_HTTP_ERROR, "EFI_HTTP_ERROR"},
};

// Digits of a number, most significant first, built from the back.
class Digits {
 public:
  Digits(UINT64 value, UINT32 base, bool upperCase) {
    const char* symbols = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    do {
      text_[--start_] = symbols[value % base];
      value /= base;
    } while (value != 0);
  }
  const char* begin() const { return text_ + start_; }
  UINT32 Length() const { return kRoom - start_; }

 private:
  static constexpr UINT32 kRoom = 20;  // the longest 64-bit number, in decimal
  char text_[kRoom];
  UINT32 start_ = kRoom;
};

void PutRepeated(TextSink& sink, char character, UINT32 count) {
  for (; count != 0; --count) {
    sink.Put(static_cast<CHAR16>(character));
  }
}

UINT64 MaskToSize(UINT64 value, UINT8 size) {
  return size >= sizeof(UINT64) ? value : value & ((UINT64{1} << (size * 8)) - 1);
}

void PutNumber(TextSink& sink, const FormatConversion& conversion, const FormatArgument& argument) {
  const bool decimal = conversion.Letter == 'd' || conversion.Letter == 'i';
  const bool negative = decimal && argument.Is == Kind::Signed && static_cast<INT64>(argument.Number) < 0;
  const UINT64 number = argument.Is == Kind::Pointer ? reinterpret_cast<UINT64>(argument.Address) : argument.Number;
  const UINT64 magnitude = negative ? ~number + 1 : MaskToSize(number, argument.Size);
  const Digits digits(magnitude, decimal ? 10 : 16, conversion.Letter != 'x');
  const UINT32 length = digits.Length() + (negative ? 1 : 0);
  const UINT32 padding = conversion.Width > length ? conversion.Width - length : 0;
  const bool zeros = conversion.ZeroPadded && !conversion.LeftAligned;

  PutRepeated(sink, ' ', zeros || conversion.LeftAligned ? 0 : padding);
  PutRepeated(sink, '-', negative ? 1 : 0);
  PutRepeated(sink, '0', zeros ? padding : 0);
  for (UINT32 i = 0; i < digits.Length(); ++i) {
    sink.Put(static_cast<CHAR16>(digits.begin()[i]));
  }
  PutRepeated(sink, ' ', conversion.LeftAligned ? padding : 0);
}

template <typename Character>
void PutText(TextSink& sink, const FormatConversion& conversion, const Character* text) {
  UINT32 length = 0;
  while (length < conversion.Precision && LoadUnaligned<Character>(text + length) != 0) {
    ++length;
  }
  const UINT32 padding = conversion.Width > length ? conversion.Width - length : 0;
  PutRepeated(sink, ' ', conversion.LeftAligned ? 0 : padding);
  for (UINT32 i = 0; i < length; ++i) {
    const auto character = LoadUnaligned<Character>(text + i);
    sink.Put(sizeof(Character) == 1 ? static_cast<CHAR16>(character & 0xFF) : static_cast<CHAR16>(character));
  }
  PutRepeated(sink, ' ', conversion.LeftAligned ? padding : 0);
}

void PutTextArgument(TextSink& sink, const FormatConversion& conversion, const FormatArgument& argument) {
  if (argument.Address == nullptr) {
    PutText(sink, conversion, "<null>");
    return;
  }
  if (argument.Is == Kind::Utf16) {
    PutText(sink, conversion, static_cast<const CHAR16*>(argument.Address));
    return;
  }
  PutText(sink, conversion, static_cast<const char*>(argument.Address));
}

void PutStatus(TextSink& sink, const FormatConversion& conversion, EFI_STATUS status) {
  const char* name = StatusName(status);
  if (name != nullptr) {
    PutText(sink, conversion, name);
    return;
  }
  FormatConversion hexadecimal = conversion;
  hexadecimal.Letter = 'X';
  PutNumber(sink, hexadecimal, MakeFormatArgument(status));
}

void PutGuid(TextSink& sink, const EFI_GUID* guid) {
  if (guid == nullptr) {
    PutText(sink, {}, "<null>");
    return;
  }
  const auto value = LoadUnaligned<EFI_GUID>(guid);
  const FormatArgument parts[] = {
      MakeFormatArgument(value.Data1),    MakeFormatArgument(value.Data2),    MakeFormatArgument(value.Data3),
      MakeFormatArgument(value.Data4[0]), MakeFormatArgument(value.Data4[1]), MakeFormatArgument(value.Data4[2]),
      MakeFormatArgument(value.Data4[3]), MakeFormatArgument(value.Data4[4]), MakeFormatArgument(value.Data4[5]),
      MakeFormatArgument(value.Data4[6]), MakeFormatArgument(value.Data4[7])};
  FormatTo(sink, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", parts);
}

void PutArgument(TextSink& sink, const FormatConversion& conversion, const FormatArgument& argument) {
  switch (conversion.Letter) {
    case 'a':
    case 's':
    case 'S':
      PutTextArgument(sink, conversion, argument);
      return;
    case 'c':
      sink.Put(static_cast<CHAR16>(argument.Number));
      return;
    case 'r':
      PutStatus(sink, conversion, argument.Number);
      return;
    case 'g':
      PutGuid(sink, static_cast<const EFI_GUID*>(argument.Address));
      return;
    default:
      PutNumber(sink, conversion, argument);
  }
}

template <typename Character>
class BufferSink final : public TextSink {
 public:
  explicit BufferSink(std::span<Character> buffer) : buffer_(buffer) {}
  void Put(CHAR16 character) override {
    if (length_ + 1 < buffer_.size()) {
      const bool narrow = sizeof(Character) == 1 && character > 0x7F;
      buffer_[length_++] = static_cast<Character>(narrow ? u'?' : character);
    }
  }
  UINTN Finish() {
    if (!buffer_.empty()) {
      buffer_[length_] = 0;
    }
    return length_;
  }

 private:
  std::span<Character> buffer_;
  UINTN length_ = 0;
};

}  // namespace

const char* StatusName(EFI_STATUS status) {
  for (const StatusNameRow& row : kStatusNames) {
    if (row.Status == status) {
      return row.Name;
    }
  }
  return nullptr;
}

void FormatTo(TextSink& sink, const char* format, std::span<const FormatArgument> arguments) {
  UINTN used = 0;
  for (const char* at = format; *at != 0;) {
    if (*at != '%') {
      sink.Put(static_cast<CHAR16>(*at++));
      continue;
    }
    const FormatConversion conversion = ParseFormatConversion(at);
    at = conversion.Next;
    if (conversion.Letter == '%') {
      sink.Put(u'%');
    } else if (used < arguments.size()) {
      PutArgument(sink, conversion, arguments[used++]);
    }
  }
}

UINTN FormatAsciiV(std::span<char> buffer, const char* format, std::span<const FormatArgument> arguments) {
  BufferSink<char> sink(buffer);
  FormatTo(sink, format, arguments);
  return sink.Finish();
}

UINTN FormatUtf16V(std::span<CHAR16> buffer, const char* format, std::span<const FormatArgument> arguments) {
  BufferSink<CHAR16> sink(buffer);
  FormatTo(sink, format, arguments);
  return sink.Finish();
}

}  // namespace bds

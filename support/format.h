// Formatted text for messages, names and dumps. Formats are checked against their arguments when compiled.
//
// Conversions: %a %s %S text (ASCII or UTF-16, whichever the argument is), %c character, %d %i decimal,
// %x %X hexadecimal (also for pointers), %p pointer, %r status name, %g GUID, %% per cent sign; with flags - and 0,
// a width, a precision for texts, and an ignored size letter l.
#pragma once

#include <concepts>
#include <span>
#include <type_traits>

#include "platform/uefi_base.h"

namespace bds {

// One argument, its type reduced to what a conversion needs.
struct FormatArgument {
  enum class Kind : UINT8 { Signed, Unsigned, Pointer, Ascii, Utf16, Guid };
  Kind Is;
  UINT8 Size;  // bytes of an integer, so that a negative one shows its own width in hexadecimal
  union {
    UINT64 Number;
    const void* Address;
  };
};

template <typename T>
constexpr FormatArgument::Kind FormatKindOf() {
  using Kind = FormatArgument::Kind;
  using Plain = std::remove_cvref_t<T>;
  if constexpr (std::is_same_v<std::decay_t<Plain>, const char*> || std::is_same_v<std::decay_t<Plain>, char*>) {
    return Kind::Ascii;
  } else if constexpr (std::is_same_v<std::decay_t<Plain>, const CHAR16*> ||
                       std::is_same_v<std::decay_t<Plain>, CHAR16*>) {
    return Kind::Utf16;
  } else if constexpr (std::is_same_v<Plain, const EFI_GUID*> || std::is_same_v<Plain, EFI_GUID*>) {
    return Kind::Guid;
  } else if constexpr (std::is_pointer_v<Plain> || std::is_null_pointer_v<Plain>) {
    return Kind::Pointer;
  } else if constexpr (std::is_enum_v<Plain>) {
    return FormatKindOf<std::underlying_type_t<Plain>>();
  } else {
    static_assert(std::is_integral_v<Plain>, "this type cannot be formatted");
    return std::is_signed_v<Plain> ? Kind::Signed : Kind::Unsigned;
  }
}

template <typename T>
FormatArgument MakeFormatArgument(const T& value) {
  FormatArgument argument{};
  argument.Is = FormatKindOf<T>();
  if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    argument.Size = sizeof(T);
    argument.Number = static_cast<UINT64>(value);
  } else if constexpr (std::is_array_v<T>) {
    argument.Size = sizeof(void*);
    argument.Address = &value[0];
  } else {
    argument.Size = sizeof(void*);
    argument.Address = static_cast<const void*>(value);
  }
  return argument;
}

// One conversion of a format, parsed; shared by the compile-time check and the formatter.
struct FormatConversion {
  bool LeftAligned = false;
  bool ZeroPadded = false;
  UINT32 Width = 0;
  UINT32 Precision = ~UINT32{0};
  char Letter = 0;
  const char* Next = nullptr;  // first character behind the conversion
};

// Parses the conversion whose '%' is at text.
constexpr FormatConversion ParseFormatConversion(const char* text) {
  FormatConversion conversion;
  ++text;
  for (; *text == '-' || *text == '0'; ++text) {
    (*text == '-' ? conversion.LeftAligned : conversion.ZeroPadded) = true;
  }
  for (; *text >= '0' && *text <= '9'; ++text) {
    conversion.Width = conversion.Width * 10 + static_cast<UINT32>(*text - '0');
  }
  if (*text == '.') {
    conversion.Precision = 0;
    for (++text; *text >= '0' && *text <= '9'; ++text) {
      conversion.Precision = conversion.Precision * 10 + static_cast<UINT32>(*text - '0');
    }
  }
  while (*text == 'l') {
    ++text;
  }
  conversion.Letter = *text;
  conversion.Next = *text == 0 ? text : text + 1;
  return conversion;
}

constexpr bool FormatAccepts(char letter, FormatArgument::Kind kind) {
  using Kind = FormatArgument::Kind;
  const bool number = kind == Kind::Signed || kind == Kind::Unsigned;
  switch (letter) {
    case 'a':
    case 's':
    case 'S':
      return kind == Kind::Ascii || kind == Kind::Utf16;
    case 'x':
    case 'X':
      return number || kind == Kind::Pointer;
    case 'p':
      return kind == Kind::Pointer;
    case 'g':
      return kind == Kind::Guid;
    case 'c':
    case 'd':
    case 'i':
    case 'r':
      return number;
    default:
      return false;
  }
}

void FormatDoesNotMatchItsArguments();  // never defined: calling it stops the compilation of a wrong format

// A format literal that is known to fit arguments of these types.
template <typename... Args>
class FormatString {
 public:
  template <UINTN N>
  consteval FormatString(const char (&text)[N]) : text_(text) {  // NOLINT: literals convert
    const FormatArgument::Kind kinds[] = {FormatKindOf<Args>()..., FormatArgument::Kind::Guid};
    UINTN used = 0;
    for (const char* at = text; *at != 0;) {
      if (*at != '%') {
        ++at;
        continue;
      }
      const FormatConversion conversion = ParseFormatConversion(at);
      at = conversion.Next;
      if (conversion.Letter == '%') {
        continue;
      }
      if (used >= sizeof...(Args) || !FormatAccepts(conversion.Letter, kinds[used])) {
        FormatDoesNotMatchItsArguments();
      }
      ++used;
    }
    if (used != sizeof...(Args)) {
      FormatDoesNotMatchItsArguments();
    }
  }
  const char* Text() const { return text_; }

 private:
  const char* text_;
};

// Takes formatted characters one by one.
class TextSink {
 public:
  virtual void Put(CHAR16 character) = 0;

 protected:
  ~TextSink() = default;
};

void FormatTo(TextSink& sink, const char* format, std::span<const FormatArgument> arguments);

// The name of a status ("EFI_NOT_FOUND"); null when the status has none.
[[nodiscard]] const char* StatusName(EFI_STATUS status);

// Writes formatted text with its NUL into the buffer, cut to fit; characters above 0x7F become '?'.
// Returns the length written, without the NUL.
UINTN FormatAsciiV(std::span<char> buffer, const char* format, std::span<const FormatArgument> arguments);
UINTN FormatUtf16V(std::span<CHAR16> buffer, const char* format, std::span<const FormatArgument> arguments);

template <typename... Args>
UINTN FormatAscii(std::span<char> buffer, FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
  return FormatAsciiV(buffer, format.Text(), {arguments, sizeof...(Args)});
}
template <typename... Args>
UINTN FormatUtf16(std::span<CHAR16> buffer, FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
  return FormatUtf16V(buffer, format.Text(), {arguments, sizeof...(Args)});
}

}  // namespace bds

// A name being put together in a buffer: what does not fit is cut, and the text always ends with a NUL.
#pragma once

#include <span>

#include "platform/uefi_base.h"
#include "support/text.h"

namespace bds {

class NameWriter {
 public:
  explicit NameWriter(std::span<CHAR16> buffer) : buffer_(buffer) { Terminate(); }

  UINTN Length() const { return length_; }
  // The room behind the text, its NUL included; a routine that wrote there tells by Advance how much.
  std::span<CHAR16> Rest() const { return buffer_.subspan(length_); }
  void Advance(UINTN written) { length_ += written < Room() ? written : Room(); }

  // Appends ASCII or UTF-16 text of a known length.
  template <typename Character>
  void Append(std::span<const Character> text) {
    for (UINTN i = 0; i < text.size() && Room() != 0; ++i) {
      const auto character = LoadUnaligned<Character>(text.data() + i);
      buffer_[length_++] = sizeof(Character) == 1 ? static_cast<CHAR16>(character & 0xFF) : character;
    }
    Terminate();
  }
  void Append(const CHAR16* text) { Append(std::span(text, TextLength(text))); }

  void TrimBlanks() {
    length_ = TrimmedLength(buffer_.data(), length_);
    Terminate();
  }
  void Clear() {
    length_ = 0;
    Terminate();
  }

 private:
  UINTN Room() const { return buffer_.empty() ? 0 : buffer_.size() - 1 - length_; }
  void Terminate() {
    if (!buffer_.empty()) {
      buffer_[length_] = 0;
    }
  }

  std::span<CHAR16> buffer_;
  UINTN length_ = 0;
};

}  // namespace bds

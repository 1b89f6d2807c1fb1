// ASCII text of unknown length put together in pool memory.
#pragma once

#include "support/format.h"
#include "support/memory.h"
#include "support/pool.h"

namespace bds {

class GrowingText final : public TextSink {
 public:
  void Put(CHAR16 character) override {
    if (length_ + 1 >= capacity_ && !Grow()) {
      return;
    }
    text_[length_++] = character <= 0xFF ? static_cast<char>(character) : '?';
    text_[length_] = 0;
  }
  template <typename... Args>
  void Print(FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
    const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
    FormatTo(*this, format.Text(), {arguments, sizeof...(Args)});
  }
  // The NUL-terminated text; null when the pool was exhausted on the way.
  [[nodiscard]] PoolPtr<char> Take() {
    if (capacity_ == 0 && !Grow()) {
      return nullptr;
    }
    return exhausted_ ? nullptr : std::move(text_);
  }

 private:
  bool Grow() {
    const UINTN capacity = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    auto larger = exhausted_ ? nullptr : AllocateArray<char>(capacity);
    if (!larger) {
      exhausted_ = true;
      return false;
    }
    CopyMemory(larger.get(), text_.get(), length_);
    larger[length_] = 0;
    text_ = std::move(larger);
    capacity_ = capacity;
    return true;
  }

  static constexpr UINTN kFirstCapacity = 128;

  PoolPtr<char> text_;
  UINTN length_ = 0;
  UINTN capacity_ = 0;
  bool exhausted_ = false;
};

}  // namespace bds

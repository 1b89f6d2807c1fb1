#include "bootopt/names/inquiry_name.h"

#include <span>

#include "bootopt/names/growing_text.h"
#include "support/text.h"

namespace bds {
namespace {

struct InquiryField {
  UINT8 Offset;
  UINT8 Length;
};
constexpr InquiryField kFields[] = {{8, 8}, {16, 16}, {32, 4}};  // vendor, product, revision

std::span<const UINT8> FieldText(const UINT8* answer, InquiryField field) {
  const UINT8* text = answer + field.Offset;
  UINTN length = 0;
  while (length < field.Length && text[length] != 0) {
    ++length;
  }
  return {text, TrimmedLength(text, length)};
}

}  // namespace

PoolPtr<char> InquiryName(const UINT8* answer, const char* separator) {
  GrowingText name;
  bool empty = true;
  const char* before = "";
  for (const InquiryField field : kFields) {
    name.Print("%a", before);
    for (const UINT8 character : FieldText(answer, field)) {
      name.Put(character);
      empty = false;
    }
    before = separator;
  }
  return empty ? nullptr : name.Take();
}

}  // namespace bds

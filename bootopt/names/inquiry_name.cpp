#include "bootopt/names/inquiry_name.h"

#include "bootopt/names/growing_text.h"
#include "support/text.h"

namespace bds {
namespace {

struct InquiryField {
  UINT8 Offset;
  UINT8 Length;
};
constexpr InquiryField kFields[] = {{8, 8}, {16, 16}, {32, 4}};  // vendor, product, revision

void PutField(GrowingText& name, const UINT8* answer, InquiryField field) {
  const auto* text = reinterpret_cast<const char*>(answer + field.Offset);
  UINTN length = 0;
  while (length < field.Length && text[length] != 0) {
    ++length;
  }
  length = TrimmedLength(text, length);
  for (UINTN i = 0; i < length; ++i) {
    name.Put(static_cast<UINT8>(text[i]));
  }
}

}  // namespace

PoolPtr<char> InquiryName(const UINT8* answer, const char* separator) {
  GrowingText name;
  const char* before = "";
  for (const InquiryField field : kFields) {
    name.Print("%a", before);
    PutField(name, answer, field);
    before = separator;
  }
  return name.Take();
}

}  // namespace bds

#include "flexboot/report_text.h"

namespace bds {
namespace {

struct ENTITY {
  char Character;
  const char* Text;
};
constexpr ENTITY kEntities[] = {{'&', "&amp;"}, {'<', "&lt;"}, {'"', "&quot;"}};

bool IsPrintable(char character) { return character >= ' ' && character <= '~'; }

void AppendEscaped(GrowingText& text, char character) {
  for (const ENTITY& entity : kEntities) {
    if (entity.Character == character) {
      AsciiStrAppend(text, entity.Text);
      return;
    }
  }
  text.Put(static_cast<CHAR16>(IsPrintable(character) ? character : '?'));
}

}  // namespace

void AsciiStrAppend(GrowingText& text, const char* source) {
  for (; source != nullptr && *source != 0; ++source) {
    text.Put(static_cast<UINT8>(*source));
  }
}

void AppendGroupTag(GrowingText& text, const char* tag) {
  AsciiStrAppend(text, tag);
  AsciiStrAppend(text, ">\n");
}

void AppendAttribute(GrowingText& text, const char* value) {
  AsciiStrAppend(text, " value=\"");
  for (; *value != 0; ++value) {
    AppendEscaped(text, *value);
  }
  AsciiStrAppend(text, "\" ");
}

void AppendLeaf(GrowingText& text, const char* tag, const char* value) {
  AsciiStrAppend(text, tag);
  AppendAttribute(text, value);
  AsciiStrAppend(text, "/>\n");
}

void AppendLeaf(GrowingText& text, const char* tag, UINT64 value) {
  char digits[21];
  FormatAscii(digits, "%d", value);
  AppendLeaf(text, tag, digits);
}

void AppendCommentText(GrowingText& text, std::span<const char> source) {
  char previous = 0;
  for (const char character : source) {
    if (character == '-' && previous == '-') {
      text.Put(' ');
    }
    text.Put(static_cast<CHAR16>(IsPrintable(character) || character == '\n' || character == '\t' ? character : '?'));
    previous = character;
  }
}

}  // namespace bds

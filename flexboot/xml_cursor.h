// The policy text walked token by token: a forward-only tokenizer that knows just enough of XML for a flat sequence of
// elements with one quoted value each, and of groups. And the two text functions that every reader of tokens needs.
//
// No operation reads at or behind mXmlLength, writes behind its buffers, allocates, or goes round without an end,
// whatever the text holds. The end of the text is an error of the operation that meets it: the last character is never
// returned, so that a text that ends with the '>' of its root has no token there.
#pragma once

#include "platform/uefi_base.h"

namespace bds {

struct XML_CURSOR {
  const char* Data = nullptr;  // ASCII, not owned
  UINT64 Offset = 0;           // of the next character
};

// Starts a walk: makes length the length of the text that all cursors read (gFlexBoot.mXmlLength). The text need not be
// NUL-terminated; a NUL within the length ends it all the same.
[[nodiscard]] XML_CURSOR StartXml(const char* text, UINT64 length);

inline constexpr UINTN kXmlTextSize = 80;  // of a token's and of a value's buffer, with the NUL
// What stands for the value of a group's tag, and of a tag that has none or none that fits.
inline constexpr char kXmlGroupToken[] = "GroupToken";
inline constexpr char kXmlNoValue[] = "NoValue";

// The character at the cursor, which moves past it. 0, and not moved, at the end of the text and for a NUL.
char xmlGetNextChar(XML_CURSOR& cursor);
// The next character that is no blank, or the 80th blank in a row; 0 at the end of the text.
char xmlFindNonWhiteSpace(XML_CURSOR& cursor);

// The next tag: its name with '<' (and '/'), up to a blank or '>' and cut to 79 characters, into tokenstr; the text
// between the next quotes, kXmlGroupToken or kXmlNoValue into valuestr. Both are buffers of kXmlTextSize.
// EFI_DEVICE_ERROR at the end of the text.
[[nodiscard]] EFI_STATUS GetNextToken(XML_CURSOR& cursor, char* tokenstr, char* valuestr);
// The same for the first child of the root: skips the declaration, which has to be there (else EFI_UNSUPPORTED), and
// the root's own tag.
[[nodiscard]] EFI_STATUS GetFirstToken(XML_CURSOR& cursor, char* tokenstr, char* valuestr);

// ASCII texts compared without regard to letter case: negative, 0 or positive. A null a gives -1, else a null b 1.
[[nodiscard]] int XmlStriCmp(const char* a, const char* b);
// The number at the front of the text, behind blanks and a sign, clamped to its type. Base 0 goes by the text (0x: 16,
// 0: 8, else 10); any other base takes no prefix. end becomes the first character that is no part of the number.
[[nodiscard]] INT32 XmlStrToInt(const char* text, const char** end, UINT32 base);

}  // namespace bds

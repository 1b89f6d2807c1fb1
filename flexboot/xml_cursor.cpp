#include "flexboot/xml_cursor.h"

#include "flexboot/state.h"
#include "support/debug_print.h"
#include "support/memory.h"

namespace bds {
namespace {

constexpr char kGetNextToken[] = "GetNextToken";
constexpr char kGetFirstToken[] = "GetFirstToken";

bool AtEnd(const XML_CURSOR& cursor) { return cursor.Offset >= gFlexBoot.mXmlLength; }

constexpr bool IsBlank(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

// Takes the next character. False when it is the last of the text, when there is none, and at a NUL.
bool Take(XML_CURSOR& cursor, char& character) {
  if (AtEnd(cursor)) {
    return false;
  }
  character = cursor.Data[cursor.Offset];
  if (character == 0) {
    return false;
  }
  ++cursor.Offset;
  return !AtEnd(cursor);
}

// Moves past the next such character; false when the text ends first.
bool SkipPast(XML_CURSOR& cursor, char wanted) {
  for (char character = 0; Take(cursor, character);) {
    if (character == wanted) {
      return true;
    }
  }
  return false;
}

bool SkipPastTagStart(XML_CURSOR& cursor) {
  if (SkipPast(cursor, '<')) {
    return true;
  }
  DebugPrint("%a:Reached End of XML II\n", "xmlFindNonWhiteSpace");
  return false;
}

EFI_STATUS ReachedEnd(const char* operation) {
  DebugPrint("%a:Reached End of XML\n", operation);
  return EFI_DEVICE_ERROR;
}

void StoreWord(char* valuestr, const char* word, UINTN size) { CopyMemory(valuestr, word, size); }

enum class NameEnd { Blank, Group, Text };

// Reads the name whose '<' was just passed. A name of 80 characters ends there, its last one unstored.
NameEnd ReadName(XML_CURSOR& cursor, char* tokenstr) {
  tokenstr[0] = '<';
  for (UINTN length = 1; length < kXmlTextSize; ++length) {
    char character = 0;
    if (!Take(cursor, character)) {
      return NameEnd::Text;
    }
    if (character == ' ') {
      return NameEnd::Blank;
    }
    if (character == '>') {
      return NameEnd::Group;
    }
    if (length < kXmlTextSize - 1) {
      tokenstr[length] = character;
    }
  }
  return NameEnd::Group;
}

// Reads the value behind the next '=' and '"'.
EFI_STATUS ReadValue(XML_CURSOR& cursor, char* valuestr, const char* operation) {
  if (!SkipPast(cursor, '=') || !SkipPast(cursor, '"')) {
    return ReachedEnd(operation);
  }
  for (UINTN length = 0; length < kXmlTextSize; ++length) {
    char character = 0;
    if (!Take(cursor, character)) {
      return ReachedEnd(operation);
    }
    if (character == '"') {
      valuestr[length] = 0;
      return EFI_SUCCESS;
    }
    valuestr[length] = character;
  }
  StoreWord(valuestr, kXmlNoValue, sizeof(kXmlNoValue));
  return EFI_SUCCESS;
}

}  // namespace

XML_CURSOR StartXml(const char* text, UINT64 length) {
  gFlexBoot.mXmlLength = length;
  return {text, 0};
}

char xmlGetNextChar(XML_CURSOR& cursor) {
  if (AtEnd(cursor)) {
    DebugPrint("%a:Reached End of XML\n", "xmlGetNextChar");
    return 0;
  }
  const char character = cursor.Data[cursor.Offset];
  cursor.Offset += character != 0;
  return character;
}

char xmlFindNonWhiteSpace(XML_CURSOR& cursor) {
  if (AtEnd(cursor)) {
    DebugPrint("%a:Reached End of XML I\n", "xmlFindNonWhiteSpace");
    return 0;
  }
  char character = ' ';
  for (UINTN count = 0; count < kXmlTextSize && IsBlank(character); ++count) {
    character = xmlGetNextChar(cursor);
    if (AtEnd(cursor)) {
      DebugPrint("%a:Reached End of XML II\n", "xmlFindNonWhiteSpace");
      return 0;
    }
  }
  return character;
}

EFI_STATUS GetNextToken(XML_CURSOR& cursor, char* tokenstr, char* valuestr) {
  ZeroMemory(tokenstr, kXmlTextSize);
  ZeroMemory(valuestr, kXmlTextSize);
  if (AtEnd(cursor)) {
    return ReachedEnd(kGetNextToken);
  }
  const NameEnd end = SkipPastTagStart(cursor) ? ReadName(cursor, tokenstr) : NameEnd::Text;
  if (end == NameEnd::Text) {
    DebugPrint("%a:Reached End of XML in loop\n", kGetNextToken);
    return EFI_DEVICE_ERROR;
  }
  if (end == NameEnd::Group) {
    StoreWord(valuestr, kXmlGroupToken, sizeof(kXmlGroupToken));
    return EFI_SUCCESS;
  }
  const char next = xmlFindNonWhiteSpace(cursor);
  if (AtEnd(cursor)) {
    return ReachedEnd(kGetNextToken);
  }
  if (next == '/') {
    StoreWord(valuestr, kXmlNoValue, sizeof(kXmlNoValue));
    return EFI_SUCCESS;
  }
  return ReadValue(cursor, valuestr, kGetNextToken);
}

EFI_STATUS GetFirstToken(XML_CURSOR& cursor, char* tokenstr, char* valuestr) {
  ZeroMemory(tokenstr, kXmlTextSize);
  ZeroMemory(valuestr, kXmlTextSize);
  char declaration = 0;
  if (AtEnd(cursor) || !SkipPastTagStart(cursor) || !Take(cursor, declaration)) {
    return ReachedEnd(kGetFirstToken);
  }
  if (declaration != '?') {
    DebugPrint("%a:Invalid XML detected\n", kGetFirstToken);
    return EFI_UNSUPPORTED;
  }
  const bool child = SkipPastTagStart(cursor) && SkipPastTagStart(cursor);
  const NameEnd end = child ? ReadName(cursor, tokenstr) : NameEnd::Text;
  if (end == NameEnd::Text) {
    return ReachedEnd(kGetFirstToken);
  }
  if (end == NameEnd::Group) {
    StoreWord(valuestr, kXmlGroupToken, sizeof(kXmlGroupToken));
    return EFI_SUCCESS;
  }
  return ReadValue(cursor, valuestr, kGetFirstToken);
}

}  // namespace bds

// The pieces of the report's XML text. Names come from devices, option ROMs and policies: whatever they hold, the text
// stays well-formed, and names without special characters keep every byte.
#pragma once

#include <span>

#include "bootopt/names/growing_text.h"
#include "platform/uefi_base.h"

namespace bds {

// Appends text as it is; null appends nothing.
void AsciiStrAppend(GrowingText& text, const char* source);
// A group's tag, given as its literal ("<Name", "</Name"), and the line's end.
void AppendGroupTag(GrowingText& text, const char* tag);
// A leaf element, given as its literal, with its value: <Name value="..." />. In the value & < " stand as entities;
// what is no printable ASCII becomes '?'.
void AppendLeaf(GrowingText& text, const char* tag, const char* value);
void AppendLeaf(GrowingText& text, const char* tag, UINT64 value);  // in decimal
// The value alone.
void AppendAttribute(GrowingText& text, const char* value);
// Text for a comment, where no two dashes may meet: a blank comes between them.
void AppendCommentText(GrowingText& text, std::span<const char> source);

}  // namespace bds

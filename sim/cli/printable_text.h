// Text from outside made safe to show: names, paths and console output may hold anything, escape sequences of the
// terminal included.
#pragma once

#include <string>
#include <string_view>

namespace sim {

// UTF-8 of a UTF-16 text for a terminal or a report: control characters and marks that turn the writing direction
// become \xNN or \uNNNN, as do lone surrogates.
std::string PrintableText(std::u16string_view text);
// The same of a UTF-8 text; bytes that are no UTF-8 become \xNN. With keepLines, line feeds stay as they are.
std::string PrintableText(std::string_view utf8, bool keepLines = false);

}  // namespace sim

// Between the UTF-8 of host and images and the UTF-16 of the firmware. Bad input becomes U+FFFD, never an error.
#pragma once

#include <string>
#include <string_view>

namespace sim {

[[nodiscard]] std::u16string Utf16OfText(std::string_view text);
[[nodiscard]] std::string Utf8OfText(std::u16string_view text);

}  // namespace sim

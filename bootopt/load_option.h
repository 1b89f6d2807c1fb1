// The Boot#### image: its marker records, its check and its parse.
#pragma once

#include <array>

#include "bootopt/boot_lists.h"
#include "support/byte_reader.h"

namespace bds {

// Four-byte records with which the driver begins the optional data of its own options.
using OptionMarker = std::array<std::byte, 4>;
inline constexpr OptionMarker kFirmwareMarker{std::byte{0}, std::byte{0}, std::byte{0x42}, std::byte{0x4F}};
inline constexpr OptionMarker kGroupMarker{std::byte{0}, std::byte{0}, std::byte{0x47}, std::byte{0x4F}};
inline constexpr OptionMarker kMemberMarker{std::byte{0}, std::byte{0}, std::byte{0x4E}, std::byte{0x4F}};

// True when the optional data begins with the marker of a firmware option or of a group header.
[[nodiscard]] bool IsFirmwareData(Bytes optionalData);

// The parts of a well-formed image, in place.
struct LoadOptionView {
  UINT32 Attributes = 0;
  Bytes Description;  // UTF-16 with its NUL; unaligned
  Bytes FilePathList;
  Bytes OptionalData;  // everything behind the paths, markers included
};

// True when the image is well formed; view then points into it.
[[nodiscard]] bool ViewLoadOption(Bytes image, LoadOptionView& view);

// A member record at the front of the bytes: the image in it and the record's size, header included. False when there
// is none or its length lies.
inline constexpr UINTN kMemberHeaderSize = sizeof(OptionMarker) + sizeof(UINT32);
[[nodiscard]] bool ViewMemberRecord(Bytes bytes, Bytes& image, UINTN& recordSize);

// A member may head a group of its own, to this depth. Deeper ones stay bytes of their header's optional data: images
// come from outside, and the stack does not grow with them.
inline constexpr UINT32 kMaxGroupDepth = 4;

// Loaded options stand this far apart, so that new ones find room between them.
inline constexpr UINT32 kOptionPriorityStep = 256;

// Creates the option (and, for a group header, its members behind it) from the view of a well-formed image. priority is
// the counter for the next option; it grows by kOptionPriorityStep for each. A member record that lies or holds a
// malformed image ends the members: from it on the bytes are the header's optional data. Null when the pool is
// exhausted; then no option was made of it.
BOOT_OPTION* ParseLoadOption(BOOT_OPTION_LIST& list, UINT16 number, const LoadOptionView& view, UINT32& priority);

}  // namespace bds

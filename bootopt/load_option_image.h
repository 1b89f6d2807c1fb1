// Builds the Boot#### image of an option: what ReadBootOptions reads on the next boot.
#pragma once

#include "bootopt/boot_lists.h"
#include "support/byte_reader.h"

namespace bds {

// True when the option can be written: it has a path, of a length that the image can say.
[[nodiscard]] bool HasSavablePath(const BOOT_OPTION& option);

// The members of a group follow their header and share its number; only a firmware option has members. Null behind
// the last one.
[[nodiscard]] BOOT_OPTION* NextMember(const BOOT_OPTION& header, const BOOT_OPTION& previous);

// Bytes of the image with the driver's marker and member records.
[[nodiscard]] UINTN LoadOptionImageSize(const BOOT_OPTION& option);
// Writes the image to the front of the room, which is large enough, and returns it.
[[nodiscard]] Bytes WriteLoadOptionImage(const BOOT_OPTION& option, std::span<std::byte> room);

// True when both images are of one option: the same name, paths and data. Attributes and the orphan mask, which change
// from boot to boot, do not count.
[[nodiscard]] bool IsSameLoadOption(Bytes a, Bytes b);

}  // namespace bds

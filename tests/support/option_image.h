// Boot#### images put together field by field, so that a test can break one of them.
#pragma once

#include <string>
#include <string_view>

#include "tests/support/firmware.h"

namespace fake {

inline void Append(Data& data, const Data& more) { data.insert(data.end(), more.begin(), more.end()); }
inline void Append16(Data& data, UINT16 value) {
  Append(data, {static_cast<UINT8>(value), static_cast<UINT8>(value >> 8)});
}
inline void Append32(Data& data, UINT32 value) {
  Append16(data, static_cast<UINT16>(value));
  Append16(data, static_cast<UINT16>(value >> 16));
}
inline Data Utf16(std::u16string_view text) {
  Data data;
  for (const char16_t character : text) {
    Append16(data, character);
  }
  return data;
}

struct OptionImage {
  UINT32 Attributes = 1;
  std::u16string Description = u"Disk";
  Data Paths = Path().Node(1, 1, {0, 2}).Bytes();
  Data Optional;

  Data Bytes() const {
    Data image;
    Append32(image, Attributes);
    Append16(image, static_cast<UINT16>(Paths.size()));
    Append(image, Utf16(Description));
    Append16(image, 0);
    Append(image, Paths);
    Append(image, Optional);
    return image;
  }
};

inline const Data kFirmware{0, 0, 0x42, 0x4F};
inline const Data kGroup{0, 0, 0x47, 0x4F};

// A member record around an image.
inline Data Member(const Data& image) {
  Data record{0, 0, 0x4E, 0x4F};
  Append32(record, static_cast<UINT32>(image.size() + 8));
  Append(record, image);
  return record;
}
inline Data Join(std::initializer_list<Data> parts) {
  Data joined;
  for (const Data& part : parts) {
    Append(joined, part);
  }
  return joined;
}

}  // namespace fake

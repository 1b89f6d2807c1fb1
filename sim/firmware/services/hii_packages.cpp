// The package and string block walk. Every step checks what it is about to read, and every step moves on.
#include "sim/firmware/services/hii_packages.h"

#include <cstring>

namespace sim {
namespace {

using Bytes = std::span<const std::byte>;

constexpr std::uint32_t kMaxListSize = 16 * 1024 * 1024;
constexpr std::uint32_t kMaxStringId = 0xFFFF;
constexpr std::size_t kMaxCharacters = 4 * 1024 * 1024;  // in one package; duplicates could ask for far more

// A cursor that fails instead of leaving its bytes.
class Cursor {
 public:
  explicit Cursor(Bytes bytes) : bytes_(bytes) {}
  template <typename T>
  bool Take(T& value) {
    if (bytes_.size() < sizeof(T)) {
      return false;
    }
    std::memcpy(&value, bytes_.data(), sizeof(T));
    bytes_ = bytes_.subspan(sizeof(T));
    return true;
  }
  bool Skip(std::size_t count) {
    if (bytes_.size() < count) {
      return false;
    }
    bytes_ = bytes_.subspan(count);
    return true;
  }
  std::size_t Left() const { return bytes_.size(); }

 private:
  Bytes bytes_;
};

class StringBlockReader {
 public:
  StringBlockReader(Bytes blocks, HiiStringPackage& package, HiiError& error)
      : in_(blocks), package_(package), error_(error) {}

  bool ReadAll() {
    std::uint8_t type = EFI_HII_SIBT_END;
    for (;;) {
      if (!in_.Take(type)) {
        return Malformed("the string blocks have no end block");
      }
      if (type == EFI_HII_SIBT_END) {
        package_.nextId = static_cast<std::uint16_t>(next_ > kMaxStringId ? kMaxStringId : next_);
        return true;
      }
      if (!ReadBlock(type)) {
        return false;
      }
    }
  }

 private:
  bool Malformed(std::string text) {
    error_ = {EFI_INVALID_PARAMETER, std::move(text)};
    return false;
  }
  bool Unsupported(std::string text) {
    error_ = {EFI_UNSUPPORTED, std::move(text)};
    return false;
  }

  bool ReadBlock(std::uint8_t type) {
    switch (type) {
      case EFI_HII_SIBT_STRING_SCSU:
        return ReadTexts(1, false);
      case EFI_HII_SIBT_STRING_UCS2:
        return ReadTexts(1, true);
      case EFI_HII_SIBT_STRINGS_SCSU:
        return ReadCountedTexts(false);
      case EFI_HII_SIBT_STRINGS_UCS2:
        return ReadCountedTexts(true);
      case EFI_HII_SIBT_DUPLICATE:
        return ReadDuplicate();
      case EFI_HII_SIBT_SKIP1:
        return SkipIds<std::uint8_t>();
      case EFI_HII_SIBT_SKIP2:
        return SkipIds<std::uint16_t>();
      case EFI_HII_SIBT_EXT1:
        return SkipExtension<std::uint8_t>();
      case EFI_HII_SIBT_EXT2:
        return SkipExtension<std::uint16_t>();
      case EFI_HII_SIBT_EXT4:
        return SkipExtension<std::uint32_t>();
      case EFI_HII_SIBT_STRING_SCSU_FONT:
      case EFI_HII_SIBT_STRINGS_SCSU_FONT:
      case EFI_HII_SIBT_STRING_UCS2_FONT:
      case EFI_HII_SIBT_STRINGS_UCS2_FONT:
        return Unsupported("strings with a font of their own cannot be shown by a text console");
      default:
        return Malformed("a string block of unknown type " + std::to_string(type));
    }
  }

  bool ReadCountedTexts(bool wide) {
    std::uint16_t count = 0;
    return in_.Take(count) ? ReadTexts(count, wide) : Malformed("a string count is cut short");
  }

  bool ReadTexts(std::uint32_t count, bool wide) {
    for (; count != 0; --count) {
      std::u16string text;
      if (!(wide ? ReadWide(text) : ReadNarrow(text))) {
        return false;
      }
      if (!Add(std::move(text))) {
        return false;
      }
    }
    return true;
  }

  bool ReadWide(std::u16string& text) {
    std::uint16_t character = 0;
    while (in_.Take(character)) {
      if (character == 0) {
        return true;
      }
      text.push_back(static_cast<char16_t>(character));
    }
    return Malformed("a string has no end");
  }

  // SCSU in its initial state: printable ASCII stands for itself (UTS #6); window switches are refused.
  bool ReadNarrow(std::u16string& text) {
    std::uint8_t character = 0;
    while (in_.Take(character)) {
      if (character == 0) {
        return true;
      }
      const bool plain =
          (character >= 0x20 && character < 0x80) || character == '\t' || character == '\n' || character == '\r';
      if (!plain) {
        return Unsupported("compressed strings beyond ASCII are not read");
      }
      text.push_back(character);
    }
    return Malformed("a string has no end");
  }

  bool Add(std::u16string text) {
    if (next_ > kMaxStringId) {
      return Malformed("there are more than 65535 string identifiers");
    }
    characters_ += text.size();
    if (characters_ > kMaxCharacters) {
      return Malformed("the strings of one package are too long together");
    }
    package_.strings[static_cast<std::uint16_t>(next_++)] = std::move(text);
    return true;
  }

  bool ReadDuplicate() {
    std::uint16_t of = 0;
    if (!in_.Take(of)) {
      return Malformed("a duplicate block is cut short");
    }
    const auto found = package_.strings.find(of);
    return found != package_.strings.end()
               ? Add(found->second)
               : Malformed("a duplicate of string " + std::to_string(of) + ", which does not come before it");
  }

  template <typename T>
  bool SkipIds() {
    T count = 0;
    if (!in_.Take(count)) {
      return Malformed("a skip block is cut short");
    }
    next_ += count;
    return next_ <= kMaxStringId + 1 || Malformed("there are more than 65535 string identifiers");
  }

  // The block's length counts its own header: block type, second type and the length itself.
  template <typename T>
  bool SkipExtension() {
    std::uint8_t type2 = 0;
    T length = 0;
    constexpr std::size_t kHeader = 2 + sizeof(T);
    if (!in_.Take(type2) || !in_.Take(length) || length < kHeader || !in_.Skip(length - kHeader)) {
      return Malformed("an extension block's length is wrong");
    }
    return true;
  }

  Cursor in_;
  HiiStringPackage& package_;
  HiiError& error_;
  std::uint32_t next_ = 1;
  std::size_t characters_ = 0;
};

bool ReadStringPackage(Bytes package, HiiPackageList& list, HiiError& error) {
  const auto malformed = [&error](const char* text) {
    error = {EFI_INVALID_PARAMETER, text};
    return false;
  };
  constexpr std::size_t kLanguageOffset = offsetof(EFI_HII_STRING_PACKAGE_HDR, Language);
  EFI_HII_STRING_PACKAGE_HDR header;
  if (package.size() < sizeof(header)) {
    return malformed("a string package is shorter than its header");
  }
  std::memcpy(&header, package.data(), sizeof(header));
  if (header.HdrSize <= kLanguageOffset || header.HdrSize > package.size() ||
      header.StringInfoOffset < header.HdrSize || header.StringInfoOffset > package.size()) {
    return malformed("a string package's header sizes are wrong");
  }
  const Bytes language = package.subspan(kLanguageOffset, header.HdrSize - kLanguageOffset);
  HiiStringPackage strings;
  strings.language.assign(reinterpret_cast<const char*>(language.data()), language.size());
  const std::size_t end = strings.language.find('\0');
  if (end == std::string::npos || end == 0) {
    return malformed("a string package's language is empty or has no end");
  }
  strings.language.resize(end);
  strings.languageName = header.LanguageName;
  if (!StringBlockReader(package.subspan(header.StringInfoOffset), strings, error).ReadAll()) {
    return false;
  }
  list.strings.push_back(std::move(strings));
  return true;
}

template <typename T>
void Put(std::vector<std::byte>& out, const T& value, std::size_t size = sizeof(T)) {
  const auto* bytes = reinterpret_cast<const std::byte*>(&value);
  out.insert(out.end(), bytes, bytes + size);
}

void PutHeader(std::vector<std::byte>& out, std::size_t size, std::uint8_t type) {
  Put(out, static_cast<std::uint32_t>(size) | (std::uint32_t{type} << 24));
}

std::vector<std::byte> EncodeStrings(const HiiStringPackage& package) {
  std::vector<std::byte> blocks;
  std::uint32_t next = 1;
  const auto skipTo = [&](std::uint32_t id) {
    if (id > next) {
      Put(blocks, EFI_HII_SIBT_SKIP2);
      Put(blocks, static_cast<std::uint16_t>(id - next));
    }
    next = id;
  };
  for (const auto& [id, text] : package.strings) {
    skipTo(id);
    Put(blocks, EFI_HII_SIBT_STRING_UCS2);
    const auto* bytes = reinterpret_cast<const std::byte*>(text.c_str());
    blocks.insert(blocks.end(), bytes, bytes + (text.size() + 1) * sizeof(char16_t));
    ++next;
  }
  skipTo(package.nextId);
  Put(blocks, EFI_HII_SIBT_END);
  const std::size_t headerSize = offsetof(EFI_HII_STRING_PACKAGE_HDR, Language) + package.language.size() + 1;
  EFI_HII_STRING_PACKAGE_HDR header{};
  header.HdrSize = static_cast<UINT32>(headerSize);
  header.StringInfoOffset = static_cast<UINT32>(headerSize);
  header.LanguageName = package.languageName;
  std::vector<std::byte> out;
  PutHeader(out, headerSize + blocks.size(), EFI_HII_PACKAGE_STRINGS);
  const auto* body = reinterpret_cast<const std::byte*>(&header) + sizeof(EFI_HII_PACKAGE_HEADER);
  out.insert(out.end(), body, body + offsetof(EFI_HII_STRING_PACKAGE_HDR, Language) - sizeof(EFI_HII_PACKAGE_HEADER));
  const auto* language = reinterpret_cast<const std::byte*>(package.language.c_str());
  out.insert(out.end(), language, language + package.language.size() + 1);
  out.insert(out.end(), blocks.begin(), blocks.end());
  return out;
}

}  // namespace

std::uint32_t HiiPackageListSize(const EFI_HII_PACKAGE_LIST_HEADER* list) {
  EFI_HII_PACKAGE_LIST_HEADER header;
  std::memcpy(&header, list, sizeof(header));
  return header.PackageLength >= sizeof(header) && header.PackageLength <= kMaxListSize ? header.PackageLength : 0;
}

std::vector<std::byte> HiiPackageList::Encode() const {
  std::vector<std::byte> packages;
  for (const HiiStringPackage& each : strings) {
    const auto encoded = EncodeStrings(each);
    packages.insert(packages.end(), encoded.begin(), encoded.end());
  }
  for (const HiiRawPackage& each : others) {
    packages.insert(packages.end(), each.bytes.begin(), each.bytes.end());
  }
  PutHeader(packages, sizeof(EFI_HII_PACKAGE_HEADER), EFI_HII_PACKAGE_END);
  std::vector<std::byte> out;
  Put(out, guid);
  Put(out, static_cast<std::uint32_t>(sizeof(EFI_HII_PACKAGE_LIST_HEADER) + packages.size()));
  out.insert(out.end(), packages.begin(), packages.end());
  return out;
}

std::optional<HiiPackageList> ReadHiiPackageList(Bytes bytes, HiiError& error) {
  const auto malformed = [&error](const char* text) {
    error = {EFI_INVALID_PARAMETER, text};
    return std::nullopt;
  };
  EFI_HII_PACKAGE_LIST_HEADER header;
  if (bytes.size() < sizeof(header)) {
    return malformed("the package list is shorter than its header");
  }
  std::memcpy(&header, bytes.data(), sizeof(header));
  if (header.PackageLength < sizeof(header) || header.PackageLength > bytes.size()) {
    return malformed("the package list's length is wrong");
  }
  HiiPackageList list;
  list.guid = header.PackageListGuid;
  bytes = bytes.subspan(sizeof(header), header.PackageLength - sizeof(header));
  for (;;) {
    std::uint32_t lengthAndType = 0;
    if (bytes.size() < sizeof(lengthAndType)) {
      return malformed("the package list has no end package");
    }
    std::memcpy(&lengthAndType, bytes.data(), sizeof(lengthAndType));
    const std::uint32_t length = lengthAndType & 0xFFFFFF;
    const auto type = static_cast<std::uint8_t>(lengthAndType >> 24);
    if (length < sizeof(EFI_HII_PACKAGE_HEADER) || length > bytes.size()) {
      return malformed("a package's length is wrong");
    }
    if (type == EFI_HII_PACKAGE_END) {
      return list;
    }
    const Bytes package = bytes.first(length);
    if (type != EFI_HII_PACKAGE_STRINGS) {
      list.others.push_back({type, {package.begin(), package.end()}});
    } else if (!ReadStringPackage(package, list, error)) {
      return std::nullopt;
    }
    bytes = bytes.subspan(length);
  }
}

}  // namespace sim

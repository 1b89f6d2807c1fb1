// The text protocols' calls. Paths arrive as pointers without a size; DevicePathSize bounds the walk over them.
#include "sim/firmware/services/text_services.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "sim/firmware/device_path_builder.h"
#include "sim/firmware/services/collation.h"
#include "sim/firmware/services/device_path_text.h"

namespace sim {
namespace {

using Path = EFI_DEVICE_PATH_PROTOCOL;
constexpr std::size_t kMaxText = 64 * 1024;
constexpr UINT8 kInstanceEnd[] = {END_DEVICE_PATH_TYPE, END_INSTANCE_DEVICE_PATH_SUBTYPE, sizeof(Path), 0};
constexpr UINT8 kEntireEnd[] = {END_DEVICE_PATH_TYPE, END_ENTIRE_DEVICE_PATH_SUBTYPE, sizeof(Path), 0};

std::u16string_view Bounded(const CHAR16* text) {
  std::size_t length = 0;
  while (length < kMaxText && text[length] != 0) {
    ++length;
  }
  return {text, length};
}

std::size_t NodeSize(const Path* node) { return node->Length[0] | (std::size_t{node->Length[1]} << 8); }

std::span<const std::byte> BytesOf(const Path* path) {
  return {reinterpret_cast<const std::byte*>(path), DevicePathSize(path)};
}
// Without the end node; empty for a null or malformed path.
std::span<const std::byte> NodesOf(const Path* path) {
  const auto bytes = path == nullptr ? std::span<const std::byte>() : BytesOf(path);
  return bytes.empty() ? bytes : bytes.first(bytes.size() - sizeof(Path));
}

template <typename Range>
void AppendTo(std::vector<std::byte>& out, const Range& range) {
  const auto bytes = std::as_bytes(std::span(range));
  out.insert(out.end(), bytes.begin(), bytes.end());
}

Path* PoolPath(const std::vector<std::byte>& bytes) {
  return static_cast<Path*>(TextServices::Current()->PoolCopy(bytes.data(), bytes.size()));
}
CHAR16* PoolText(const std::u16string& text) {
  return static_cast<CHAR16*>(TextServices::Current()->PoolCopy(text.c_str(), (text.size() + 1) * sizeof(CHAR16)));
}
DevicePathTextStyle Style(BOOLEAN displayOnly, BOOLEAN shortcuts) { return {displayOnly != FALSE, shortcuts != FALSE}; }

CHAR16* EFIAPI ConvertDeviceNodeToText(const Path* node, BOOLEAN displayOnly, BOOLEAN shortcuts) {
  if (node == nullptr || NodeSize(node) < sizeof(Path)) {
    return nullptr;
  }
  return PoolText(
      DeviceNodeText({reinterpret_cast<const std::byte*>(node), NodeSize(node)}, Style(displayOnly, shortcuts)));
}
CHAR16* EFIAPI ConvertDevicePathToText(const Path* path, BOOLEAN displayOnly, BOOLEAN shortcuts) {
  const auto text = path == nullptr ? std::nullopt : DevicePathText(BytesOf(path), Style(displayOnly, shortcuts));
  return text ? PoolText(*text) : nullptr;
}
Path* EFIAPI ConvertTextToDeviceNode(const CHAR16* text) {
  const auto node = text == nullptr ? std::nullopt : DeviceNodeFromText(Bounded(text));
  return node ? PoolPath(*node) : nullptr;
}
Path* EFIAPI ConvertTextToDevicePath(const CHAR16* text) {
  const auto path = text == nullptr ? std::nullopt : DevicePathFromText(Bounded(text));
  return path ? PoolPath(*path) : nullptr;
}

UINTN EFIAPI GetDevicePathSize(const Path* path) { return path == nullptr ? 0 : DevicePathSize(path); }
Path* EFIAPI DuplicateDevicePath(const Path* path) {
  const auto bytes = path == nullptr ? std::span<const std::byte>() : BytesOf(path);
  return bytes.empty() ? nullptr : PoolPath({bytes.begin(), bytes.end()});
}
Path* EFIAPI AppendDevicePath(const Path* first, const Path* second) {
  std::vector<std::byte> out;
  AppendTo(out, NodesOf(first));
  AppendTo(out, NodesOf(second));
  AppendTo(out, kEntireEnd);
  return PoolPath(out);
}
Path* EFIAPI AppendDeviceNode(const Path* path, const Path* node) {
  std::vector<std::byte> out;
  AppendTo(out, NodesOf(path));
  if (node != nullptr && NodeSize(node) >= sizeof(Path)) {
    AppendTo(out, std::span(reinterpret_cast<const std::byte*>(node), NodeSize(node)));
  }
  AppendTo(out, kEntireEnd);
  return PoolPath(out);
}
Path* EFIAPI AppendDevicePathInstance(const Path* path, const Path* instance) {
  if (instance == nullptr) {
    return nullptr;
  }
  std::vector<std::byte> out;
  if (path != nullptr) {
    AppendTo(out, NodesOf(path));
    AppendTo(out, kInstanceEnd);
  }
  AppendTo(out, NodesOf(instance));
  AppendTo(out, kEntireEnd);
  return PoolPath(out);
}
// Moves the caller's pointer behind the instance, or sets it to null behind the last one.
Path* EFIAPI GetNextDevicePathInstance(Path** position, UINTN* size) {
  bool valid = false;
  const std::size_t nodes = position == nullptr || *position == nullptr ? 0 : FirstInstanceSize(*position, valid);
  if (!valid) {
    return nullptr;
  }
  auto* start = reinterpret_cast<const std::byte*>(*position);
  std::vector<std::byte> out(start, start + nodes);
  AppendTo(out, kEntireEnd);
  if (size != nullptr) {
    *size = out.size();
  }
  const auto* end = reinterpret_cast<const Path*>(start + nodes);
  *position = end->SubType == END_ENTIRE_DEVICE_PATH_SUBTYPE
                  ? nullptr
                  : reinterpret_cast<Path*>(reinterpret_cast<std::byte*>(*position) + nodes + sizeof(Path));
  return PoolPath(out);
}
BOOLEAN EFIAPI IsDevicePathMultiInstance(const Path* path) {
  bool valid = false;
  const std::size_t nodes = path == nullptr ? 0 : FirstInstanceSize(path, valid);
  const auto* end = reinterpret_cast<const Path*>(reinterpret_cast<const std::byte*>(path) + nodes);
  return valid && end->SubType == END_INSTANCE_DEVICE_PATH_SUBTYPE ? TRUE : FALSE;
}
Path* EFIAPI CreateDeviceNode(UINT8 type, UINT8 subType, UINT16 length) {
  if (length < sizeof(Path)) {
    return nullptr;
  }
  std::vector<std::byte> node(length);
  const UINT8 header[] = {type, subType, static_cast<UINT8>(length), static_cast<UINT8>(length >> 8)};
  std::memcpy(node.data(), header, sizeof(header));
  return PoolPath(node);
}

using CollationProtocol = EFI_UNICODE_COLLATION_PROTOCOL;
INTN EFIAPI StriColl(CollationProtocol*, const CHAR16* left, const CHAR16* right) {
  return CompareIgnoringCase(Bounded(left), Bounded(right));
}
BOOLEAN EFIAPI MetaiMatch(CollationProtocol*, const CHAR16* text, const CHAR16* pattern) {
  return MatchesPattern(Bounded(text), Bounded(pattern)) ? TRUE : FALSE;
}
VOID EFIAPI StrLwr(CollationProtocol*, CHAR16* text) {
  std::transform(text, text + Bounded(text).size(), text, FoldLower);
}
VOID EFIAPI StrUpr(CollationProtocol*, CHAR16* text) {
  std::transform(text, text + Bounded(text).size(), text, FoldUpper);
}
VOID EFIAPI FatToStr(CollationProtocol*, UINTN size, const CHAR8* fat, CHAR16* text) {
  for (; size != 0 && *fat != 0; --size) {
    *text++ = static_cast<unsigned char>(*fat++);
  }
  *text = 0;
}
// True when some character had to be replaced by an underscore. Dots and blanks are left out, as 8.3 names want it.
BOOLEAN EFIAPI StrToFat(CollationProtocol*, const CHAR16* text, UINTN size, CHAR8* fat) {
  static constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789$%'-_@~`!(){}^#&";
  BOOLEAN replaced = FALSE;
  for (; *text != 0 && size != 0; ++text) {
    if (*text == u'.' || *text == u' ') {
      continue;
    }
    const char16_t upper = FoldUpper(*text);
    const bool allowed = upper < 0x80 && kAllowed.find(static_cast<char>(upper)) != std::string_view::npos;
    *fat++ = allowed ? static_cast<char>(upper) : '_';
    replaced = allowed ? replaced : TRUE;
    --size;
  }
  for (; size != 0; --size) {
    *fat++ = ' ';
  }
  return replaced;
}

char gLanguages[] = "en-US;en";
char gOldLanguages[] = "eng";

}  // namespace

TextServices::TextServices(EFI_BOOT_SERVICES* services)
    : services_(services),
      toText_{ConvertDeviceNodeToText, ConvertDevicePathToText},
      fromText_{ConvertTextToDeviceNode, ConvertTextToDevicePath},
      utilities_{GetDevicePathSize,        DuplicateDevicePath,       AppendDevicePath,          AppendDeviceNode,
                 AppendDevicePathInstance, GetNextDevicePathInstance, IsDevicePathMultiInstance, CreateDeviceNode},
      collation_{StriColl, MetaiMatch, StrLwr, StrUpr, FatToStr, StrToFat, gLanguages},
      collationOld_{collation_} {
  collationOld_.SupportedLanguages = gOldLanguages;
}

EFI_STATUS TextServices::Install() {
  struct Row {
    const EFI_GUID* guid;
    void* interface;
  };
  const Row rows[] = {{&ProtocolGuid<EFI_DEVICE_PATH_TO_TEXT_PROTOCOL>, &toText_},
                      {&ProtocolGuid<EFI_DEVICE_PATH_FROM_TEXT_PROTOCOL>, &fromText_},
                      {&ProtocolGuid<EFI_DEVICE_PATH_UTILITIES_PROTOCOL>, &utilities_},
                      {&ProtocolGuid<EFI_UNICODE_COLLATION_PROTOCOL>, &collationOld_},
                      {&gEfiUnicodeCollation2ProtocolGuid, &collation_}};
  EFI_HANDLE handle = nullptr;
  for (const Row& row : rows) {
    const EFI_STATUS status =
        services_->InstallProtocolInterface(&handle, row.guid, EFI_NATIVE_INTERFACE, row.interface);
    if (EFI_ERROR(status)) {
      return status;
    }
  }
  return EFI_SUCCESS;
}

void* TextServices::PoolCopy(const void* data, std::size_t size) {
  VOID* copy = nullptr;
  if (EFI_ERROR(services_->AllocatePool(EfiBootServicesData, size, &copy))) {
    return nullptr;
  }
  std::memcpy(copy, data, size);
  return copy;
}

}  // namespace sim

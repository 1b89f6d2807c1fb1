// Messages in the platform's language, or the nearest that their package has (RFC 4647, 3.4, lookup, as UEFI 2.10,
// appendix M, wants it).
#include "core/driver_health_messages.h"

#include "platform/hii_string.h"
#include "platform/setup_front_end.h"
#include "platform/setup_variable.h"
#include "support/debug_print.h"
#include "support/pool.h"
#include "support/protocols.h"
#include "support/text.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINTN kMaxMessages = 64;         // of one answer; the list has no count of its own
constexpr UINTN kMaxStringSize = 0x10000;  // bytes
constexpr UINTN kMaxLanguages = 256;       // bytes of a language, or of a package's list of them, with its end

using LanguageText = CHAR8[kMaxLanguages];

bool IsQuietBoot() {
  std::byte setup[kFrontEndSetupSize] = {};
  UINTN size = 0;
  return !EFI_ERROR(ReadVariableInto(kFrontEndSetupName, kFrontEndSetupGuid, setup, size)) &&
         setup[kFrontEndQuietBoot] != std::byte{0};
}

PoolPtr<CHAR16> ReadString(const EFI_HII_STRING_PROTOCOL& strings, const CHAR8* language,
                           const EFI_DRIVER_HEALTH_HII_MESSAGE& message) {
  const EFI_HII_HANDLE package = message.HiiHandle;
  UINTN size = 0;
  if (strings.GetString(&strings, language, package, message.StringId, nullptr, &size, nullptr) !=
      EFI_BUFFER_TOO_SMALL) {
    return nullptr;
  }
  if (size > kMaxStringSize) {
    DebugPrint("%a:String %d of %d bytes is not shown\n", "HealthMessages", message.StringId, size);
    return nullptr;
  }
  // One character more, so that the text ends whatever the package says.
  PoolPtr<CHAR16> text(static_cast<CHAR16*>(AllocateZeroPool(size + sizeof(CHAR16))));
  if (!text ||
      EFI_ERROR(strings.GetString(&strings, language, package, message.StringId, text.get(), &size, nullptr))) {
    return nullptr;
  }
  return text;
}

// Takes the last subtag off, and a single letter that it leaves at the end with it ("zh-Hant-x-a" becomes "zh-Hant").
// False when nothing is left.
bool Shorten(CHAR8* language) {
  UINTN length = TextLength(language);
  const auto toHyphen = [&] {
    while (length != 0 && language[length - 1] != '-') {
      --length;
    }
    length -= length != 0 ? 1 : 0;
  };
  toHyphen();
  if (length == 1 || (length > 1 && language[length - 2] == '-')) {
    toHyphen();
  }
  language[length] = '\0';
  return length != 0;
}

// In the language, or in the nearest more general one; changes the text.
PoolPtr<CHAR16> LookUp(const EFI_HII_STRING_PROTOCOL& strings, LanguageText& language,
                       const EFI_DRIVER_HEALTH_HII_MESSAGE& message) {
  do {
    if (auto text = ReadString(strings, language, message); text) {
      return text;
    }
  } while (Shorten(language));
  return nullptr;
}

bool ReadPlatformLanguage(LanguageText& language) {
  UINTN size = 0;
  const std::span record(reinterpret_cast<std::byte*>(language), sizeof(language) - 1);
  return !EFI_ERROR(ReadVariableInto(u"PlatformLang", gEfiGlobalVariableGuid, record, size)) && language[0] != '\0';
}

// The first of the package's list, which semicolons separate.
bool ReadFirstLanguage(const EFI_HII_STRING_PROTOCOL& strings, EFI_HII_HANDLE package, LanguageText& language) {
  UINTN size = sizeof(language) - 1;
  if (EFI_ERROR(strings.GetLanguages(&strings, package, language, &size))) {
    return false;
  }
  UINTN length = 0;
  while (language[length] != '\0' && language[length] != ';') {
    ++length;
  }
  language[length] = '\0';
  return length != 0;
}

// The platform's language, then English; a message in a language that nobody asked for is better than none.
PoolPtr<CHAR16> ReadMessage(const EFI_DRIVER_HEALTH_HII_MESSAGE& message) {
  const auto* strings = LocateProtocol<EFI_HII_STRING_PROTOCOL>();
  if (strings == nullptr) {
    return nullptr;
  }
  LanguageText platform = {};
  if (ReadPlatformLanguage(platform)) {
    if (auto text = LookUp(*strings, platform, message); text) {
      return text;
    }
  }
  LanguageText english = "en-US";
  if (auto text = LookUp(*strings, english, message); text) {
    return text;
  }
  LanguageText first = {};
  return ReadFirstLanguage(*strings, message.HiiHandle, first) ? ReadString(*strings, first, message) : nullptr;
}

}  // namespace

bool HealthMessages::MayShow() {
  if (decided_) {
    return mayShow_;
  }
  decided_ = true;
  auto* frontEnd = LocateProtocol<SETUP_FRONT_END_PROTOCOL>();
  const bool quiet = IsQuietBoot();
  mayShow_ = frontEnd != nullptr && (!quiet || showInQuietBoot_);
  if (mayShow_ && quiet) {
    static_cast<void>(frontEnd->LeaveQuietBoot());
  }
  return mayShow_;
}

void HealthMessages::ShowOne(const EFI_DRIVER_HEALTH_HII_MESSAGE& message) {
  const auto text = ReadMessage(message);
  auto* frontEnd = text ? LocateProtocol<SETUP_FRONT_END_PROTOCOL>() : nullptr;
  if (frontEnd != nullptr) {
    static_cast<void>(frontEnd->ShowMessage(text.get()));
  }
}

void HealthMessages::Show(const EFI_DRIVER_HEALTH_HII_MESSAGE* list) {
  for (UINTN i = 0; list != nullptr && list[i].HiiHandle != nullptr && MayShow(); ++i) {
    if (i == kMaxMessages) {
      DebugPrint("%a:More than %d messages, the rest is not shown\n", "HealthMessages", kMaxMessages);
      return;
    }
    ShowOne(list[i]);
  }
}

}  // namespace bds

#include "core/driver_health_messages.h"

#include "platform/hii_string.h"
#include "platform/setup_front_end.h"
#include "platform/setup_variable.h"
#include "support/pool.h"
#include "support/protocols.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINTN kMaxMessages = 64;         // of one answer; the list has no count of its own
constexpr UINTN kMaxStringSize = 0x10000;  // bytes
constexpr CHAR8 kFallbackLanguage[] = "en-US";

bool IsQuietBoot() {
  std::byte setup[kFrontEndSetupSize] = {};
  UINTN size = 0;
  return !EFI_ERROR(ReadVariableInto(kFrontEndSetupName, kFrontEndSetupGuid, setup, size)) &&
         setup[kFrontEndQuietBoot] != std::byte{0};
}

PoolPtr<CHAR16> ReadString(const CHAR8* language, EFI_HII_HANDLE package, EFI_STRING_ID id) {
  auto* strings = LocateProtocol<EFI_HII_STRING_PROTOCOL>();
  UINTN size = 0;
  if (strings == nullptr ||
      strings->GetString(strings, language, package, id, nullptr, &size, nullptr) != EFI_BUFFER_TOO_SMALL ||
      size > kMaxStringSize) {
    return nullptr;
  }
  // One character more, so that the text ends whatever the package says.
  PoolPtr<CHAR16> text(static_cast<CHAR16*>(AllocateZeroPool(size + sizeof(CHAR16))));
  if (!text || EFI_ERROR(strings->GetString(strings, language, package, id, text.get(), &size, nullptr))) {
    return nullptr;
  }
  return text;
}

// In the platform's language where the driver has it.
PoolPtr<CHAR16> ReadMessage(const EFI_DRIVER_HEALTH_HII_MESSAGE& message) {
  CHAR8 language[64] = {};
  UINTN size = 0;
  const std::span record(reinterpret_cast<std::byte*>(language), sizeof(language) - 1);
  if (!EFI_ERROR(ReadVariableInto(u"PlatformLang", gEfiGlobalVariableGuid, record, size))) {
    if (auto text = ReadString(language, message.HiiHandle, message.StringId); text) {
      return text;
    }
  }
  return ReadString(kFallbackLanguage, message.HiiHandle, message.StringId);
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
  for (UINTN i = 0; list != nullptr && i < kMaxMessages && list[i].HiiHandle != nullptr; ++i) {
    if (!MayShow()) {
      return;
    }
    ShowOne(list[i]);
  }
}

}  // namespace bds

// A small operating system loader stand-in: an EFI application that shows what it was started with and returns. Boots
// that execute their loader for real run it, and it is foreign to the driver: it knows the standard's tables only.
//
// Words in its load options (UTF-16, separated by blanks) steer it:
//   return=STATUS   the status to return (hexadecimal behind 0x, or decimal)
//   exit=STATUS     the same through the Exit service, with a text as exit data
//   handover        leave boot services first, as a loader does before it starts its kernel
//   write-code      store into its own code, which a firmware that protects its pages does not survive
#include "platform/device_path_text.h"
#include "platform/loaded_image.h"
#include "platform/simple_text_out.h"
#include "platform/system_table.h"

namespace {

EFI_SYSTEM_TABLE* gSystem = nullptr;

struct Options {
  const CHAR16* Text;
  UINTN Length;  // in characters
};

void Print(const CHAR16* text) {
  if (gSystem->ConOut != nullptr) {
    static_cast<void>(gSystem->ConOut->OutputString(gSystem->ConOut, text));
  }
}

template <typename T>
T* Protocol(EFI_HANDLE handle, const EFI_GUID& guid) {
  VOID* interface = nullptr;
  const EFI_STATUS status = gSystem->BootServices->HandleProtocol(handle, &guid, &interface);
  return EFI_ERROR(status) ? nullptr : static_cast<T*>(interface);
}

// Load options need not end with a NUL, so they are shown piece by piece out of a buffer that does.
void PrintOptions(const Options& options) {
  CHAR16 piece[65];
  UINTN at = 0;
  while (at < options.Length) {
    UINTN length = 0;
    for (; length < 64 && at < options.Length && options.Text[at] != 0; ++length, ++at) {
      piece[length] = options.Text[at];
    }
    piece[length] = 0;
    Print(piece);
    if (at < options.Length && options.Text[at] == 0) {
      return;
    }
  }
}

void PrintDevicePath(const EFI_DEVICE_PATH_PROTOCOL* path) {
  VOID* interface = nullptr;
  const EFI_STATUS status =
      gSystem->BootServices->LocateProtocol(&ProtocolGuid<EFI_DEVICE_PATH_TO_TEXT_PROTOCOL>, nullptr, &interface);
  if (EFI_ERROR(status) || path == nullptr) {
    Print(u"(none)");
    return;
  }
  const auto* converter = static_cast<EFI_DEVICE_PATH_TO_TEXT_PROTOCOL*>(interface);
  CHAR16* text = converter->ConvertDevicePathToText(path, FALSE, TRUE);
  if (text != nullptr) {
    Print(text);
    static_cast<void>(gSystem->BootServices->FreePool(text));
  }
}

// The place right behind the word in the options; null when they do not hold it.
const CHAR16* FindWord(const Options& options, const char* word) {
  for (UINTN start = 0; start < options.Length; ++start) {
    if (start != 0 && options.Text[start - 1] != ' ') {
      continue;
    }
    UINTN i = 0;
    while (word[i] != 0 && start + i < options.Length && options.Text[start + i] == static_cast<CHAR16>(word[i])) {
      ++i;
    }
    if (word[i] == 0) {
      return options.Text + start + i;
    }
  }
  return nullptr;
}

UINT64 ParseStatus(const CHAR16* at, const CHAR16* end) {
  UINT64 base = 10;
  if (end - at > 2 && at[0] == '0' && (at[1] == 'x' || at[1] == 'X')) {
    base = 16;
    at += 2;
  }
  UINT64 value = 0;
  for (; at < end; ++at) {
    const CHAR16 lower = static_cast<CHAR16>(*at | 0x20);
    const bool decimal = *at >= '0' && *at <= '9';
    if (!decimal && !(base == 16 && lower >= 'a' && lower <= 'f')) {
      break;
    }
    value = value * base + static_cast<UINT64>(decimal ? *at - '0' : lower - 'a' + 10);
  }
  return value;
}

// Takes the memory map until its key is current, as loaders do, since taking it may change it.
EFI_STATUS LeaveBootServices(EFI_HANDLE image) {
  EFI_BOOT_SERVICES* services = gSystem->BootServices;
  EFI_STATUS status = EFI_LOAD_ERROR;
  for (int attempt = 0; attempt < 4; ++attempt) {
    UINTN size = 0;
    UINTN key = 0;
    UINTN descriptorSize = 0;
    UINT32 version = 0;
    status = services->GetMemoryMap(&size, nullptr, &key, &descriptorSize, &version);
    if (status != EFI_BUFFER_TOO_SMALL) {
      return status;
    }
    VOID* map = nullptr;
    size += 8 * descriptorSize;
    status = services->AllocatePool(EfiLoaderData, size, &map);
    if (EFI_ERROR(status)) {
      return status;
    }
    status = services->GetMemoryMap(&size, static_cast<EFI_MEMORY_DESCRIPTOR*>(map), &key, &descriptorSize, &version);
    if (!EFI_ERROR(status)) {
      status = services->ExitBootServices(image, key);
    }
    if (!EFI_ERROR(status)) {
      return status;
    }
    static_cast<void>(services->FreePool(map));
  }
  return status;
}

EFI_STATUS ExitWith(EFI_HANDLE image, EFI_STATUS status) {
  static constexpr CHAR16 kText[] = u"leaving through Exit";
  VOID* data = nullptr;
  if (EFI_ERROR(gSystem->BootServices->AllocatePool(EfiBootServicesData, sizeof(kText), &data))) {
    return EFI_OUT_OF_RESOURCES;
  }
  gSystem->BootServices->CopyMem(data, kText, sizeof(kText));
  return gSystem->BootServices->Exit(image, status, sizeof(kText), static_cast<CHAR16*>(data));
}

}  // namespace

extern "C" EFI_STATUS EFIAPI EfiMain(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable) {
  gSystem = SystemTable;
  const auto* image = Protocol<EFI_LOADED_IMAGE_PROTOCOL>(ImageHandle, ProtocolGuid<EFI_LOADED_IMAGE_PROTOCOL>);
  if (image == nullptr) {
    return EFI_UNSUPPORTED;
  }
  const Options options{static_cast<const CHAR16*>(image->LoadOptions), image->LoadOptionsSize / sizeof(CHAR16)};
  Print(u"hello-loader: load options: ");
  PrintOptions(options);
  Print(u"\r\nhello-loader: device path: ");
  PrintDevicePath(Protocol<EFI_DEVICE_PATH_PROTOCOL>(ImageHandle, gEfiLoadedImageDevicePathProtocolGuid));
  Print(u"\r\n");

  const CHAR16* end = options.Text + options.Length;
  if (FindWord(options, "write-code") != nullptr) {
    *reinterpret_cast<volatile UINT8*>(reinterpret_cast<UINTN>(&EfiMain)) = 0;
  }
  if (FindWord(options, "handover") != nullptr) {
    return LeaveBootServices(ImageHandle);
  }
  if (const CHAR16* value = FindWord(options, "exit=")) {
    return ExitWith(ImageHandle, ParseStatus(value, end));
  }
  const CHAR16* value = FindWord(options, "return=");
  return value == nullptr ? EFI_SUCCESS : ParseStatus(value, end);
}

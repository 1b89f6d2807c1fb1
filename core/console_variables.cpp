// The console variables: ConOut, ConIn and ErrOut follow what the console drivers found this boot.
#include "core/console_started.h"
#include "core/steps.h"
#include "platform/signals.h"
#include "support/services.h"
#include "support/variables.h"

namespace bds {
namespace {

bool IsInstalled(const EFI_GUID& guid) {
  void* interface = nullptr;
  return !EFI_ERROR(BootServices()->LocateProtocol(&guid, nullptr, &interface));
}

EFI_STATUS ReadConsole(const CHAR16* name, PoolBuffer& paths) {
  return ReadVariable(name, gEfiGlobalVariableGuid, paths);
}

void WriteConsole(const CHAR16* name, UINT32 attributes, const PoolBuffer& paths) {
  static_cast<void>(WriteVariable(name, gEfiGlobalVariableGuid, attributes, paths.Bytes()));
}

void CopyConsole(const CHAR16* device, const CHAR16* console) {
  PoolBuffer paths;
  if (!EFI_ERROR(ReadConsole(device, paths))) {
    WriteConsole(console, kNonVolatileBootRuntime, paths);
  }
}

// No error device of its own: errors go where the output goes. One that is there but cannot be read is not replaced.
void SetErrorConsole() {
  PoolBuffer paths;
  EFI_STATUS status = ReadConsole(u"ErrOutDev", paths);
  if (status == EFI_NOT_FOUND) {
    status = ReadConsole(u"ConOutDev", paths);
    if (!EFI_ERROR(status)) {
      WriteConsole(u"ErrOutDev", kVolatileBootRuntime, paths);
    }
  }
  if (!EFI_ERROR(status)) {
    WriteConsole(u"ErrOut", kNonVolatileBootRuntime, paths);
  }
}

}  // namespace

void InstallConsoleStartedProtocol(const CHAR16* deviceVariable, const EFI_GUID& guid) {
  if (deviceVariable != nullptr && !VariableExists(deviceVariable, gEfiGlobalVariableGuid)) {
    return;
  }
  if (IsInstalled(guid)) {
    return;
  }
  EFI_HANDLE handle = gServices.ImageHandle;
  static_cast<void>(BootServices()->InstallProtocolInterface(&handle, &guid, EFI_NATIVE_INTERFACE, nullptr));
}

void InitConVars() {
  InstallConsoleStartedProtocol(nullptr, kConsoleOutStartedGuid);
  InstallConsoleStartedProtocol(nullptr, kConsoleInStartedGuid);
  CopyConsole(u"ConOutDev", u"ConOut");
  CopyConsole(u"ConInDev", u"ConIn");
  SetErrorConsole();
}

}  // namespace bds

#include "bootopt/names/controller_name.h"

#include "bootopt/handle_path.h"
#include "platform/component_name.h"
#include "platform/disk_io.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

PoolPtr<CHAR16> CopyName(const CHAR16* name) {
  UINTN length = 0;
  while (name != nullptr && length < kControllerNameCapacity && LoadUnaligned<CHAR16>(name + length) != 0) {
    ++length;
  }
  return length != 0 ? CopyText(name, length) : nullptr;
}

// Both forms of the component name protocol have this member; they differ in their language codes.
template <typename ComponentName>
PoolPtr<CHAR16> AskInLanguage(EFI_HANDLE driver, EFI_HANDLE controller, EFI_HANDLE child, const CHAR8* language) {
  auto* component = HandleProtocol<ComponentName>(driver);
  CHAR16* name = nullptr;
  if (component == nullptr || EFI_ERROR(component->GetControllerName(component, controller, child, language, &name))) {
    return nullptr;
  }
  return CopyName(name);
}

PoolPtr<CHAR16> AskDriver(EFI_HANDLE driver, EFI_HANDLE controller, EFI_HANDLE child) {
  PoolPtr<CHAR16> name = AskInLanguage<EFI_COMPONENT_NAME2_PROTOCOL>(driver, controller, child, "en-US");
  if (!name) {
    name = AskInLanguage<EFI_COMPONENT_NAME_PROTOCOL>(driver, controller, child, "eng");
  }
  return name;
}

PoolPtr<CHAR16> AskDriversOf(const EFI_GUID& protocol, EFI_HANDLE controller, EFI_HANDLE child) {
  PoolPtr<EFI_OPEN_PROTOCOL_INFORMATION_ENTRY> agents;
  UINTN count = 0;
  if (EFI_ERROR(WatchedStatus(BootServices()->OpenProtocolInformation(controller, &protocol, agents.put(), &count))) ||
      !agents) {
    return nullptr;
  }
  for (const auto& agent : std::span(agents.get(), count)) {
    if ((agent.Attributes & EFI_OPEN_PROTOCOL_BY_DRIVER) == 0) {
      continue;
    }
    PoolPtr<CHAR16> name = AskDriver(agent.AgentHandle, controller, child);
    if (name) {
      return name;
    }
  }
  return nullptr;
}

}  // namespace

PoolPtr<CHAR16> ControllerName(EFI_HANDLE controller, EFI_HANDLE child) {
  PoolPtr<EFI_GUID*> protocols;
  UINTN count = 0;
  if (controller == nullptr ||
      EFI_ERROR(WatchedStatus(BootServices()->ProtocolsPerHandle(controller, protocols.put(), &count))) || !protocols) {
    return nullptr;
  }
  for (const EFI_GUID* protocol : std::span(protocols.get(), count)) {
    if (*protocol == ProtocolGuid<EFI_DISK_IO_PROTOCOL>) {
      continue;
    }
    PoolPtr<CHAR16> name = AskDriversOf(*protocol, controller, child);
    if (name) {
      return name;
    }
  }
  return nullptr;
}

PoolPtr<CHAR16> ControllerNameOnPath(EFI_HANDLE controller) {
  PoolPtr<CHAR16> name = ControllerName(controller, nullptr);
  HandlePathClimber climber(controller);
  while (!name) {
    const EFI_HANDLE parent = climber.Up();
    if (parent == nullptr) {
      break;
    }
    name = ControllerName(parent, controller);
  }
  return name;
}

}  // namespace bds

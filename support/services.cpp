#include "support/services.h"

#include "platform/boot_script_save.h"

namespace bds {

constinit SERVICES_STATE gServices;

void* FindConfigurationTable(const EFI_GUID& guid) {
  const EFI_SYSTEM_TABLE* table = gServices.SystemTable;
  for (UINTN i = 0; i < table->NumberOfTableEntries; ++i) {
    if (table->ConfigurationTable[i].VendorGuid == guid) {
      return table->ConfigurationTable[i].VendorTable;
    }
  }
  return nullptr;
}

void InitializeServices(EFI_HANDLE imageHandle, EFI_SYSTEM_TABLE* systemTable) {
  StartFresh(gServices);
  gServices.ImageHandle = imageHandle;
  gServices.SystemTable = systemTable;
  gServices.BootServices = systemTable->BootServices;
  gServices.RuntimeServices = systemTable->RuntimeServices;
  gServices.HobList = FindConfigurationTable(gEfiHobListGuid);
  void* interface = nullptr;
  if (!EFI_ERROR(gServices.BootServices->LocateProtocol(&gEfiBootScriptSaveProtocolGuid, nullptr, &interface))) {
    gServices.BootScriptSave = interface;
  }
}

}  // namespace bds

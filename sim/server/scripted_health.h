// Drivers that report health as a description scripts it, and the form browser that shows their configuration forms.
#pragma once

#include <memory>

#include "platform/driver_configuration2.h"
#include "platform/driver_health.h"
#include "platform/form_browser2.h"
#include "sim/firmware/services/hii_database.h"
#include "sim/firmware/sim_driver.h"
#include "sim/server/description.h"

namespace sim {

// A driver with the driver health and driver configuration 2 protocols on its image handle. It answers for one PCI
// function, whoever drives that; it starts none itself. Counts: `health.questions` (about its function),
// `health.repair`, `health.set_options`.
class ScriptedHealth final : public SimDriver {
 public:
  // rootBridge is the device path that the function lies below. hii keeps the message and the form; null: the driver
  // has neither.
  ScriptedHealth(Machine& machine, HealthDescription health, DevicePath rootBridge, HiiDatabase* hii);
  ~ScriptedHealth() override;

  EFI_STATUS Supported(EFI_HANDLE, EFI_DEVICE_PATH_PROTOCOL*) override { return EFI_UNSUPPORTED; }
  EFI_STATUS Start(EFI_HANDLE, EFI_DEVICE_PATH_PROTOCOL*) override { return EFI_UNSUPPORTED; }
  EFI_STATUS Stop(EFI_HANDLE, const std::vector<EFI_HANDLE>&) override { return EFI_DEVICE_ERROR; }

 private:
  struct Interfaces;
  struct Calls;

  [[nodiscard]] bool Manages(EFI_HANDLE controller, EFI_HANDLE child) const;
  [[nodiscard]] EFI_STATUS Answer(EFI_DRIVER_HEALTH_STATUS* status, EFI_DRIVER_HEALTH_HII_MESSAGE** messages,
                                  EFI_HII_HANDLE* form);
  EFI_DRIVER_HEALTH_HII_MESSAGE* MakeMessages();

  HealthDescription health_;
  DevicePath rootBridge_;
  EFI_HII_HANDLE package_ = nullptr;
  std::size_t next_ = 0;  // of the statuses
  std::unique_ptr<Interfaces> interfaces_;
};

// Shows any form whose package list the HII database has: `form_browser.send_form` counts them.
class FormBrowser {
 public:
  FormBrowser(Machine& machine, const HiiDatabase& hii);
  FormBrowser(const FormBrowser&) = delete;
  FormBrowser& operator=(const FormBrowser&) = delete;

 private:
  struct Interface {
    EFI_FORM_BROWSER2_PROTOCOL protocol{};
    FormBrowser* browser = nullptr;
  };
  static EFI_STATUS EFIAPI SendForm(const EFI_FORM_BROWSER2_PROTOCOL* self, EFI_HII_HANDLE* handles, UINTN count,
                                    const EFI_GUID* formSet, UINT16 form, const EFI_SCREEN_DESCRIPTOR* screen,
                                    EFI_BROWSER_ACTION_REQUEST* action);
  static EFI_STATUS EFIAPI BrowserCallback(const EFI_FORM_BROWSER2_PROTOCOL* self, UINTN* size, CHAR16* data,
                                           BOOLEAN retrieve, const EFI_GUID* guid, const CHAR16* name);

  Machine& machine_;
  const HiiDatabase& hii_;
  Interface interface_;
};

}  // namespace sim

// Driver health: every driver that reports health is asked about every controller, and what it asks for is done.
#include "platform/driver_health.h"

#include "core/driver_health_messages.h"
#include "core/steps.h"
#include "platform/form_browser2.h"
#include "support/protocols.h"
#include "support/setup.h"

namespace bds {
namespace {

// A driver that asks for the same thing after each success would hold the boot for ever.
constexpr UINT32 kMaxRoundsPerController = 8;

struct HealthAnswer {
  EFI_DRIVER_HEALTH_STATUS Status = EfiDriverHealthStatusHealthy;
  PoolPtr<EFI_DRIVER_HEALTH_HII_MESSAGE> Messages;
  EFI_HII_HANDLE Form = nullptr;
};

EFI_STATUS Ask(EFI_DRIVER_HEALTH_PROTOCOL& driver, EFI_HANDLE controller, HealthAnswer& answer) {
  return driver.GetHealthStatus(&driver, controller, nullptr, &answer.Status, answer.Messages.put(), &answer.Form);
}

EFI_STATUS Configure(EFI_HII_HANDLE form) {
  if (form == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  EFI_FORM_BROWSER2_PROTOCOL* browser = nullptr;
  if (const EFI_STATUS status = LocateProtocol(browser); EFI_ERROR(status)) {
    return status;
  }
  return browser->SendForm(browser, &form, 1, &gEfiDriverHealthFormsetGuid, 0, nullptr, nullptr);
}

void Reconnect(EFI_HANDLE controller) {
  static_cast<void>(BootServices()->DisconnectController(controller, nullptr, nullptr));
  static_cast<void>(BootServices()->ConnectController(controller, nullptr, nullptr, TRUE));
}

// What follows from one answer.
enum class Outcome : UINT8 { Done, AskAgain, Reboot };

Outcome Act(EFI_DRIVER_HEALTH_PROTOCOL& driver, EFI_HANDLE controller, const HealthAnswer& answer) {
  switch (answer.Status) {
    case EfiDriverHealthStatusRepairRequired:
      return EFI_ERROR(driver.Repair(&driver, controller, nullptr, nullptr)) ? Outcome::Done : Outcome::AskAgain;
    case EfiDriverHealthStatusConfigurationRequired:
      return EFI_ERROR(Configure(answer.Form)) ? Outcome::Done : Outcome::AskAgain;
    case EfiDriverHealthStatusReconnectRequired:
      Reconnect(controller);
      return Outcome::Done;
    case EfiDriverHealthStatusRebootRequired:
      return Outcome::Reboot;
    default:
      return Outcome::Done;
  }
}

// True when the controller needs a reboot.
bool Treat(EFI_DRIVER_HEALTH_PROTOCOL& driver, EFI_HANDLE controller, HealthMessages& messages) {
  for (UINT32 round = 0; round < kMaxRoundsPerController; ++round) {
    HealthAnswer answer;
    if (EFI_ERROR(Ask(driver, controller, answer)) || answer.Status == EfiDriverHealthStatusHealthy) {
      return false;
    }
    messages.Show(answer.Messages.get());
    const Outcome outcome = Act(driver, controller, answer);
    if (outcome != Outcome::AskAgain) {
      return outcome == Outcome::Reboot;
    }
  }
  return false;
}

bool TreatAll(HealthMessages& messages) {
  const HandleBuffer drivers = HandlesWith<EFI_DRIVER_HEALTH_PROTOCOL>();
  HandleBuffer controllers;
  if (drivers.empty() || EFI_ERROR(controllers.LocateAll())) {
    return false;
  }
  bool reboot = false;
  for (EFI_HANDLE handle : drivers) {
    auto* driver = HandleProtocol<EFI_DRIVER_HEALTH_PROTOCOL>(handle);
    for (EFI_HANDLE controller : controllers) {
      reboot = (driver != nullptr && Treat(*driver, controller, messages)) || reboot;
    }
  }
  return reboot;
}

}  // namespace

void CheckDriverHealth() {
  SetupVariable setup;
  const bool readable = !EFI_ERROR(ReadSetup(setup));
  if (readable && setup.At(kSetupDriverHealthCheck) == 0) {
    return;
  }
  HealthMessages messages(readable && setup.At(kSetupHealthInQuietBoot) != 0);
  if (TreatAll(messages)) {
    RuntimeServices()->ResetSystem(EfiResetWarm, EFI_SUCCESS, 0, nullptr);
  }
}

}  // namespace bds

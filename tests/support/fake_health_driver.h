// A driver that reports health, for tests: its answers are scripted, and what is asked of it is recorded.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/driver_configuration2.h"
#include "platform/driver_health.h"

namespace test {

struct FakeHealthDriver {
  EFI_DRIVER_HEALTH_PROTOCOL Health{};  // first, so that services find the record behind it
  struct Configuration {
    EFI_DRIVER_CONFIGURATION2_PROTOCOL Protocol{};
    FakeHealthDriver* Self = nullptr;
  } Config2;

  EFI_HANDLE Controller = nullptr;               // the one it manages; others get EFI_UNSUPPORTED
  std::deque<EFI_DRIVER_HEALTH_STATUS> Answers;  // one per question; the last one stays
  EFI_HII_HANDLE Form = nullptr;
  EFI_DRIVER_HEALTH_HII_MESSAGE* (*MakeMessages)() = nullptr;
  EFI_STATUS RepairStatus = EFI_SUCCESS;
  EFI_STATUS SetOptionsStatus = EFI_SUCCESS;

  int Questions = 0;  // about its controller
  int Repairs = 0;
  std::vector<std::string> Languages;  // of SetOptions calls

  FakeHealthDriver() {
    Health = {GetHealthStatus, Repair};
    Config2.Protocol.SetOptions = SetOptions;
    Config2.Self = this;
  }
  FakeHealthDriver(const FakeHealthDriver&) = delete;

 private:
  static FakeHealthDriver& Of(EFI_DRIVER_HEALTH_PROTOCOL* health) {
    return *reinterpret_cast<FakeHealthDriver*>(health);
  }
  static EFI_STATUS EFIAPI GetHealthStatus(EFI_DRIVER_HEALTH_PROTOCOL* health, EFI_HANDLE controller, EFI_HANDLE child,
                                           EFI_DRIVER_HEALTH_STATUS* status, EFI_DRIVER_HEALTH_HII_MESSAGE** messages,
                                           EFI_HII_HANDLE* form) {
    FakeHealthDriver& driver = Of(health);
    if (controller != driver.Controller || child != nullptr) {
      return EFI_UNSUPPORTED;
    }
    ++driver.Questions;
    *status = driver.Answers.front();
    if (driver.Answers.size() > 1) {
      driver.Answers.pop_front();
    }
    if (messages != nullptr) {
      *messages = driver.MakeMessages != nullptr ? driver.MakeMessages() : nullptr;
    }
    if (form != nullptr) {
      *form = driver.Form;
    }
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI Repair(EFI_DRIVER_HEALTH_PROTOCOL* health, EFI_HANDLE, EFI_HANDLE,
                                  EFI_DRIVER_HEALTH_REPAIR_NOTIFY) {
    ++Of(health).Repairs;
    return Of(health).RepairStatus;
  }
  static EFI_STATUS EFIAPI SetOptions(EFI_DRIVER_CONFIGURATION2_PROTOCOL* configuration, EFI_HANDLE controller,
                                      EFI_HANDLE, const CHAR8* language,
                                      EFI_DRIVER_CONFIGURATION_ACTION_REQUIRED* action) {
    FakeHealthDriver& driver = *reinterpret_cast<Configuration*>(configuration)->Self;
    if (controller != driver.Controller) {
      return EFI_UNSUPPORTED;
    }
    driver.Languages.emplace_back(language);
    *action = EfiDriverConfigurationActionRestartPlatform;  // to be ignored
    return driver.SetOptionsStatus;
  }
};

}  // namespace test

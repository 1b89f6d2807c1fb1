// A small model of the firmware's setup front end: it comes back at once, boots BootNext and BootOrder itself, or shows
// a text menu on the console.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/setup_front_end.h"
#include "sim/csm/csm.h"
#include "sim/firmware/machine.h"
#include "sim/server/description.h"
#include "sim/server/load_option_view.h"

namespace sim {

class FrontEnd {
 public:
  // Installs the protocol unless the kind is Absent.
  FrontEnd(Machine& machine, FrontEndKind kind);
  FrontEnd(const FrontEnd&) = delete;
  FrontEnd& operator=(const FrontEnd&) = delete;

  // What the driver had shown during the boot.
  const std::vector<std::u16string>& Messages() const { return messages_; }
  bool LeftQuietBoot() const { return leftQuietBoot_; }
  std::uint64_t Runs() const { return runs_; }

 private:
  struct Calls;
  EFI_STATUS Run();
  EFI_STATUS BootInOrder();
  EFI_STATUS Menu();
  void ShowMenu();
  EFI_STATUS BootOption(std::uint16_t number);
  EFI_STATUS BootLegacy(const LoadOption& option);
  bool Keep(std::uint16_t number);
  std::optional<LoadOption> ReadOption(std::uint16_t number);
  std::vector<std::uint16_t> BootOrder();
  void Print(std::u16string_view text);

  Machine& machine_;
  FrontEndKind kind_;
  SETUP_FRONT_END_PROTOCOL protocol_{};
  std::vector<std::u16string> messages_;
  bool leftQuietBoot_ = false;
  std::uint64_t runs_ = 0;
  std::vector<std::uint16_t> order_;  // in the menu or being booted, with the option and its path
  LoadOption option_;
  DevicePath path_;
};

}  // namespace sim

// Scripted faults: "the n-th call of this service answers that status", "power is lost after the n-th write of that
// kind". A test or the command line fills the script before the boot; the machine consults it at every call.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

class FaultScript {
 public:
  using CallHook = std::function<std::optional<EFI_STATUS>(std::string_view service, std::uint64_t nth)>;
  using WriteHook = std::function<void(std::string_view kind, std::uint64_t nth)>;

  // Calls number `nth` (from 1) to nth + count - 1 of `service` answer `status` and do nothing else.
  void FailCall(std::string service, std::uint64_t nth, EFI_STATUS status, std::uint64_t count = 1);
  // The power goes right after write number `nth` (from 1) of that kind ("nvram", "bmc", "bmc-exchange", "pci") took
  // effect.
  void LosePowerAfterWrite(std::string kind, std::uint64_t nth);
  // Called for each call or write that a fault of the table befalls, with the fault's words and the number of the call
  // or write; before the power goes.
  void SetMetHook(std::function<void(std::string_view words, std::uint64_t nth)> hook) { metHook_ = std::move(hook); }
  // Hooks for what a table cannot say; asked after the table.
  void SetCallHook(CallHook hook) { callHook_ = std::move(hook); }
  void SetWriteHook(WriteHook hook) { writeHook_ = std::move(hook); }

  // One fault in words: "call SERVICE N STATUS [COUNT]" or "power KIND N"; false with `error` set when it is not one.
  bool Add(std::string_view words, std::string& error);

  // Called by every service on entry: the status to answer instead of serving, if scripted.
  std::optional<EFI_STATUS> OnCall(std::string_view service);
  // Called by whoever keeps state, after a write took effect; true when the power is lost now. Use
  // Machine::OnWrite, which then ends the boot.
  bool OnWrite(std::string_view kind);

  std::uint64_t WritesOf(std::string_view kind) const;

 private:
  struct CallFault {
    std::string service;
    std::uint64_t first;
    std::uint64_t count;
    EFI_STATUS status;
    std::string words;
  };
  struct PowerFault {
    std::string kind;
    std::uint64_t nth;
    std::string words;
  };
  void Met(std::string_view words, std::uint64_t nth) const;

  std::vector<CallFault> callFaults_;
  std::vector<PowerFault> powerFaults_;
  std::function<void(std::string_view words, std::uint64_t nth)> metHook_;
  CallHook callHook_;
  WriteHook writeHook_;
  std::map<std::string, std::uint64_t, std::less<>> calls_;
  std::map<std::string, std::uint64_t, std::less<>> writes_;
};

// "EFI_NOT_FOUND" for a status and back; unknown statuses are given in hexadecimal.
std::string StatusName(EFI_STATUS status);
std::optional<EFI_STATUS> StatusFromName(std::string_view name);

}  // namespace sim

// The chassis System Boot Options: parameters read, written and waited for.
#include "bmc/boot_options_parameters.h"

#include <array>

#include "support/debug_print.h"
#include "support/services.h"

namespace bds {
namespace {

constexpr UINT8 kSetSystemBootOptions = 0x08;
constexpr UINT8 kGetSystemBootOptions = 0x09;
constexpr UINT8 kOemOneTimeStale = 0x16;

constexpr UINTN kWaitQueries = 11;
constexpr UINTN kWaitPause = 1000;  // microseconds
constexpr UINT8 kSetInProgressMask = 0x03;

constexpr UINTN kTries = 5;
constexpr UINTN kTryPause = 2'000'000;  // microseconds

EFI_STATUS Get(IpmiTransport& transport, UINT8 parameter, UINT8 block, std::span<UINT8> answer) {
  const UINT8 request[] = {parameter, 0, block};
  return SendIpmiCommand(transport, kIpmiChassis, kGetSystemBootOptions, request, answer);
}

// Sends until it succeeds, at most kTries times; each failure is reported with its number, from 0.
template <typename Send, typename Report>
EFI_STATUS TryPersistently(Send send, Report report) {
  EFI_STATUS status = EFI_SUCCESS;
  for (UINTN trial = 0; trial < kTries; ++trial) {
    status = send();
    if (!EFI_ERROR(status)) {
      return status;
    }
    report(trial, status);
    BootServices()->Stall(kTryPause);
  }
  return status;
}

}  // namespace

EFI_STATUS GetBootOptions(IpmiTransport& transport, UINT8 parameter, std::span<UINT8> answer) {
  const EFI_STATUS status = Get(transport, parameter, 0, answer);
  if (EFI_ERROR(status)) {
    DebugPrint(" GetBootOptions failed=%0x for Parameter=%0x \n", status, parameter);
  }
  return status;
}

EFI_STATUS SetBootOptions(IpmiTransport& transport, std::span<const UINT8> request) {
  UINT8 ignored[1];
  return SendIpmiCommand(transport, kIpmiChassis, kSetSystemBootOptions, request, ignored);
}

EFI_STATUS WaitSetInProgressClear(IpmiTransport& transport, WaitLog log) {
  for (UINTN query = 0; query < kWaitQueries; ++query) {
    std::array<UINT8, kParameterData + 1> answer;
    const EFI_STATUS status = log == WaitLog::Errors ? GetBootOptions(transport, kSetInProgress, answer)
                                                     : Get(transport, kSetInProgress, 0, answer);
    if (EFI_ERROR(status)) {
      return status;
    }
    if ((answer[kParameterData] & kSetInProgressMask) == 0) {
      return EFI_SUCCESS;
    }
    BootServices()->Stall(kWaitPause);
  }
  DebugPrint("IPMI:WaitSetInProgressClear TimeOut\n");
  return EFI_TIMEOUT;
}

EFI_STATUS GetBootOptionsPersistently(IpmiTransport& transport, UINT8 parameter, UINT8 block, std::span<UINT8> answer) {
  DebugPrint("GetBootOptions Parameter=%0x\n", parameter);
  return TryPersistently([&] { return Get(transport, parameter, block, answer); },
                         [&](UINTN trial, EFI_STATUS status) {
                           DebugPrint("Trial %d GetBootOptions failed=%0x for Parameter=%0x\n", trial, status,
                                      parameter);
                         });
}

EFI_STATUS SetBootOptionsPersistently(IpmiTransport& transport, std::span<const UINT8> request) {
  if (request.empty()) {
    return EFI_INVALID_PARAMETER;
  }
  const UINT8 parameter = request[0];
  DebugPrint("SetBootOptions Parameter=%0x\n", parameter);
  return TryPersistently(
      [&] { return SetBootOptions(transport, request); },
      [&](UINTN trial, EFI_STATUS status) {
        if (parameter == kSetInProgress) {
          DebugPrint("Trial %d SetBootOptions Status=%0x for Parameter=%0x\n", trial, status, parameter);
          return;
        }
        DebugPrint("Trial %d SetBootOptions status=%0x for Parameter=%0x\n", trial, status, parameter);
      });
}

EFI_STATUS SendOneTimeStaleRequest(IpmiTransport& transport) {
  constexpr UINT8 kRequest[] = {0x09, 0x00};
  return TryPersistently(
      [&] {
        UINT8 ignored[1];
        return SendIpmiCommand(transport, kIpmiOem, kOemOneTimeStale, kRequest, ignored);
      },
      [](UINTN trial, EFI_STATUS status) { DebugPrint("Trial %d SetBootOptions failed=%0x \n", trial, status); });
}

}  // namespace bds

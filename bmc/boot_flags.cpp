// The step that reads the BMC's boot flags, acknowledges them and acts on them.
#include <array>

#include "bmc/boot_options_parameters.h"
#include "bmc/ipmi_boot_device.h"
#include "bmc/ipmi_variables.h"
#include "bmc/state.h"
#include "bmc/steps.h"
#include "platform/setup_variable.h"
#include "support/debug_print.h"
#include "support/protocols.h"
#include "support/variables.h"

namespace bds {
namespace {

// Where the five data bytes of the boot flags lie in the answer (IPMI 2.0, table 28-14).
constexpr UINTN kData1 = kParameterData;
constexpr UINTN kData2 = kParameterData + 1;
constexpr UINTN kData5 = kParameterData + 4;
constexpr UINT8 kFlagsValid = 0x80;
constexpr UINT8 kFlagsPersistent = 0x40;
constexpr UINT8 kFlagsEfiBoot = 0x20;

constexpr UINTN kAcknowledgeAnswerSize = 4;
constexpr UINTN kAcknowledgeByte = kParameterData + 1;
constexpr UINT8 kBiosBit = 0x01;  // read as 1: the BIOS has not handled the flags yet; as a write's mask: it has now

constexpr UINT32 kBootFlowSetup = 4;

using BootFlags = std::array<UINT8, kBootFlagsAnswerSize>;

void DecodeBootFlags(const BootFlags& flags) {
  gBmc.IpmiEfiBoot = (flags[kData1] & kFlagsEfiBoot) != 0;
  gBmc.IpmiPersistent = (flags[kData1] & kFlagsPersistent) != 0;
  gBmc.IpmiBootDevice = (flags[kData2] >> 2) & 0x0F;
  gBmc.IpmiDeviceInstance = flags[kData5] & 0x1F;
}

void ForgetStoredRequest() {
  if (VariableExists(kIpmiBootFlagsName, kIpmiVariablesGuid)) {
    static_cast<void>(DeleteVariableFirmly(kIpmiBootFlagsName, kIpmiVariablesGuid));
  }
}

bool ReadStoredRequest(BootFlags& flags) {
  UINTN size = 0;
  const EFI_STATUS status =
      ReadVariableInto(kIpmiBootFlagsName, kIpmiVariablesGuid, std::as_writable_bytes(std::span(flags)), size);
  return !EFI_ERROR(status) && size == flags.size();
}

EFI_STATUS ReadParameter(IpmiTransport& transport, UINT8 parameter, std::span<UINT8> answer) {
  const EFI_STATUS status = WaitSetInProgressClear(transport, WaitLog::Errors);
  return EFI_ERROR(status) ? status : GetBootOptions(transport, parameter, answer);
}

EFI_STATUS WriteParameter(IpmiTransport& transport, std::span<const UINT8> request) {
  const EFI_STATUS status = WaitSetInProgressClear(transport, WaitLog::Errors);
  return EFI_ERROR(status) ? status : SetBootOptions(transport, request);
}

// False when the flags at the BMC were handled before, or when it cannot be asked.
bool RequestIsPending(IpmiTransport& transport) {
  std::array<UINT8, kAcknowledgeAnswerSize> answer;
  const EFI_STATUS status = ReadParameter(transport, kBootInfoAcknowledge, answer);
  if (EFI_ERROR(status)) {
    DebugPrint("Retrun Status of IpmiGetBootInfoAcknowledgeData:%0x\n", status);
    return false;
  }
  const UINT8 acknowledge = answer[kAcknowledgeByte];
  if (acknowledge != 0 && (acknowledge & kBiosBit) == 0) {
    ForgetStoredRequest();
    return false;
  }
  return true;
}

// Takes a valid request over: decoded, kept in NVRAM when it is persistent, acknowledged and cleared at the BMC. A
// persistent one that NVRAM refuses is left at the BMC, where the next boot finds it again.
bool TakeRequest(IpmiTransport& transport, const BootFlags& flags) {
  DecodeBootFlags(flags);
  if (!gBmc.IpmiPersistent) {
    ForgetStoredRequest();
  } else if (!KeepIpmiVariable(kIpmiBootFlagsName, AsBytes(flags))) {
    return true;
  }
  constexpr UINT8 kAcknowledge[] = {kBootInfoAcknowledge, kBiosBit, 0};
  if (const EFI_STATUS status = WriteParameter(transport, kAcknowledge); EFI_ERROR(status)) {
    DebugPrint("IPMI:SetBootInfoAck Failed:%x \n", status);
    return false;
  }
  constexpr UINT8 kClear[] = {kBootFlags, 0, 0, 0, 0, 0};
  return !EFI_ERROR(WriteParameter(transport, kClear));
}

// Fills the request values from the BMC's valid flags, else from the persistent request kept in NVRAM.
bool ReadRequest(IpmiTransport& transport) {
  gBmc.IpmiBootDevice = 0;
  BootFlags flags{};
  if (EFI_ERROR(ReadParameter(transport, kBootFlags, flags))) {
    return false;
  }
  if ((flags[kData1] & kFlagsValid) != 0) {
    return TakeRequest(transport, flags);
  }
  if (!ReadStoredRequest(flags)) {
    return false;
  }
  DecodeBootFlags(flags);
  return true;
}

void RequestSetup() {
  const EFI_STATUS status =
      WriteVariable(kBootFlowName, kBootFlowGuid, EFI_VARIABLE_BOOTSERVICE_ACCESS, AsBytes(kBootFlowSetup));
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed writing BootFlow:%r\n", "RequestSetup", status);
  }
}

enum class Action : UINT8 { Nothing, Device, Setup };

struct SelectorRow {
  Action Do;
  UINT16 BbsType;
  UINT16 NodeType;
  UINT16 NodeSubType;
  UINT16 OtherBbsType;  // tried for a legacy request when the first type has no option; 0: none
};

// By device selector (IPMI 2.0, table 28-14, data 2 bits 5:2).
constexpr SelectorRow kSelectors[16] = {
    {},
    {Action::Device, BBS_TYPE_BEV, MESSAGING_DEVICE_PATH, MSG_MAC_ADDR_DP, BBS_TYPE_EMBEDDED_NETWORK},  // network
    {Action::Device, BBS_TYPE_HARDDRIVE, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, 0},                     // hard disk
    {Action::Device, BBS_TYPE_HARDDRIVE, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, 0},  // hard disk, safe mode
    {Action::Device, BBS_TYPE_HARDDRIVE, MEDIA_DEVICE_PATH, MEDIA_HARDDRIVE_DP, 0},  // diagnostic partition
    {Action::Device, BBS_TYPE_CDROM, MEDIA_DEVICE_PATH, MEDIA_CDROM_DP, 0},          // CD or DVD
    {Action::Setup, 0, 0, 0, 0},                                                     // BIOS setup
    {},                                                                              // remote floppy
    {},                                                                              // remote CD or DVD
    {},                                                                              // primary remote media
    {},
    {},  // remote hard disk
    {},
    {},
    {},
    {Action::Device, BBS_TYPE_FLOPPY, ACPI_DEVICE_PATH, ACPI_DP, 0},  // floppy, primary removable media
};

// True when this boot carries the request out.
bool ActOnRequest() {
  const SelectorRow& row = kSelectors[gBmc.IpmiBootDevice & 0x0F];
  if (row.Do == Action::Setup) {
    RequestSetup();
    return true;
  }
  if (row.Do == Action::Nothing) {
    return false;
  }
  EFI_STATUS status = ApplyIpmiBootDevice(row.BbsType, row.NodeType, row.NodeSubType);
  if (status == EFI_NOT_FOUND && row.OtherBbsType != 0 && !gBmc.IpmiEfiBoot) {
    status = ApplyIpmiBootDevice(row.OtherBbsType, 0, 0);
  }
  return !EFI_ERROR(status);
}

}  // namespace

void SetIpmiBootOptionPriorities() {
  IpmiTransport* transport = nullptr;
  const EFI_STATUS status = LocateProtocol(transport);
  DebugPrint("LocateProtocol gEfiDxeIpmiTransportProtocolGuid. Status: %r\n", status);
  if (EFI_ERROR(status)) {
    DebugPrint(
        "SetIpmiBootOptionPriorities: Error in locating                         the Ipmi Transport Protocol. "
        "Status: %r\n",
        status);
    return;
  }
  if (RequestIsPending(*transport) && ReadRequest(*transport)) {
    const bool carriedOut = ActOnRequest();
    gBmc.OneTimeRequestInForce = carriedOut && !gBmc.IpmiPersistent;
  }
}

}  // namespace bds

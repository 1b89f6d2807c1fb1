// The interface's states follow UEFI 2.10, 24.1: stopped, started, initialized.
#include "sim/bus/network_device.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace sim {
namespace {

constexpr std::uintmax_t kMaximumImage = 256 << 20;
constexpr UINT64 kFirstRevision = 0x00010000;

// The described image; empty when there is none.
std::vector<std::byte> ReadBootImage(const NetworkBoot& boot) {
  if (!boot.image.empty() || boot.imageFile.empty()) return boot.image;
  std::error_code code;
  const std::uintmax_t size = std::filesystem::file_size(boot.imageFile, code);
  if (code || size > kMaximumImage) return {};
  std::vector<std::byte> bytes(size);
  std::ifstream file(boot.imageFile, std::ios::binary);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  return file ? bytes : std::vector<std::byte>{};
}

}  // namespace

NetworkInterface::NetworkInterface(const NetworkPort& port) : port_(port) {
  mode_.State = EfiSimpleNetworkStopped;
  mode_.HwAddressSize = 6;
  mode_.MediaHeaderSize = 14;
  mode_.MaxPacketSize = 1500;
  mode_.ReceiveFilterMask = EFI_SIMPLE_NETWORK_RECEIVE_UNICAST | EFI_SIMPLE_NETWORK_RECEIVE_BROADCAST;
  std::copy(port.mac.begin(), port.mac.end(), mode_.CurrentAddress.Addr);
  mode_.PermanentAddress = mode_.CurrentAddress;
  std::memset(mode_.BroadcastAddress.Addr, 0xFF, 6);
  mode_.IfType = 1;
  mode_.MediaPresentSupported = TRUE;
  mode_.MediaPresent = port.mediaPresent;
  network_.object = this;
  network_.protocol = {.Revision = EFI_SIMPLE_NETWORK_PROTOCOL_REVISION,
                       .Start = Start,
                       .Stop = Stop,
                       .Initialize = Initialize,
                       .Reset = Reset,
                       .Shutdown = Shutdown,
                       .ReceiveFilters = ReceiveFilters,
                       .StationAddress = StationAddress,
                       .Statistics = Statistics,
                       .MCastIpToMac = MCastIpToMac,
                       .NvData = NvData,
                       .GetStatus = GetStatus,
                       .Transmit = Transmit,
                       .Receive = Receive,
                       .WaitForPacket = nullptr,
                       .Mode = &mode_};
  identifier_.Revision = EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_REVISION;
  std::memcpy(identifier_.StringId, "UNDI", 4);
  identifier_.Type = EfiNetworkInterfaceUndi;
  identifier_.MajorVer = 3;
  identifier_.MinorVer = 1;
  identifier_.Ipv6Supported = port.ipv6;
  oldIdentifier_.Nii = identifier_;
  oldIdentifier_.Nii.Revision = kFirstRevision;
}

std::vector<Interface> NetworkInterface::Interfaces() {
  std::vector<Interface> interfaces{InterfaceOf(network_.protocol)};
  if (port_.identifier) interfaces.push_back(InterfaceOf(identifier_));
  if (port_.oldIdentifier) interfaces.push_back(InterfaceOf(oldIdentifier_));
  return interfaces;
}

EFI_STATUS NetworkInterface::CheckInitialized() const {
  if (mode_.State == EfiSimpleNetworkStopped) return EFI_NOT_STARTED;
  return mode_.State == EfiSimpleNetworkInitialized ? EFI_SUCCESS : EFI_DEVICE_ERROR;
}

EFI_STATUS EFIAPI NetworkInterface::Start(Self* self) {
  EFI_SIMPLE_NETWORK_MODE& mode = From(self).mode_;
  if (mode.State != EfiSimpleNetworkStopped) return EFI_ALREADY_STARTED;
  mode.State = EfiSimpleNetworkStarted;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI NetworkInterface::Stop(Self* self) {
  EFI_SIMPLE_NETWORK_MODE& mode = From(self).mode_;
  if (mode.State == EfiSimpleNetworkStopped) return EFI_NOT_STARTED;
  if (mode.State != EfiSimpleNetworkStarted) return EFI_DEVICE_ERROR;
  mode.State = EfiSimpleNetworkStopped;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI NetworkInterface::Initialize(Self* self, UINTN, UINTN) {
  EFI_SIMPLE_NETWORK_MODE& mode = From(self).mode_;
  if (mode.State == EfiSimpleNetworkStopped) return EFI_NOT_STARTED;
  if (mode.State == EfiSimpleNetworkInitialized) return EFI_DEVICE_ERROR;
  mode.State = EfiSimpleNetworkInitialized;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI NetworkInterface::Reset(Self* self, BOOLEAN) { return From(self).CheckInitialized(); }

EFI_STATUS EFIAPI NetworkInterface::Shutdown(Self* self) {
  NetworkInterface& network = From(self);
  if (const EFI_STATUS status = network.CheckInitialized(); EFI_ERROR(status)) return status;
  network.mode_.State = EfiSimpleNetworkStarted;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI NetworkInterface::ReceiveFilters(Self* self, UINT32 enable, UINT32 disable, BOOLEAN, UINTN,
                                                   EFI_MAC_ADDRESS*) {
  NetworkInterface& network = From(self);
  if (const EFI_STATUS status = network.CheckInitialized(); EFI_ERROR(status)) return status;
  if (((enable | disable) & ~network.mode_.ReceiveFilterMask) != 0) return EFI_INVALID_PARAMETER;
  network.mode_.ReceiveFilterSetting = (network.mode_.ReceiveFilterSetting | enable) & ~disable;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI NetworkInterface::StationAddress(Self* self, BOOLEAN reset, EFI_MAC_ADDRESS*) {
  const EFI_STATUS status = From(self).CheckInitialized();
  if (EFI_ERROR(status)) return status;
  return reset ? EFI_SUCCESS : EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI NetworkInterface::Statistics(Self* self, BOOLEAN, UINTN*, EFI_NETWORK_STATISTICS*) {
  const EFI_STATUS status = From(self).CheckInitialized();
  return EFI_ERROR(status) ? status : EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI NetworkInterface::MCastIpToMac(Self* self, BOOLEAN, EFI_IP_ADDRESS*, EFI_MAC_ADDRESS*) {
  const EFI_STATUS status = From(self).CheckInitialized();
  return EFI_ERROR(status) ? status : EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI NetworkInterface::NvData(Self* self, BOOLEAN, UINTN, UINTN, VOID*) {
  return From(self).mode_.State == EfiSimpleNetworkStopped ? EFI_NOT_STARTED : EFI_UNSUPPORTED;
}

EFI_STATUS EFIAPI NetworkInterface::GetStatus(Self* self, UINT32* interrupts, VOID** buffer) {
  const EFI_STATUS status = From(self).CheckInitialized();
  if (EFI_ERROR(status)) return status;
  if (interrupts == nullptr && buffer == nullptr) return EFI_INVALID_PARAMETER;
  if (interrupts != nullptr) *interrupts = 0;
  if (buffer != nullptr) *buffer = nullptr;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI NetworkInterface::Transmit(Self* self, UINTN, UINTN, VOID* buffer, EFI_MAC_ADDRESS*, EFI_MAC_ADDRESS*,
                                             UINT16*) {
  const EFI_STATUS status = From(self).CheckInitialized();
  if (EFI_ERROR(status)) return status;
  return buffer == nullptr ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
}

EFI_STATUS EFIAPI NetworkInterface::Receive(Self* self, UINTN*, UINTN* size, VOID* buffer, EFI_MAC_ADDRESS*,
                                            EFI_MAC_ADDRESS*, UINT16*) {
  const EFI_STATUS status = From(self).CheckInitialized();
  if (EFI_ERROR(status)) return status;
  return size == nullptr || buffer == nullptr ? EFI_INVALID_PARAMETER : EFI_NOT_READY;
}

NetworkLoadFile::NetworkLoadFile(const NetworkPort& port) : port_(port) {
  loadFile_.object = this;
  loadFile_.protocol.LoadFile = LoadFile;
}

EFI_STATUS EFIAPI NetworkLoadFile::LoadFile(EFI_LOAD_FILE_PROTOCOL* self, EFI_DEVICE_PATH_PROTOCOL* path,
                                            BOOLEAN bootPolicy, UINTN* size, VOID* buffer) {
  const NetworkPort& port = Backed<EFI_LOAD_FILE_PROTOCOL, NetworkLoadFile>::From(self).port_;
  if (path == nullptr || size == nullptr) return EFI_INVALID_PARAMETER;
  // The server names the file: a network device knows boot attempts only.
  if (!bootPolicy) return EFI_UNSUPPORTED;
  if (!port.mediaPresent) return EFI_NO_MEDIA;
  const std::vector<std::byte> image = ReadBootImage(port.boot);
  if (image.empty()) return EFI_ERROR(port.boot.status) ? port.boot.status : EFI_NOT_FOUND;
  if (buffer == nullptr || *size < image.size()) {
    *size = image.size();
    return EFI_BUFFER_TOO_SMALL;
  }
  std::memcpy(buffer, image.data(), image.size());
  *size = image.size();
  return EFI_SUCCESS;
}

}  // namespace sim

// A network port's protocols: simple network (states and addresses; no frames ever arrive), the network interface
// identifier, and load file, which answers with the described boot image.
#pragma once

#include "platform/load_file.h"
#include "platform/network_interface_identifier.h"
#include "platform/simple_network.h"
#include "sim/bus/device_object.h"
#include "sim/bus/device_tree.h"

namespace sim {

class NetworkInterface final : public DeviceObject {
 public:
  explicit NetworkInterface(const NetworkPort& port);
  [[nodiscard]] std::vector<Interface> Interfaces() override;
  // `port` has to outlive this.
  [[nodiscard]] const NetworkPort& Port() const { return port_; }
  static NetworkInterface& From(EFI_SIMPLE_NETWORK_PROTOCOL* protocol) {
    return Backed<EFI_SIMPLE_NETWORK_PROTOCOL, NetworkInterface>::From(protocol);
  }

 private:
  using Self = EFI_SIMPLE_NETWORK_PROTOCOL;
  static EFI_STATUS EFIAPI Start(Self* self);
  static EFI_STATUS EFIAPI Stop(Self* self);
  static EFI_STATUS EFIAPI Initialize(Self* self, UINTN extraRx, UINTN extraTx);
  static EFI_STATUS EFIAPI Reset(Self* self, BOOLEAN extended);
  static EFI_STATUS EFIAPI Shutdown(Self* self);
  static EFI_STATUS EFIAPI ReceiveFilters(Self* self, UINT32 enable, UINT32 disable, BOOLEAN resetMulticast,
                                          UINTN count, EFI_MAC_ADDRESS* filter);
  static EFI_STATUS EFIAPI StationAddress(Self* self, BOOLEAN reset, EFI_MAC_ADDRESS* address);
  static EFI_STATUS EFIAPI Statistics(Self* self, BOOLEAN reset, UINTN* size, EFI_NETWORK_STATISTICS* table);
  static EFI_STATUS EFIAPI MCastIpToMac(Self* self, BOOLEAN ipv6, EFI_IP_ADDRESS* ip, EFI_MAC_ADDRESS* mac);
  static EFI_STATUS EFIAPI NvData(Self* self, BOOLEAN read, UINTN offset, UINTN size, VOID* buffer);
  static EFI_STATUS EFIAPI GetStatus(Self* self, UINT32* interrupts, VOID** buffer);
  static EFI_STATUS EFIAPI Transmit(Self* self, UINTN headerSize, UINTN size, VOID* buffer, EFI_MAC_ADDRESS* source,
                                    EFI_MAC_ADDRESS* destination, UINT16* protocol);
  static EFI_STATUS EFIAPI Receive(Self* self, UINTN* headerSize, UINTN* size, VOID* buffer, EFI_MAC_ADDRESS* source,
                                   EFI_MAC_ADDRESS* destination, UINT16* protocol);

  // EFI_NOT_STARTED or EFI_DEVICE_ERROR when the interface is not initialized, as every transfer answers then.
  [[nodiscard]] EFI_STATUS CheckInitialized() const;

  const NetworkPort& port_;
  EFI_SIMPLE_NETWORK_MODE mode_{};
  Backed<EFI_SIMPLE_NETWORK_PROTOCOL, NetworkInterface> network_;
  EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL identifier_{};
  EFI_NETWORK_INTERFACE_IDENTIFIER_PROTOCOL_OLD oldIdentifier_{};
};

class NetworkLoadFile final : public DeviceObject {
 public:
  explicit NetworkLoadFile(const NetworkPort& port);
  [[nodiscard]] std::vector<Interface> Interfaces() override { return {InterfaceOf(loadFile_.protocol)}; }

 private:
  static EFI_STATUS EFIAPI LoadFile(EFI_LOAD_FILE_PROTOCOL* self, EFI_DEVICE_PATH_PROTOCOL* path, BOOLEAN bootPolicy,
                                    UINTN* size, VOID* buffer);

  const NetworkPort& port_;
  Backed<EFI_LOAD_FILE_PROTOCOL, NetworkLoadFile> loadFile_;
};

}  // namespace sim

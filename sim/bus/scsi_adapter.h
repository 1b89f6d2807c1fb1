// The two SCSI pass-thru protocols (UEFI 2.10, 15.7; EFI 1.10, 13.6) of one adapter over its described devices.
#pragma once

#include <map>

#include "platform/ext_scsi_pass_thru.h"
#include "platform/scsi_pass_thru.h"
#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/bus/scsi_target.h"
#include "sim/firmware/device_path_builder.h"

namespace sim {

// The node under which a device appears: SCSI, or SASEX when it has a SAS address.
[[nodiscard]] DevicePath ScsiDeviceNode(const ScsiDevice& device);

class ScsiAdapter final : public DeviceObject {
 public:
  // `controller` has to outlive this.
  ScsiAdapter(const ScsiController& controller, const BusContext& context);

  // As described: the extended protocol, the older one, both or none.
  [[nodiscard]] std::vector<Interface> Interfaces() override;

 private:
  using Ext = EFI_EXT_SCSI_PASS_THRU_PROTOCOL;
  using Old = EFI_SCSI_PASS_THRU_PROTOCOL;
  struct Unit {
    const ScsiDevice* device;
    ScsiTarget target;
    DevicePath node;
  };
  // The parts of both protocols' packets.
  struct Request {
    std::span<const std::byte> command;
    std::span<std::byte> dataIn;
    std::span<std::byte> sense;
  };
  struct Reply {
    std::uint32_t moved = 0;
    UINT8 senseLength = 0;
    ScsiStatus status = ScsiStatus::Good;
    bool overrun = false;  // the device had more to send than the host took
  };

  static EFI_STATUS EFIAPI ExtPassThru(Ext* self, UINT8* target, UINT64 lun,
                                       EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* packet, EFI_EVENT event);
  static EFI_STATUS EFIAPI ExtGetNextTargetLun(Ext* self, UINT8** target, UINT64* lun);
  static EFI_STATUS EFIAPI ExtBuildDevicePath(Ext* self, UINT8* target, UINT64 lun, EFI_DEVICE_PATH_PROTOCOL** path);
  static EFI_STATUS EFIAPI ExtGetTargetLun(Ext* self, EFI_DEVICE_PATH_PROTOCOL* path, UINT8** target, UINT64* lun);
  static EFI_STATUS EFIAPI ExtResetChannel(Ext* self);
  static EFI_STATUS EFIAPI ExtResetTargetLun(Ext* self, UINT8* target, UINT64 lun);
  static EFI_STATUS EFIAPI ExtGetNextTarget(Ext* self, UINT8** target);

  static EFI_STATUS EFIAPI OldPassThru(Old* self, UINT32 target, UINT64 lun,
                                       EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* packet, EFI_EVENT event);
  static EFI_STATUS EFIAPI OldGetNextDevice(Old* self, UINT32* target, UINT64* lun);
  static EFI_STATUS EFIAPI OldBuildDevicePath(Old* self, UINT32 target, UINT64 lun, EFI_DEVICE_PATH_PROTOCOL** path);
  static EFI_STATUS EFIAPI OldGetTargetLun(Old* self, EFI_DEVICE_PATH_PROTOCOL* path, UINT32* target, UINT64* lun);
  static EFI_STATUS EFIAPI OldResetChannel(Old* self);
  static EFI_STATUS EFIAPI OldResetTarget(Old* self, UINT32 target, UINT64 lun);

  [[nodiscard]] Unit* Find(std::uint64_t target, std::uint64_t lun);
  [[nodiscard]] Unit* FindByNode(const EFI_DEVICE_PATH_PROTOCOL* path);
  [[nodiscard]] EFI_STATUS CopyNode(const Unit& unit, EFI_DEVICE_PATH_PROTOCOL** path) const;
  static Reply Run(Unit& unit, const Request& request);

  BusContext context_;
  bool extended_;
  bool older_;
  std::vector<Unit> units_;  // sorted by target, then LUN
  EFI_EXT_SCSI_PASS_THRU_MODE extMode_{};
  EFI_SCSI_PASS_THRU_MODE oldMode_{};
  Backed<Ext, ScsiAdapter> ext_;
  Backed<Old, ScsiAdapter> old_;
};

}  // namespace sim

// Both protocols are one adapter: they differ in how they write a target down and in their packets' layout.
#include "sim/bus/scsi_adapter.h"

#include <algorithm>
#include <cstring>

namespace sim {
namespace {

constexpr std::uint64_t kNoTarget = UINT64_MAX;
constexpr std::size_t kMaximumTransfer = 16 << 20;

// The extended protocol's target: 16 bytes, little-endian; all ones asks for the first one.
std::uint64_t TargetFrom(const UINT8* bytes) {
  if (std::all_of(bytes, bytes + TARGET_MAX_BYTES, [](UINT8 byte) { return byte == 0xFF; })) return kNoTarget;
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  const bool small = std::all_of(bytes + 8, bytes + TARGET_MAX_BYTES, [](UINT8 byte) { return byte == 0; });
  return small ? value : kNoTarget - 1;
}

void PutTarget(UINT8* bytes, std::uint64_t target) {
  std::memset(bytes, 0, TARGET_MAX_BYTES);
  std::memcpy(bytes, &target, sizeof target);
}

}  // namespace

DevicePath ScsiDeviceNode(const ScsiDevice& device) {
  DevicePath path;
  if (!device.sasAddress) return path.Scsi(device.target, static_cast<std::uint16_t>(device.lun));
  SASEX_DEVICE_PATH node{};
  for (int i = 0; i < 8; ++i) node.SasAddress[i] = static_cast<UINT8>(*device.sasAddress >> (56 - 8 * i));
  for (int i = 0; i < 8; ++i) node.Lun[i] = static_cast<UINT8>(device.lun >> (56 - 8 * i));
  return path.Append(MESSAGING_DEVICE_PATH, MSG_SASEX_DP, node);
}

ScsiAdapter::ScsiAdapter(const ScsiController& controller, const BusContext& context)
    : context_(context), extended_(controller.extendedPassThru), older_(controller.olderPassThru) {
  for (const ScsiDevice& device : controller.devices) {
    if (device.present) units_.push_back({&device, ScsiTarget(device.drive), ScsiDeviceNode(device)});
  }
  std::stable_sort(units_.begin(), units_.end(), [](const Unit& a, const Unit& b) {
    return std::pair(a.device->target, a.device->lun) < std::pair(b.device->target, b.device->lun);
  });
  extMode_ = {.AdapterId = controller.adapterId,
              .Attributes = EFI_EXT_SCSI_PASS_THRU_ATTRIBUTES_PHYSICAL | EFI_EXT_SCSI_PASS_THRU_ATTRIBUTES_LOGICAL,
              .IoAlign = 0};
  oldMode_.AdapterId = controller.adapterId;
  oldMode_.Attributes = EFI_SCSI_PASS_THRU_ATTRIBUTES_PHYSICAL | EFI_SCSI_PASS_THRU_ATTRIBUTES_LOGICAL;
  ext_.object = this;
  ext_.protocol = {.Mode = &extMode_,
                   .PassThru = ExtPassThru,
                   .GetNextTargetLun = ExtGetNextTargetLun,
                   .BuildDevicePath = ExtBuildDevicePath,
                   .GetTargetLun = ExtGetTargetLun,
                   .ResetChannel = ExtResetChannel,
                   .ResetTargetLun = ExtResetTargetLun,
                   .GetNextTarget = ExtGetNextTarget};
  old_.object = this;
  old_.protocol = {.Mode = &oldMode_,
                   .PassThru = OldPassThru,
                   .GetNextDevice = OldGetNextDevice,
                   .BuildDevicePath = OldBuildDevicePath,
                   .GetTargetLun = OldGetTargetLun,
                   .ResetChannel = OldResetChannel,
                   .ResetTarget = OldResetTarget};
}

std::vector<Interface> ScsiAdapter::Interfaces() {
  std::vector<Interface> interfaces;
  if (extended_) interfaces.push_back(InterfaceOf(ext_.protocol));
  if (older_) interfaces.push_back(InterfaceOf(old_.protocol));
  return interfaces;
}

ScsiAdapter::Unit* ScsiAdapter::Find(std::uint64_t target, std::uint64_t lun) {
  const auto found = std::find_if(units_.begin(), units_.end(), [&](const Unit& unit) {
    return unit.device->target == target && unit.device->lun == lun;
  });
  return found == units_.end() ? nullptr : &*found;
}

// The node alone decides, whatever follows it in the path.
ScsiAdapter::Unit* ScsiAdapter::FindByNode(const EFI_DEVICE_PATH_PROTOCOL* path) {
  const std::size_t length = path->Length[0] | (path->Length[1] << 8);
  const auto found = std::find_if(units_.begin(), units_.end(), [&](const Unit& unit) {
    const std::size_t nodeSize = unit.node.Size() - sizeof(EFI_DEVICE_PATH_PROTOCOL);
    return length == nodeSize && std::memcmp(path, unit.node.Get(), nodeSize) == 0;
  });
  return found == units_.end() ? nullptr : &*found;
}

EFI_STATUS ScsiAdapter::CopyNode(const Unit& unit, EFI_DEVICE_PATH_PROTOCOL** path) const {
  const std::size_t size = unit.node.Size() - sizeof(EFI_DEVICE_PATH_PROTOCOL);
  void* copy = context_.allocatePool(size);
  if (copy == nullptr) return EFI_OUT_OF_RESOURCES;
  std::memcpy(copy, unit.node.Get(), size);
  *path = static_cast<EFI_DEVICE_PATH_PROTOCOL*>(copy);
  return EFI_SUCCESS;
}

ScsiAdapter::Reply ScsiAdapter::Run(Unit& unit, const Request& request) {
  const ScsiAnswer answer = unit.target.Execute(request.command);
  Reply reply{.status = answer.status, .overrun = answer.data.size() > request.dataIn.size()};
  reply.moved = static_cast<std::uint32_t>(std::min(answer.data.size(), request.dataIn.size()));
  std::copy_n(answer.data.begin(), reply.moved, request.dataIn.begin());
  reply.senseLength = static_cast<UINT8>(std::min(answer.sense.size(), request.sense.size()));
  std::copy_n(answer.sense.begin(), reply.senseLength, request.sense.begin());
  return reply;
}

EFI_STATUS EFIAPI ScsiAdapter::ExtPassThru(Ext* self, UINT8* target, UINT64 lun,
                                           EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* packet, EFI_EVENT) {
  if (packet == nullptr || target == nullptr || packet->Cdb == nullptr) return EFI_INVALID_PARAMETER;
  if (packet->DataDirection > EFI_EXT_SCSI_DATA_DIRECTION_WRITE) return EFI_UNSUPPORTED;
  const bool reads = packet->DataDirection == EFI_EXT_SCSI_DATA_DIRECTION_READ;
  if (reads && packet->InTransferLength != 0 && packet->InDataBuffer == nullptr) return EFI_INVALID_PARAMETER;
  if (packet->InTransferLength > kMaximumTransfer) return EFI_BAD_BUFFER_SIZE;
  Unit* unit = Backed<Ext, ScsiAdapter>::From(self).Find(TargetFrom(target), lun);
  if (unit == nullptr) {
    packet->HostAdapterStatus = EFI_EXT_SCSI_STATUS_HOST_ADAPTER_SELECTION_TIMEOUT;
    packet->InTransferLength = packet->OutTransferLength = 0;
    return EFI_TIMEOUT;
  }
  const std::size_t senseSize = packet->SenseData == nullptr ? 0 : packet->SenseDataLength;
  const Reply reply = Run(*unit, {{static_cast<const std::byte*>(packet->Cdb), packet->CdbLength},
                                  {static_cast<std::byte*>(packet->InDataBuffer), reads ? packet->InTransferLength : 0},
                                  {static_cast<std::byte*>(packet->SenseData), senseSize}});
  packet->InTransferLength = reply.moved;
  packet->OutTransferLength = 0;
  packet->SenseDataLength = reply.senseLength;
  packet->TargetStatus = static_cast<UINT8>(reply.status);
  packet->HostAdapterStatus =
      reply.overrun ? EFI_EXT_SCSI_STATUS_HOST_ADAPTER_DATA_OVERRUN_UNDERRUN : EFI_EXT_SCSI_STATUS_HOST_ADAPTER_OK;
  return reply.overrun ? EFI_BAD_BUFFER_SIZE : EFI_SUCCESS;
}

EFI_STATUS EFIAPI ScsiAdapter::ExtGetNextTargetLun(Ext* self, UINT8** target, UINT64* lun) {
  if (target == nullptr || *target == nullptr || lun == nullptr) return EFI_INVALID_PARAMETER;
  ScsiAdapter& adapter = Backed<Ext, ScsiAdapter>::From(self);
  std::size_t next = 0;
  if (const std::uint64_t current = TargetFrom(*target); current != kNoTarget) {
    const Unit* unit = adapter.Find(current, *lun);
    if (unit == nullptr) return EFI_INVALID_PARAMETER;
    next = static_cast<std::size_t>(unit - adapter.units_.data()) + 1;
  }
  if (next >= adapter.units_.size()) return EFI_NOT_FOUND;
  PutTarget(*target, adapter.units_[next].device->target);
  *lun = adapter.units_[next].device->lun;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI ScsiAdapter::ExtBuildDevicePath(Ext* self, UINT8* target, UINT64 lun,
                                                  EFI_DEVICE_PATH_PROTOCOL** path) {
  if (target == nullptr || path == nullptr) return EFI_INVALID_PARAMETER;
  ScsiAdapter& adapter = Backed<Ext, ScsiAdapter>::From(self);
  const Unit* unit = adapter.Find(TargetFrom(target), lun);
  return unit == nullptr ? EFI_NOT_FOUND : adapter.CopyNode(*unit, path);
}

EFI_STATUS EFIAPI ScsiAdapter::ExtGetTargetLun(Ext* self, EFI_DEVICE_PATH_PROTOCOL* path, UINT8** target, UINT64* lun) {
  if (path == nullptr || target == nullptr || *target == nullptr || lun == nullptr) return EFI_INVALID_PARAMETER;
  if (path->Type != MESSAGING_DEVICE_PATH) return EFI_UNSUPPORTED;
  if (path->SubType != MSG_SCSI_DP && path->SubType != MSG_SASEX_DP) return EFI_UNSUPPORTED;
  const Unit* unit = Backed<Ext, ScsiAdapter>::From(self).FindByNode(path);
  if (unit == nullptr) return EFI_NOT_FOUND;
  PutTarget(*target, unit->device->target);
  *lun = unit->device->lun;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI ScsiAdapter::ExtResetChannel(Ext*) { return EFI_SUCCESS; }

EFI_STATUS EFIAPI ScsiAdapter::ExtResetTargetLun(Ext* self, UINT8* target, UINT64 lun) {
  if (target == nullptr) return EFI_INVALID_PARAMETER;
  const bool known = Backed<Ext, ScsiAdapter>::From(self).Find(TargetFrom(target), lun) != nullptr;
  return known ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

EFI_STATUS EFIAPI ScsiAdapter::ExtGetNextTarget(Ext* self, UINT8** target) {
  if (target == nullptr || *target == nullptr) return EFI_INVALID_PARAMETER;
  const std::uint64_t current = TargetFrom(*target);
  const auto& units = Backed<Ext, ScsiAdapter>::From(self).units_;
  const auto has = [&](const Unit& unit) { return unit.device->target == current; };
  if (current != kNoTarget && std::none_of(units.begin(), units.end(), has)) return EFI_INVALID_PARAMETER;
  const auto next = std::find_if(units.begin(), units.end(), [&](const Unit& unit) {
    return current == kNoTarget || unit.device->target > current;
  });
  if (next == units.end()) return EFI_NOT_FOUND;
  PutTarget(*target, next->device->target);
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI ScsiAdapter::OldPassThru(Old* self, UINT32 target, UINT64 lun,
                                           EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* packet, EFI_EVENT) {
  if (packet == nullptr || packet->Cdb == nullptr) return EFI_INVALID_PARAMETER;
  if (packet->DataDirection > EFI_SCSI_DATA_OUT) return EFI_INVALID_PARAMETER;
  if (packet->TransferLength != 0 && packet->DataBuffer == nullptr) return EFI_INVALID_PARAMETER;
  if (packet->TransferLength > kMaximumTransfer) return EFI_BAD_BUFFER_SIZE;
  Unit* unit = Backed<Old, ScsiAdapter>::From(self).Find(target, lun);
  if (unit == nullptr) {
    packet->HostAdapterStatus = EFI_EXT_SCSI_STATUS_HOST_ADAPTER_SELECTION_TIMEOUT;
    packet->TransferLength = 0;
    return EFI_TIMEOUT;
  }
  const bool reads = packet->DataDirection == EFI_SCSI_DATA_IN;
  const std::size_t senseSize = packet->SenseData == nullptr ? 0 : packet->SenseDataLength;
  const Reply reply = Run(*unit, {{static_cast<const std::byte*>(packet->Cdb), packet->CdbLength},
                                  {static_cast<std::byte*>(packet->DataBuffer), reads ? packet->TransferLength : 0},
                                  {static_cast<std::byte*>(packet->SenseData), senseSize}});
  packet->TransferLength = reply.moved;
  packet->SenseDataLength = reply.senseLength;
  packet->TargetStatus = static_cast<UINT8>(reply.status);
  packet->HostAdapterStatus =
      reply.overrun ? EFI_EXT_SCSI_STATUS_HOST_ADAPTER_DATA_OVERRUN_UNDERRUN : EFI_EXT_SCSI_STATUS_HOST_ADAPTER_OK;
  return reply.overrun ? EFI_BAD_BUFFER_SIZE : EFI_SUCCESS;
}

EFI_STATUS EFIAPI ScsiAdapter::OldGetNextDevice(Old* self, UINT32* target, UINT64* lun) {
  if (target == nullptr || lun == nullptr) return EFI_INVALID_PARAMETER;
  ScsiAdapter& adapter = Backed<Old, ScsiAdapter>::From(self);
  std::size_t next = 0;
  if (*target != UINT32_MAX) {
    const Unit* unit = adapter.Find(*target, *lun);
    if (unit == nullptr) return EFI_INVALID_PARAMETER;
    next = static_cast<std::size_t>(unit - adapter.units_.data()) + 1;
  }
  if (next >= adapter.units_.size()) return EFI_NOT_FOUND;
  *target = adapter.units_[next].device->target;
  *lun = adapter.units_[next].device->lun;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI ScsiAdapter::OldBuildDevicePath(Old* self, UINT32 target, UINT64 lun,
                                                  EFI_DEVICE_PATH_PROTOCOL** path) {
  if (path == nullptr) return EFI_INVALID_PARAMETER;
  ScsiAdapter& adapter = Backed<Old, ScsiAdapter>::From(self);
  const Unit* unit = adapter.Find(target, lun);
  return unit == nullptr ? EFI_NOT_FOUND : adapter.CopyNode(*unit, path);
}

EFI_STATUS EFIAPI ScsiAdapter::OldGetTargetLun(Old* self, EFI_DEVICE_PATH_PROTOCOL* path, UINT32* target, UINT64* lun) {
  if (path == nullptr || target == nullptr || lun == nullptr) return EFI_INVALID_PARAMETER;
  if (path->Type != MESSAGING_DEVICE_PATH || path->SubType != MSG_SCSI_DP) return EFI_UNSUPPORTED;
  const Unit* unit = Backed<Old, ScsiAdapter>::From(self).FindByNode(path);
  if (unit == nullptr) return EFI_NOT_FOUND;
  *target = unit->device->target;
  *lun = unit->device->lun;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI ScsiAdapter::OldResetChannel(Old*) { return EFI_SUCCESS; }

EFI_STATUS EFIAPI ScsiAdapter::OldResetTarget(Old* self, UINT32 target, UINT64 lun) {
  return Backed<Old, ScsiAdapter>::From(self).Find(target, lun) != nullptr ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

}  // namespace sim

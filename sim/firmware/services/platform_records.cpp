// The platform's small services.
#include "sim/firmware/services/platform_records.h"

#include <fmt/format.h>

#include <cstring>

#include "platform/boot_script_save.h"
#include "sim/firmware/machine.h"

namespace sim {
namespace {

EFI_STATUS InstallOnNewHandle(EFI_BOOT_SERVICES* services, const EFI_GUID& guid, void* interface) {
  EFI_HANDLE handle = nullptr;
  return services->InstallProtocolInterface(&handle, &guid, EFI_NATIVE_INTERFACE, interface);
}

}  // namespace

StatusCodeRecorder::StatusCodeRecorder() : protocol_{Report} {}

EFI_STATUS StatusCodeRecorder::Install(EFI_BOOT_SERVICES* services) {
  return InstallOnNewHandle(services, ProtocolGuid<EFI_STATUS_CODE_PROTOCOL>, &protocol_);
}

EFI_STATUS EFIAPI StatusCodeRecorder::Report(EFI_STATUS_CODE_TYPE type, EFI_STATUS_CODE_VALUE value, UINT32 instance,
                                             const EFI_GUID*, const EFI_STATUS_CODE_DATA*) {
  if (Machine::Exists() && Machine::Current().Tracing()) {
    Machine::Current().Trace(fmt::format("status code {:x} {:08x} instance {}", type, value, instance));
  }
  StatusCodeRecorder& self = *Current();
  ++self.count_;
  if (self.records_.size() < kMaxRecords) {
    self.records_.push_back({type, value, instance});
  }
  return EFI_SUCCESS;
}

AcpiS3SaveModel::AcpiS3SaveModel() {
  interface_.protocol.GetLegacyMemorySize = [](EFI_ACPI_S3_SAVE_PROTOCOL*, UINTN* size) EFIAPI -> EFI_STATUS {
    if (size == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    *size = 0;
    return EFI_SUCCESS;
  };
  interface_.protocol.S3Save = [](EFI_ACPI_S3_SAVE_PROTOCOL* protocol, VOID*) EFIAPI -> EFI_STATUS {
    if (Machine::Exists() && Machine::Current().Tracing()) {
      Machine::Current().Trace("save for S3");
    }
    ++reinterpret_cast<Interface*>(protocol)->saves;
    return EFI_SUCCESS;
  };
}

EFI_STATUS AcpiS3SaveModel::Install(EFI_BOOT_SERVICES* services) {
  return InstallOnNewHandle(services, ProtocolGuid<EFI_ACPI_S3_SAVE_PROTOCOL>, &interface_.protocol);
}

EFI_STATUS InstallBootScriptSave(EFI_BOOT_SERVICES* services) {
  // Its members are null, so that a call through one ends the boot where it happens.
  static void* members[3] = {};
  return InstallOnNewHandle(services, gEfiBootScriptSaveProtocolGuid, members);
}

EFI_STATUS FirmwarePerformanceModel::Install(EFI_BOOT_SERVICES* services, EFI_RUNTIME_SERVICES* runtime) {
  constexpr std::size_t kBlockOffset = 16;  // the signature lies in the four bytes before it
  constexpr std::size_t kRecordOffset = 64;
  EFI_PHYSICAL_ADDRESS page = 0xFFFFFFFF;
  EFI_STATUS status = services->AllocatePages(AllocateMaxAddress, EfiReservedMemoryType, 1, &page);
  if (EFI_ERROR(status)) {
    return status;
  }
  auto* bytes = reinterpret_cast<std::byte*>(page);
  std::memset(bytes, 0, 4096);
  std::memcpy(bytes + kBlockOffset - sizeof(kPerformanceSignature), &kPerformanceSignature,
              sizeof(kPerformanceSignature));
  block_ = reinterpret_cast<PERFORMANCE_DATA_BLOCK*>(bytes + kBlockOffset);
  record_ = reinterpret_cast<BOOT_PERFORMANCE_RECORD*>(bytes + kRecordOffset);
  block_->BootRecord = page + kRecordOffset;
  block_->TimerFactor = kTimerFactor;
  record_->Signature = kPerformanceSignature;
  record_->Length = sizeof(BOOT_PERFORMANCE_RECORD);
  record_->Type = 2;
  record_->RecordLength = sizeof(BOOT_PERFORMANCE_RECORD);
  record_->Revision = 2;
  const auto address = static_cast<UINT32>(page + kBlockOffset);
  return runtime->SetVariable(kFirmwarePerformanceName, &kFirmwarePerformanceGuid, EFI_VARIABLE_BOOTSERVICE_ACCESS,
                              sizeof(address), &address);
}

std::uint64_t FirmwarePerformanceModel::LoaderStart() const {
  return record_ == nullptr ? 0 : record_->OsLoaderStartImageStart;
}

}  // namespace sim

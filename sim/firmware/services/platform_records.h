// Small models of the platform around the driver: who records its progress codes, the S3 save service, the boot script
// protocol, and the firmware performance block that takes the boot-start time stamp.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/acpi_s3_save.h"
#include "platform/boot_services.h"
#include "platform/firmware_performance.h"
#include "platform/runtime_services.h"
#include "platform/status_code.h"
#include "sim/firmware/services/current.h"

namespace sim {

// Records every status code in order; at most kMaxRecords are kept, all are counted.
class StatusCodeRecorder : public CurrentModel<StatusCodeRecorder> {
 public:
  struct Record {
    EFI_STATUS_CODE_TYPE type = 0;
    EFI_STATUS_CODE_VALUE value = 0;
    std::uint32_t instance = 0;
  };
  static constexpr std::size_t kMaxRecords = 10'000;

  StatusCodeRecorder();
  EFI_STATUS Install(EFI_BOOT_SERVICES* services);
  const std::vector<Record>& Records() const { return records_; }
  std::uint64_t Count() const { return count_; }

 private:
  static EFI_STATUS EFIAPI Report(EFI_STATUS_CODE_TYPE type, EFI_STATUS_CODE_VALUE value, UINT32 instance,
                                  const EFI_GUID* caller, const EFI_STATUS_CODE_DATA* data);
  EFI_STATUS_CODE_PROTOCOL protocol_;
  std::vector<Record> records_;
  std::uint64_t count_ = 0;
};

// Counts how often it was asked to save.
class AcpiS3SaveModel {
 public:
  AcpiS3SaveModel();
  EFI_STATUS Install(EFI_BOOT_SERVICES* services);
  std::uint64_t Saves() const { return interface_.saves; }

 private:
  struct Interface {
    EFI_ACPI_S3_SAVE_PROTOCOL protocol;
    std::uint64_t saves = 0;
  };
  Interface interface_;
};

// The boot script save protocol, which the driver only locates: an interface that nothing may be called through.
EFI_STATUS InstallBootScriptSave(EFI_BOOT_SERVICES* services);

// The performance data block and its boot record below 4 GiB, and the volatile variable that tells its address.
class FirmwarePerformanceModel {
 public:
  // Ticks of the time-stamp counter to nanoseconds: time = counter * factor / 1,000,000.
  static constexpr std::uint64_t kTimerFactor = 500'000;

  EFI_STATUS Install(EFI_BOOT_SERVICES* services, EFI_RUNTIME_SERVICES* runtime);
  // The time stamp of the start of the loader, in nanoseconds; 0 until it was written.
  std::uint64_t LoaderStart() const;
  // For damaging it on purpose; null before Install.
  BOOT_PERFORMANCE_RECORD* Record() { return record_; }
  PERFORMANCE_DATA_BLOCK* Block() { return block_; }

 private:
  PERFORMANCE_DATA_BLOCK* block_ = nullptr;
  BOOT_PERFORMANCE_RECORD* record_ = nullptr;
};

}  // namespace sim

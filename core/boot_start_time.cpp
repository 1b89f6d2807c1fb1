// Boot-start time stamp: NVRAM names the performance data block, the block names the boot performance record.
#include "core/boot_start_time.h"

#include "core/state.h"
#include "platform/firmware_performance.h"
#include "platform/io_ports.h"
#include "platform/signals.h"
#include "support/event.h"
#include "support/variables.h"

namespace bds {
namespace {

constexpr UINT16 kBasicBootRecord = 2;
constexpr UINT64 kFactorScale = 1'000'000;

const void* At(UINT64 address) { return reinterpret_cast<const void*>(address); }

struct Block {
  UINT64 Record = 0;
  UINT64 Factor = 0;
  bool Complete() const { return Record != 0 && Factor != 0; }
};

Block ReadBlock() {
  if (gCore.PerformanceData == 0) {
    return {};
  }
  const auto data = LoadUnaligned<PERFORMANCE_DATA_BLOCK>(At(gCore.PerformanceData));
  return {data.BootRecord, data.TimerFactor};
}

void FindBlock() {
  UINT32 address = 0;
  UINTN size = 0;
  const std::span record(reinterpret_cast<std::byte*>(&address), sizeof(address));
  const EFI_STATUS status = ReadVariableInto(kFirmwarePerformanceName, kFirmwarePerformanceGuid, record, size);
  gCore.PerformanceData = EFI_ERROR(status) || size != sizeof(address) ? 0 : address;
}

// counter * factor / scale without the overflow of the product.
UINT64 ScaledTime(UINT64 counter, UINT64 factor) {
  return counter / kFactorScale * factor + counter % kFactorScale * factor / kFactorScale;
}

VOID EFIAPI OnBootStart(EFI_EVENT, VOID*) { StampBootStartTime(); }

}  // namespace

void StampBootStartTime() {
  if (!ReadBlock().Complete()) {
    FindBlock();
  }
  const Block block = ReadBlock();
  if (!block.Complete()) {
    return;
  }
  const auto signature = LoadUnaligned<UINT32>(At(gCore.PerformanceData - sizeof(UINT32)));
  auto record = LoadUnaligned<BOOT_PERFORMANCE_RECORD>(At(block.Record));
  if (signature != kPerformanceSignature || record.Signature != kPerformanceSignature ||
      record.Type != kBasicBootRecord) {
    return;
  }
  const UINT64 time = ScaledTime(ReadTimeStampCounter(), block.Factor);
  StoreUnaligned(reinterpret_cast<void*>(block.Record + offsetof(BOOT_PERFORMANCE_RECORD, OsLoaderStartImageStart)),
                 time);
}

void RegisterBootStartTimeStamp() { static_cast<void>(NotifyOnProtocol(kBootStartSignalGuid, OnBootStart)); }

}  // namespace bds

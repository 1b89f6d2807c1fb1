// The two transports of USB mass storage as state machines on the device's side: bulk-only (USB Mass Storage Class
// Bulk-Only Transport 1.0) and control/bulk/interrupt (CBI 1.1). Each hands command blocks to a SCSI target per LUN.
#pragma once

#include <memory>
#include <span>

#include "sim/bus/scsi_target.h"

namespace sim {

// How a transfer ended. Stall: the device refuses; Silence: it sends nothing, so the host's timeout runs out.
enum class UsbResult { Done, Stall, Silence };

inline constexpr std::uint8_t kBulkIn = 0x81;
inline constexpr std::uint8_t kBulkOut = 0x02;
inline constexpr std::uint8_t kInterruptIn = 0x83;

struct UsbSetup {
  std::uint8_t requestType;
  std::uint8_t request;
  std::uint16_t value;
  std::uint16_t index;
};

class UsbTransportModel {
 public:
  virtual ~UsbTransportModel() = default;
  // A class request of the control endpoint; `done` is what an answer filled of `data`.
  virtual UsbResult Control(const UsbSetup& setup, std::span<std::byte> data, std::size_t& done) = 0;
  // Bulk data to the device, from it, and the interrupt endpoint. `done` is what moved.
  virtual UsbResult BulkOut(std::span<const std::byte> data, std::size_t& done) = 0;
  virtual UsbResult BulkIn(std::span<std::byte> data, std::size_t& done) = 0;
  virtual UsbResult Interrupt(std::span<std::byte> data, std::size_t& done) = 0;
  // The host cleared the halt of an endpoint.
  virtual void ClearHalt(std::uint8_t endpoint) = 0;
};

[[nodiscard]] std::unique_ptr<UsbTransportModel> MakeBulkOnlyTransport(const std::vector<Drive>& units);
// With `interrupt` each command's completion is told on the interrupt endpoint.
[[nodiscard]] std::unique_ptr<UsbTransportModel> MakeCbiTransport(const std::vector<Drive>& units, bool interrupt);

}  // namespace sim

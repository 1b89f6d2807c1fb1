// Command wrapper, data, status: the order is the protocol, and whoever breaks it meets a stalled endpoint.
#include "sim/bus/usb_mass_storage.h"

#include <algorithm>
#include <cstring>

#include "sim/storage/little_endian.h"

namespace sim {
namespace {

constexpr std::uint32_t kCommandSignature = 0x43425355;  // "USBC"
constexpr std::uint32_t kStatusSignature = 0x53425355;   // "USBS"
constexpr std::size_t kCommandSize = 31;
constexpr std::size_t kStatusSize = 13;
constexpr std::uint8_t kPassed = 0;
constexpr std::uint8_t kFailed = 1;
constexpr std::uint8_t kPhaseError = 2;

std::vector<ScsiTarget> MakeTargets(const std::vector<Drive>& units) {
  std::vector<ScsiTarget> targets;
  for (const Drive& unit : units) targets.emplace_back(unit);
  return targets;
}

// Moves the front of `pending` into `out`.
std::size_t Deliver(std::vector<std::byte>& pending, std::span<std::byte> out) {
  const std::size_t size = std::min(pending.size(), out.size());
  std::copy_n(pending.begin(), size, out.begin());
  pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(size));
  return size;
}

class BulkOnlyTransport final : public UsbTransportModel {
 public:
  explicit BulkOnlyTransport(const std::vector<Drive>& units) : targets_(MakeTargets(units)) {}

  UsbResult Control(const UsbSetup& setup, std::span<std::byte> data, std::size_t& done) override {
    done = 0;
    if (setup.requestType == 0x21 && setup.request == 0xFF) {  // bulk-only mass storage reset
      phase_ = Phase::Command;
      pending_.clear();
      return UsbResult::Done;
    }
    if (setup.requestType != 0xA1 || setup.request != 0xFE || data.empty()) return UsbResult::Stall;  // get max LUN
    data[0] = static_cast<std::byte>(targets_.empty() ? 0 : targets_.size() - 1);
    done = 1;
    return UsbResult::Done;
  }

  UsbResult BulkOut(std::span<const std::byte> data, std::size_t& done) override {
    done = 0;
    if (outHalted_ || phase_ == Phase::Broken) return UsbResult::Stall;
    if (phase_ == Phase::DataOut) {
      done = data.size();
      residue_ -= static_cast<std::uint32_t>(std::min<std::size_t>(done, residue_));
      phase_ = Phase::Status;
      return UsbResult::Done;
    }
    if (phase_ != Phase::Command || !TakeCommand(data)) {
      // 6.6.1: a wrapper that is not valid halts both pipes until the reset recovery.
      outHalted_ = inHalted_ = true;
      phase_ = Phase::Broken;
      return UsbResult::Stall;
    }
    done = data.size();
    return UsbResult::Done;
  }

  UsbResult BulkIn(std::span<std::byte> data, std::size_t& done) override {
    done = 0;
    if (inHalted_ || phase_ == Phase::Broken) return UsbResult::Stall;
    if (phase_ == Phase::DataIn) return SendData(data, done);
    if (phase_ != Phase::Status) return UsbResult::Silence;
    return SendStatus(data, done);
  }

  UsbResult Interrupt(std::span<std::byte>, std::size_t& done) override {
    done = 0;
    return UsbResult::Stall;
  }

  void ClearHalt(std::uint8_t endpoint) override {
    if (phase_ == Phase::Broken) return;
    if (endpoint == kBulkIn) inHalted_ = false;
    if (endpoint == kBulkOut) outHalted_ = false;
  }

 private:
  enum class Phase { Command, DataIn, DataOut, Status, Broken };

  bool TakeCommand(std::span<const std::byte> data) {
    if (data.size() != kCommandSize || ReadLittle<std::uint32_t>(data, 0) != kCommandSignature) return false;
    const auto lun = std::to_integer<std::size_t>(data[13]);
    const auto length = std::to_integer<std::size_t>(data[14]);
    const bool fieldsHold = lun < targets_.size() && length >= 1 && length <= 16;
    if (!fieldsHold) return false;
    tag_ = ReadLittle<std::uint32_t>(data, 4);
    residue_ = ReadLittle<std::uint32_t>(data, 8);
    const bool toHost = (data[12] & std::byte{0x80}) != std::byte{0};
    ScsiAnswer answer = targets_[lun].Execute(data.subspan(15, length));
    status_ = answer.status == ScsiStatus::Good ? kPassed : kFailed;
    pending_ = std::move(answer.data);
    if (!pending_.empty() && (residue_ == 0 || !toHost)) {
      pending_.clear();
      status_ = kPhaseError;  // 6.7, cases 2 and 10: the host expected something else
    }
    if (residue_ == 0) {
      phase_ = Phase::Status;
      return true;
    }
    phase_ = toHost ? Phase::DataIn : Phase::DataOut;
    return true;
  }

  UsbResult SendData(std::span<std::byte> data, std::size_t& done) {
    if (data.size() > residue_) data = data.first(residue_);
    if (pending_.empty()) {
      // 6.7.2: nothing (more) to send though the host expects it: the pipe halts, the status tells the residue.
      phase_ = Phase::Status;
      inHalted_ = true;
      return UsbResult::Stall;
    }
    done = Deliver(pending_, data);
    residue_ -= static_cast<std::uint32_t>(done);
    if (residue_ == 0 && !pending_.empty()) status_ = kPhaseError;
    // A short transfer ends the data stage.
    if (residue_ == 0 || pending_.empty()) phase_ = Phase::Status;
    return UsbResult::Done;
  }

  UsbResult SendStatus(std::span<std::byte> data, std::size_t& done) {
    std::byte wrapper[kStatusSize];
    std::memcpy(wrapper, &kStatusSignature, 4);
    std::memcpy(wrapper + 4, &tag_, 4);
    std::memcpy(wrapper + 8, &residue_, 4);
    wrapper[12] = std::byte{status_};
    done = std::min(data.size(), kStatusSize);
    std::copy_n(wrapper, done, data.begin());
    phase_ = Phase::Command;
    return UsbResult::Done;
  }

  std::vector<ScsiTarget> targets_;
  Phase phase_ = Phase::Command;
  std::vector<std::byte> pending_;
  std::uint32_t tag_ = 0;
  std::uint32_t residue_ = 0;
  std::uint8_t status_ = kPassed;
  bool inHalted_ = false;
  bool outHalted_ = false;
};

class CbiTransport final : public UsbTransportModel {
 public:
  CbiTransport(const std::vector<Drive>& units, bool interrupt) : targets_(MakeTargets(units)), interrupt_(interrupt) {}

  // CBI 1.1, 2.2: the command comes as a class request "accept device-specific command"; LUN in bits 7:5 of byte 1.
  UsbResult Control(const UsbSetup& setup, std::span<std::byte> data, std::size_t& done) override {
    done = 0;
    if (setup.requestType != 0x21 || setup.request != 0x00 || data.empty()) return UsbResult::Stall;
    if (IsReset(data)) {
      pending_.clear();
      statusDue_ = interrupt_;
      statusCode_ = 0;
      done = data.size();
      return UsbResult::Done;
    }
    const std::size_t lun = data.size() > 1 ? std::to_integer<std::size_t>(data[1]) >> 5 : 0;
    if (lun >= targets_.size()) return UsbResult::Stall;
    ScsiAnswer answer = targets_[lun].Execute(data);
    pending_ = std::move(answer.data);
    failed_ = answer.status != ScsiStatus::Good;
    statusCode_ = failed_ ? 1 : 0;
    statusDue_ = interrupt_;
    done = data.size();
    // Without a completion interrupt a failed command is refused on the control endpoint itself.
    return failed_ && !interrupt_ ? UsbResult::Stall : UsbResult::Done;
  }

  UsbResult BulkOut(std::span<const std::byte>, std::size_t& done) override {
    done = 0;
    return UsbResult::Stall;
  }

  UsbResult BulkIn(std::span<std::byte> data, std::size_t& done) override {
    done = Deliver(pending_, data);
    if (done != 0) return UsbResult::Done;
    return failed_ ? UsbResult::Stall : UsbResult::Silence;
  }

  // 3.4.3.1: two bytes; for the SCSI command set the second one tells pass, fail or phase error.
  UsbResult Interrupt(std::span<std::byte> data, std::size_t& done) override {
    done = 0;
    if (!statusDue_ || data.size() < 2) return UsbResult::Silence;
    statusDue_ = false;
    data[0] = std::byte{0};
    data[1] = std::byte{statusCode_};
    done = 2;
    return UsbResult::Done;
  }

  void ClearHalt(std::uint8_t) override { failed_ = false; }

 private:
  // 2.2: SEND DIAGNOSTIC with byte 1 = 4 and the rest 0xFF resets the device.
  static bool IsReset(std::span<const std::byte> command) {
    return command.size() >= 3 && command[0] == std::byte{0x1D} && command[1] == std::byte{4} &&
           command[2] == std::byte{0xFF};
  }

  std::vector<ScsiTarget> targets_;
  bool interrupt_;
  std::vector<std::byte> pending_;
  bool failed_ = false;
  bool statusDue_ = false;
  std::uint8_t statusCode_ = 0;
};

}  // namespace

std::unique_ptr<UsbTransportModel> MakeBulkOnlyTransport(const std::vector<Drive>& units) {
  return std::make_unique<BulkOnlyTransport>(units);
}

std::unique_ptr<UsbTransportModel> MakeCbiTransport(const std::vector<Drive>& units, bool interrupt) {
  return std::make_unique<CbiTransport>(units, interrupt);
}

}  // namespace sim

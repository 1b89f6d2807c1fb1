#include "sim/firmware/port_bus.h"

#include <algorithm>

#include "sim/firmware/clock.h"
#include "sim/firmware/counters.h"

namespace sim {
namespace {

constexpr std::uint16_t kLineControl = 3;
constexpr std::uint16_t kLineStatus = 5;
constexpr std::uint8_t kDivisorLatch = 0x80;
constexpr std::uint8_t kTransmitterEmpty = 0x60;

std::uint32_t AllOnes(unsigned width) { return width >= 4 ? 0xFFFFFFFF : (1U << (8 * width)) - 1; }

}  // namespace

void DebugLog::EndLine() {
  const std::string line = text_.substr(lineStart_, text_.size() - 1 - lineStart_);
  lineStart_ = text_.size();  // the handler may make the driver write on
  if (handler_) {
    handler_(line);
  }
}

std::vector<std::string> DebugLog::Lines() const {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end = text_.find('\n'); end != std::string::npos; end = text_.find('\n', start)) {
    lines.push_back(text_.substr(start, end - start));
    start = end + 1;
  }
  if (start < text_.size()) {
    lines.push_back(text_.substr(start));
  }
  return lines;
}

PortBus::PortBus(Clock& clock, Counters& counters) : clock_(clock), counters_(counters), ownerOf_(0x10000) {
  ClaimSerialPort();
  Claim(
      kPmTimerPort, kPmTimerPort + 3, [this](std::uint16_t, unsigned) { return clock_.ReadPmTimer(); },
      [](std::uint16_t, std::uint32_t, unsigned) {});
}

void PortBus::ClaimSerialPort() {
  const auto read = [this](std::uint16_t port, unsigned) -> std::uint32_t {
    switch (port - kSerialPort) {
      case kLineControl:
        return lineControl_;
      case kLineStatus:
        return kTransmitterEmpty;
      default:
        return 0;
    }
  };
  const auto write = [this](std::uint16_t port, std::uint32_t value, unsigned) {
    if (port - kSerialPort == kLineControl) {
      lineControl_ = static_cast<std::uint8_t>(value);
    } else if (port == kSerialPort && (lineControl_ & kDivisorLatch) == 0) {
      log_.Put(static_cast<char>(value));
    }
  };
  Claim(kSerialPort, kSerialPort + 7, read, write);
  serialOwner_ = ownerOf_[kSerialPort];
}

void PortBus::Claim(std::uint16_t first, std::uint16_t last, Read read, Write write) {
  owners_.push_back({std::move(read), std::move(write)});
  std::fill(ownerOf_.begin() + first, ownerOf_.begin() + last + 1, static_cast<std::uint16_t>(owners_.size()));
}

const PortBus::Owner* PortBus::Find(std::uint16_t port) const {
  const std::uint16_t owner = ownerOf_[port];
  return owner == 0 ? nullptr : &owners_[owner - 1];
}

void PortBus::Pass(std::uint16_t port) {
  if (port >= kSerialPort && port < kSerialPort + 8) {
    clock_.Step();
    return;
  }
  if (port != kPmTimerPort) {
    clock_.EndRows();
  }
  clock_.Advance(kPortAccessTime, Passing::Port);
}

std::uint32_t PortBus::In(std::uint16_t port, unsigned width) {
  Pass(port);
  const Owner* owner = Find(port);
  if (owner == nullptr) {
    counters_.Add("port.unclaimed.read");
    return AllOnes(width);
  }
  return owner->read ? owner->read(port, width) & AllOnes(width) : AllOnes(width);
}

void PortBus::Out(std::uint16_t port, std::uint32_t value, unsigned width) {
  Pass(port);
  const Owner* owner = Find(port);
  if (owner == nullptr) {
    counters_.Add("port.unclaimed.write");
    return;
  }
  if (owner->write) {
    owner->write(port, value & AllOnes(width), width);
  }
}

void PortBus::OutString(std::uint16_t port, std::span<const std::uint8_t> bytes) {
  const bool serial = port == kSerialPort && ownerOf_[port] == serialOwner_;
  for (const std::uint8_t byte : bytes) {
    // The log is most of what an image writes: its bytes take the short way to it.
    if (serial && (lineControl_ & kDivisorLatch) == 0) {
      clock_.Step();
      log_.Put(static_cast<char>(byte));
    } else {
      Out(port, byte, 1);
    }
  }
}

}  // namespace sim

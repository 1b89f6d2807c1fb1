#include "sim/firmware/port_bus.h"

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

void DebugLog::Put(char byte) {
  if (byte == '\r') {
    return;
  }
  text_.push_back(byte);
  if (byte == '\n') {
    const std::string line = text_.substr(lineStart_, text_.size() - 1 - lineStart_);
    lineStart_ = text_.size();  // the handler may make the driver write on
    if (handler_) {
      handler_(line);
    }
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

PortBus::PortBus(Clock& clock, Counters& counters) : clock_(clock), counters_(counters) {
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
}

void PortBus::Claim(std::uint16_t first, std::uint16_t last, Read read, Write write) {
  owners_.push_back({first, last, std::move(read), std::move(write)});
}

const PortBus::Owner* PortBus::Find(std::uint16_t port) const {
  for (auto owner = owners_.rbegin(); owner != owners_.rend(); ++owner) {
    if (port >= owner->first && port <= owner->last) {
      return &*owner;
    }
  }
  return nullptr;
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

}  // namespace sim

// The I/O port space. Devices claim ports with handlers; the driver's own port routines (host programs) and the
// trapped port instructions of an image both arrive here.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace sim {

class Clock;
class Counters;

// The text that the driver writes to the first serial port, collected and cut into lines.
class DebugLog {
 public:
  using LineHandler = std::function<void(const std::string& line)>;

  // A byte as it left the port. Carriage returns are dropped; a line feed ends the line.
  void Put(char byte) {
    if (byte == '\r') {
      return;
    }
    text_.push_back(byte);
    if (byte == '\n') {
      EndLine();
    }
  }
  // Called for every whole line, without its end.
  void SetLineHandler(LineHandler handler) { handler_ = std::move(handler); }
  // Everything written, lines ended by "\n"; the last line may be unfinished.
  const std::string& Text() const { return text_; }
  std::vector<std::string> Lines() const;
  bool Contains(std::string_view part) const { return text_.find(part) != std::string::npos; }

 private:
  void EndLine();

  std::string text_;
  std::size_t lineStart_ = 0;
  LineHandler handler_;
};

class PortBus {
 public:
  using Read = std::function<std::uint32_t(std::uint16_t port, unsigned width)>;  // width 1, 2 or 4 bytes
  using Write = std::function<void(std::uint16_t port, std::uint32_t value, unsigned width)>;

  static constexpr std::uint16_t kSerialPort = 0x3F8;
  static constexpr std::uint16_t kPmTimerPort = 0x408;

  // The bus with the 16550 at 0x3F8 to 0x3FF (always ready to send) and the PM timer at 0x408 on it.
  PortBus(Clock& clock, Counters& counters);

  // Ports first to last answer through the handlers; a later claim covers an earlier one. An access of more than one
  // byte goes whole to the owner of its first port. Handlers may be empty: reads give all ones, writes vanish.
  void Claim(std::uint16_t first, std::uint16_t last, Read read, Write write);

  // Each access lets kPortAccessTime pass, serial output apart; PM timer reads in a row cost more and more
  // (Clock::ReadPmTimer). Unclaimed reads give all ones; unclaimed accesses are counted as "port.unclaimed.read" and
  // "port.unclaimed.write".
  std::uint32_t In(std::uint16_t port, unsigned width);
  void Out(std::uint16_t port, std::uint32_t value, unsigned width);
  // Byte by byte, as Out would write them.
  void OutString(std::uint16_t port, std::span<const std::uint8_t> bytes);

  DebugLog& Log() { return log_; }

 private:
  struct Owner {
    Read read;
    Write write;
  };
  // What an access costs: time, or at the serial port a step.
  void Pass(std::uint16_t port);
  const Owner* Find(std::uint16_t port) const;
  void ClaimSerialPort();

  Clock& clock_;
  Counters& counters_;
  std::vector<Owner> owners_;
  std::vector<std::uint16_t> ownerOf_;  // by port: 1 more than the index of its owner; 0 for none
  std::uint16_t serialOwner_ = 0;       // the 16550, as ownerOf_ names it
  DebugLog log_;
  std::uint8_t lineControl_ = 0;
};

}  // namespace sim

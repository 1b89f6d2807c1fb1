// The memory of a network controller behind its first base address register: which port the function drives, and the
// registers through which its EEPROM or NVM answers.
#pragma once

#include <array>

#include "sim/bus/device_tree.h"

namespace sim {

enum class NvmFamily { I350, X540, X710 };

// What the controller's memory holds, and how it behaves.
struct AdapterNvm {
  NvmFamily family = NvmFamily::I350;
  std::uint8_t port = 0;  // 0 to 3
  std::array<std::uint8_t, 6> mac{};
  bool blank = false;             // the address's words read as 0xFFFF
  bool done = true;               // false: no command is ever done
  std::uint32_t doneAfter = 0;    // looks at the control register that still find a command under way
  std::uint16_t pointer = 0x100;  // X540, X710: the word that the pointer to the address has
  std::uint16_t relative = 0x10;  // X710: the section's own word
};

// Large enough for the registers of all families.
inline constexpr std::uint64_t kAdapterMemorySize = 0x100000;

class AdapterRegisters final : public BarModel {
 public:
  explicit AdapterRegisters(const AdapterNvm& nvm) : nvm_(nvm) {}
  std::uint64_t Read(std::uint64_t offset, unsigned width) override;
  // A 32-bit write of the control register with its start bit begins a command; other writes are lost.
  void Write(std::uint64_t offset, unsigned width, std::uint64_t value) override;

 private:
  [[nodiscard]] std::uint32_t Register(std::uint64_t offset) const;
  [[nodiscard]] std::uint16_t WordAt(std::uint32_t word) const;
  [[nodiscard]] bool Done() const { return started_ && nvm_.done && looks_ > nvm_.doneAfter; }

  AdapterNvm nvm_;
  bool started_ = false;
  std::uint32_t word_ = 0;   // of the last command
  std::uint32_t looks_ = 0;  // at the control register since
};

// The function's first base address register with such memory behind it.
[[nodiscard]] PciBar AdapterMemory(const AdapterNvm& nvm);

}  // namespace sim

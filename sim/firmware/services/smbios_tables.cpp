// A structure is a formatted area, whose texts are numbers, and the texts behind it. Handles count from 0.
#include "sim/firmware/services/smbios_tables.h"

#include <fmt/format.h>

#include <cstring>
#include <numeric>

#include "sim/firmware/services/table_memory.h"

namespace sim {
namespace {

constexpr const char* kManufacturer = "Simulated server";
constexpr std::uint16_t kNoHandle = 0xFFFE;  // "not provided" of error information

class Structures {
 public:
  // Begins a structure; the last one is closed. The length is that of the formatted area.
  std::uint16_t Begin(std::uint8_t type, std::size_t length) {
    Close();
    start_ = bytes_.size();
    bytes_.resize(start_ + length);
    bytes_[start_] = type;
    bytes_[start_ + 1] = static_cast<std::uint8_t>(length);
    Put<std::uint16_t>(2, handle_);
    return handle_++;
  }
  template <typename Value>
  void Put(std::size_t at, Value value) {
    std::memcpy(bytes_.data() + start_ + at, &value, sizeof(value));
  }
  void Text(std::size_t at, const std::string& text) {
    if (text.empty()) {
      return;  // number 0: no text
    }
    texts_.push_back(text);
    Put(at, static_cast<std::uint8_t>(texts_.size()));
  }
  std::vector<std::uint8_t> Finish() {
    Begin(127, 4);
    Close();
    return std::move(bytes_);
  }

 private:
  void Close() {
    if (handle_ == 0) {
      return;
    }
    for (const std::string& text : texts_) {
      bytes_.insert(bytes_.end(), text.begin(), text.end());
      bytes_.push_back(0);
    }
    bytes_.insert(bytes_.end(), texts_.empty() ? 2 : 1, 0);
    texts_.clear();
  }

  std::vector<std::uint8_t> bytes_;
  std::vector<std::string> texts_;
  std::size_t start_ = 0;
  std::uint16_t handle_ = 0;
};

// Section 7.1: no legacy services, UEFI.
void AddFirmware(Structures& out) {
  out.Begin(0, 0x1A);
  out.Text(4, kManufacturer);
  out.Text(5, "1.0");
  out.Text(8, "01/01/2026");
  out.Put<std::uint8_t>(9, 0xFF);                  // 16 MiB
  out.Put<std::uint64_t>(0x0A, 1 << 7 | 1 << 16);  // PCI; boots from what is chosen
  out.Put<std::uint8_t>(0x12, 1);                  // ACPI
  out.Put<std::uint8_t>(0x13, 1 << 3);             // UEFI
  out.Put<std::uint8_t>(0x14, 1);
  out.Put<std::uint16_t>(0x16, 0xFFFF);
  out.Put<std::uint16_t>(0x18, 16);
}

void AddSystem(Structures& out, const SmbiosFacts& facts) {
  out.Begin(1, 0x1B);
  out.Text(4, kManufacturer);
  out.Text(5, facts.product);
  out.Put<std::uint8_t>(0x18, 6);  // woken by the power switch
  const std::uint16_t chassis = out.Begin(3, 0x16);
  out.Text(4, kManufacturer);
  out.Put<std::uint8_t>(5, 0x17);  // rack mount
  for (const std::size_t state : {9, 10, 11, 12}) {
    out.Put<std::uint8_t>(state, 3);  // safe
  }
  out.Begin(2, 0x0F);
  out.Text(4, kManufacturer);
  out.Text(5, facts.product);
  out.Put<std::uint8_t>(9, 1);  // hosts the system
  out.Put(0x0B, chassis);
  out.Put<std::uint8_t>(0x0D, 0x0A);  // a motherboard
}

void AddProcessors(Structures& out, const SmbiosFacts& facts) {
  for (unsigned i = 0; i < facts.sockets; ++i) {
    out.Begin(4, 0x30);
    out.Text(4, fmt::format("CPU{}", i));
    out.Put<std::uint8_t>(5, 3);         // a central processor
    out.Put<std::uint8_t>(6, 0xFE);      // its family stands in the wide field
    out.Put<std::uint16_t>(0x28, 0xB3);  // Intel Xeon
    out.Text(7, kManufacturer);
    out.Put<std::uint16_t>(0x14, 2000);  // MHz
    out.Put<std::uint16_t>(0x16, 2000);
    out.Put<std::uint8_t>(0x18, 0x41);  // there and enabled
    out.Put<std::uint8_t>(0x19, 2);     // upgrade unknown
    for (const std::size_t cache : {0x1A, 0x1C, 0x1E}) {
      out.Put<std::uint16_t>(cache, 0xFFFF);
    }
    for (const std::size_t count : {0x23, 0x24, 0x25}) {
      out.Put<std::uint8_t>(count, 1);
    }
    out.Put<std::uint16_t>(0x26, 1 << 2);  // 64 bits
    for (const std::size_t count : {0x2A, 0x2C, 0x2E}) {
      out.Put<std::uint16_t>(count, 1);
    }
  }
}

void AddSlots(Structures& out, const SmbiosFacts& facts) {
  for (const unsigned slot : facts.slots) {
    out.Begin(9, 0x11);
    out.Text(4, fmt::format("Slot {}", slot));
    out.Put<std::uint8_t>(5, 0xA5);  // PCI Express
    out.Put<std::uint8_t>(6, 2);     // width unknown
    out.Put<std::uint8_t>(7, 2);     // usage unknown
    out.Put<std::uint8_t>(8, 2);     // length unknown
    out.Put(9, static_cast<std::uint16_t>(slot));
    out.Put<std::uint8_t>(0x0B, 1);
    out.Put<std::uint16_t>(0x0D, 0xFFFF);  // no bus address
    out.Put<std::uint8_t>(0x0F, 0xFF);
    out.Put<std::uint8_t>(0x10, 0xFF);
  }
}

void AddMemory(Structures& out) {
  std::uint64_t memory = 0;
  for (const PageAllocator::Region& region : PageAllocator::kRegions) {
    memory += region.size;
  }
  const std::uint16_t array = out.Begin(16, 0x17);
  out.Put<std::uint8_t>(4, 3);  // on the board
  out.Put<std::uint8_t>(5, 3);  // system memory
  out.Put<std::uint8_t>(6, 6);  // multi-bit ECC
  out.Put(7, static_cast<std::uint32_t>(memory / 1024));
  out.Put(0x0B, kNoHandle);
  out.Put<std::uint16_t>(0x0D, 1);
  out.Begin(17, 0x28);
  out.Put(4, array);
  out.Put(6, kNoHandle);
  out.Put<std::uint16_t>(8, 72);
  out.Put<std::uint16_t>(0x0A, 64);
  out.Put(0x0C, static_cast<std::uint16_t>(memory >> 20));
  out.Put<std::uint8_t>(0x0E, 9);  // DIMM
  out.Text(0x10, "DIMM0");
  out.Put<std::uint8_t>(0x12, 0x1A);      // DDR4
  out.Put<std::uint16_t>(0x13, 1 << 13);  // registered
  out.Put<std::uint16_t>(0x15, 2400);
  out.Text(0x17, kManufacturer);
  for (const PageAllocator::Region& region : PageAllocator::kRegions) {
    out.Begin(19, 0x1F);
    out.Put(4, static_cast<std::uint32_t>(region.base / 1024));
    out.Put(8, static_cast<std::uint32_t>((region.base + region.size) / 1024 - 1));
    out.Put(0x0C, array);
    out.Put<std::uint8_t>(0x0E, 1);
  }
}

}  // namespace

std::vector<std::uint8_t> SmbiosStructures(const SmbiosFacts& facts) {
  Structures out;
  AddFirmware(out);
  AddSystem(out, facts);
  AddProcessors(out, facts);
  AddSlots(out, facts);
  AddMemory(out);
  out.Begin(32, 0x0B);  // no error at boot
  return out.Finish();
}

EFI_STATUS InstallSmbiosTables(Machine& machine, const SmbiosFacts& facts) {
  constexpr std::size_t kEntrySize = 24;
  constexpr std::size_t kStructuresAt = 32;
  const std::vector<std::uint8_t> structures = SmbiosStructures(facts);
  EFI_PHYSICAL_ADDRESS base = 0;
  const EFI_STATUS status =
      AllocateTableMemory(machine, EfiRuntimeServicesData, kStructuresAt + structures.size(), base);
  if (EFI_ERROR(status)) {
    return status;
  }
  // Section 5.2.2.
  std::uint8_t entry[kEntrySize] = {'_', 'S', 'M', '3', '_', 0, kEntrySize, 3, 4, 0, 1};
  const auto size = static_cast<std::uint32_t>(structures.size());
  const std::uint64_t address = base + kStructuresAt;
  std::memcpy(entry + 0x0C, &size, sizeof(size));
  std::memcpy(entry + 0x10, &address, sizeof(address));
  entry[5] = static_cast<std::uint8_t>(-std::accumulate(std::begin(entry), std::end(entry), 0));
  std::memcpy(reinterpret_cast<void*>(base), entry, kEntrySize);
  std::memcpy(reinterpret_cast<void*>(address), structures.data(), structures.size());
  return machine.InstallConfigurationTable(gEfiSmbios3TableGuid, reinterpret_cast<void*>(base));
}

}  // namespace sim

// Each table is laid out at its own place in one block, checksums last.
#include "sim/firmware/services/acpi_tables.h"

#include <cstring>
#include <numeric>
#include <vector>

#include "sim/firmware/services/table_memory.h"

namespace sim {
namespace {

constexpr std::size_t kHeaderSize = 36;
constexpr std::size_t kAlignment = 64;  // the FACS wants it (ACPI 6.4, 5.2.10)

// Bytes written at offsets, as the standard's tables give them.
class Table {
 public:
  explicit Table(std::size_t size) : bytes_(size) {}
  Table(const char* signature, std::uint8_t revision, std::size_t size) : bytes_(size) {
    Text(0, signature, 4);
    Put<std::uint32_t>(4, static_cast<std::uint32_t>(size));
    Put<std::uint8_t>(8, revision);
    Text(10, "SIMSRV", 6);
    Text(16, "SERVER  ", 8);
    Put<std::uint32_t>(24, 1);
    Text(28, "SIM ", 4);
    Put<std::uint32_t>(32, 1);
  }

  template <typename Value>
  void Put(std::size_t at, Value value) {
    std::memcpy(bytes_.data() + at, &value, sizeof(value));
  }
  void Text(std::size_t at, const char* text, std::size_t length) { std::memcpy(bytes_.data() + at, text, length); }
  void Add(std::initializer_list<std::uint8_t> more) { bytes_.insert(bytes_.end(), more); }
  void SetLength() { Put<std::uint32_t>(4, static_cast<std::uint32_t>(bytes_.size())); }
  // Makes the sum of the first bytes zero.
  void Seal(std::size_t checksumAt, std::size_t count) {
    bytes_[checksumAt] = 0;
    bytes_[checksumAt] = static_cast<std::uint8_t>(-std::accumulate(bytes_.begin(), bytes_.begin() + count, 0));
  }
  std::vector<std::uint8_t>& Bytes() { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

// A generic address of the I/O space (ACPI 6.4, 5.2.3.2): `width` bits.
void PutPort(Table& table, std::size_t at, std::uint16_t port, std::uint8_t width) {
  table.Put<std::uint8_t>(at, 1);
  table.Put<std::uint8_t>(at + 1, width);
  table.Put<std::uint8_t>(at + 3, width / 16 + 1);  // access size: 2 for 16 bits, 3 for 32
  table.Put<std::uint64_t>(at + 4, port);
}

Table FixedDescription(std::uint64_t facs, std::uint64_t dsdt) {
  constexpr std::uint16_t kBlock = PortBus::kPmTimerPort - 8;  // event, control and timer registers lie together
  Table table("FACP", 6, 276);
  table.Put(36, static_cast<std::uint32_t>(facs));
  table.Put(40, static_cast<std::uint32_t>(dsdt));
  table.Put<std::uint8_t>(45, 4);  // an enterprise server
  table.Put<std::uint16_t>(46, 9);
  table.Put<std::uint32_t>(56, kBlock);
  table.Put<std::uint32_t>(64, kBlock + 4);
  table.Put<std::uint32_t>(76, PortBus::kPmTimerPort);
  table.Put<std::uint8_t>(88, 4);
  table.Put<std::uint8_t>(89, 2);
  table.Put<std::uint8_t>(91, 4);
  table.Put<std::uint16_t>(96, 0xFFF);                          // no C2
  table.Put<std::uint16_t>(98, 0xFFFF);                         // no C3
  table.Put<std::uint32_t>(112, 1 | 1 << 2 | 1 << 4 | 1 << 5);  // WBINVD works, C1 is there, no fixed buttons
  table.Put<std::uint64_t>(140, dsdt);
  PutPort(table, 148, kBlock, 32);
  PutPort(table, 172, kBlock + 4, 16);
  PutPort(table, 208, PortBus::kPmTimerPort, 32);
  return table;
}

Table Processors(unsigned count) {
  Table table("APIC", 5, kHeaderSize + 8);
  table.Put<std::uint32_t>(36, 0xFEE00000);
  table.Put<std::uint32_t>(40, 1);  // there are 8259s too
  for (unsigned i = 0; i < count; ++i) {
    table.Add({0, 8, static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i), 1, 0, 0, 0});
  }
  table.Add({1, 12, static_cast<std::uint8_t>(count), 0, 0, 0, 0xC0, 0xFE, 0, 0, 0, 0});  // the I/O APIC
  table.Add({2, 10, 0, 0, 2, 0, 0, 0, 0, 0});                                             // the timer's interrupt
  table.SetLength();
  return table;
}

// Tables one behind the other at addresses that are known before they are copied there.
class Block {
 public:
  explicit Block(std::uint64_t base) : base_(base) {}
  std::uint64_t Add(std::vector<std::uint8_t> table) {
    bytes_.resize((bytes_.size() + kAlignment - 1) / kAlignment * kAlignment);
    const std::uint64_t at = base_ + bytes_.size();
    bytes_.insert(bytes_.end(), table.begin(), table.end());
    return at;
  }
  std::uint64_t Add(Table table) {
    table.Seal(9, table.Bytes().size());
    return Add(std::move(table.Bytes()));
  }
  const std::vector<std::uint8_t>& Bytes() const { return bytes_; }

 private:
  std::uint64_t base_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace

EFI_STATUS InstallAcpiTables(Machine& machine, unsigned processors) {
  constexpr std::size_t kRoom = 4096;
  constexpr unsigned kMaxProcessors = 64;
  EFI_PHYSICAL_ADDRESS base = 0;
  if (const EFI_STATUS status = AllocateTableMemory(machine, EfiACPIReclaimMemory, kRoom, base); EFI_ERROR(status)) {
    return status;
  }
  Block block(base);
  Table facs(64);
  facs.Text(0, "FACS", 4);
  facs.Put<std::uint32_t>(4, 64);
  facs.Put<std::uint8_t>(32, 2);
  const std::uint64_t facsAt = block.Add(std::move(facs.Bytes()));
  const std::uint64_t dsdtAt = block.Add(Table("DSDT", 2, kHeaderSize));
  const std::uint64_t fadtAt = block.Add(FixedDescription(facsAt, dsdtAt));
  const std::uint64_t madtAt = block.Add(Processors(std::min(std::max(processors, 1U), kMaxProcessors)));
  Table xsdt("XSDT", 1, kHeaderSize + 16);
  xsdt.Put(kHeaderSize, fadtAt);
  xsdt.Put(kHeaderSize + 8, madtAt);
  const std::uint64_t xsdtAt = block.Add(std::move(xsdt));
  Table rsdt("RSDT", 1, kHeaderSize + 8);  // some loaders know no other
  rsdt.Put(kHeaderSize, static_cast<std::uint32_t>(fadtAt));
  rsdt.Put(kHeaderSize + 4, static_cast<std::uint32_t>(madtAt));
  const std::uint64_t rsdtAt = block.Add(std::move(rsdt));
  Table rsdp(36);
  rsdp.Text(0, "RSD PTR ", 8);
  rsdp.Text(9, "SIMSRV", 6);
  rsdp.Put<std::uint8_t>(15, 2);
  rsdp.Put(16, static_cast<std::uint32_t>(rsdtAt));
  rsdp.Put<std::uint32_t>(20, 36);
  rsdp.Put(24, xsdtAt);
  rsdp.Seal(8, 20);
  rsdp.Seal(32, 36);
  const std::uint64_t rsdpAt = block.Add(std::move(rsdp.Bytes()));
  std::memcpy(reinterpret_cast<void*>(base), block.Bytes().data(), block.Bytes().size());
  return machine.InstallConfigurationTable(gEfiAcpi20TableGuid, reinterpret_cast<void*>(rsdpAt));
}

}  // namespace sim

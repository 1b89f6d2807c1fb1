// The tables that describe the server to an operating system, walked as an operating system does: from the
// configuration table on, every length and checksum looked at.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <numeric>

#include "sim/firmware/services/acpi_tables.h"
#include "sim/firmware/services/smbios_tables.h"

namespace sim {
namespace {

template <typename Value>
Value At(std::uint64_t address) {
  Value value;
  std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof(value));
  return value;
}

std::uint8_t Sum(std::uint64_t address, std::size_t size) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(address);
  return static_cast<std::uint8_t>(std::accumulate(bytes, bytes + size, 0));
}

std::string Signature(std::uint64_t address, std::size_t size = 4) {
  return {reinterpret_cast<const char*>(address), size};
}

TEST(SystemTables, AcpiIsFoundFromTheRootPointerOn) {
  Machine machine;
  ASSERT_EQ(InstallAcpiTables(machine, 2), EFI_SUCCESS);
  const auto rsdp = reinterpret_cast<std::uint64_t>(machine.FindConfigurationTable(gEfiAcpi20TableGuid));
  EXPECT_EQ(Signature(rsdp, 8), "RSD PTR ");
  EXPECT_EQ(Sum(rsdp, 20), 0);
  EXPECT_EQ(Sum(rsdp, At<std::uint32_t>(rsdp + 20)), 0);
  const auto xsdt = At<std::uint64_t>(rsdp + 24);
  const auto rsdt = At<std::uint32_t>(rsdp + 16);
  std::map<std::string, std::uint64_t> tables{{"XSDT", xsdt}, {"RSDT", rsdt}};
  for (std::uint64_t at = xsdt + 36; at < xsdt + At<std::uint32_t>(xsdt + 4); at += 8) {
    tables[Signature(At<std::uint64_t>(at))] = At<std::uint64_t>(at);
  }
  ASSERT_TRUE(tables.contains("FACP"));
  ASSERT_TRUE(tables.contains("APIC"));
  EXPECT_EQ(At<std::uint32_t>(rsdt + 36), tables["FACP"]);
  const auto fadt = tables["FACP"];
  tables["DSDT"] = At<std::uint32_t>(fadt + 40);
  EXPECT_EQ(At<std::uint64_t>(fadt + 140), tables["DSDT"]);
  for (const auto& [name, table] : tables) {
    EXPECT_EQ(Signature(table), name);
    EXPECT_EQ(Sum(table, At<std::uint32_t>(table + 4)), 0) << name;
  }
  const auto facs = At<std::uint32_t>(fadt + 36);
  EXPECT_EQ(Signature(facs), "FACS");
  EXPECT_EQ(facs % 64, 0u);
  EXPECT_EQ(At<std::uint32_t>(fadt + 76), 0x408u) << "the PM timer that the server has";

  unsigned processors = 0;
  const auto madt = tables["APIC"];
  const std::uint64_t end = madt + At<std::uint32_t>(madt + 4);
  std::uint64_t entry = madt + 44;
  for (; entry < end; entry += At<std::uint8_t>(entry + 1)) {
    ASSERT_NE(At<std::uint8_t>(entry + 1), 0);
    processors += At<std::uint8_t>(entry) == 0 ? 1 : 0;
  }
  EXPECT_EQ(entry, end);
  EXPECT_EQ(processors, 2u);
}

TEST(SystemTables, SmbiosStructuresFillTheirTable) {
  Machine machine;
  ASSERT_EQ(InstallSmbiosTables(machine, {.product = "rack", .sockets = 2, .slots = {1, 4}}), EFI_SUCCESS);
  const auto entry = reinterpret_cast<std::uint64_t>(machine.FindConfigurationTable(gEfiSmbios3TableGuid));
  EXPECT_EQ(Signature(entry, 5), "_SM3_");
  EXPECT_EQ(Sum(entry, At<std::uint8_t>(entry + 6)), 0);
  const auto table = At<std::uint64_t>(entry + 0x10);
  const std::uint64_t end = table + At<std::uint32_t>(entry + 0x0C);
  std::map<int, int> types;
  std::uint16_t handle = 0;
  std::uint64_t at = table;
  while (at < end) {
    ++types[At<std::uint8_t>(at)];
    EXPECT_EQ(At<std::uint16_t>(at + 2), handle++);
    ASSERT_GE(At<std::uint8_t>(at + 1), 4);
    at += At<std::uint8_t>(at + 1);
    while (at + 2 <= end && At<std::uint16_t>(at) != 0) {  // the texts end with two zeros
      ++at;
    }
    at += 2;
  }
  EXPECT_EQ(at, end);
  EXPECT_EQ(types, (std::map<int, int>{
                       {0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 2}, {9, 2}, {16, 1}, {17, 1}, {19, 3}, {32, 1}, {127, 1}}));
}

}  // namespace
}  // namespace sim

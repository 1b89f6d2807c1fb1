// Servers for whole boots, built in memory: disks with a FAT12 system partition that holds a loader, load options as
// an operating system writes them, and what the tests compare between two boots.
#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"
#include "sim/server/load_option_view.h"
#include "sim/server/server.h"
#include "sim/storage/disk_image.h"
#include "tests/sim_image/pe_builder.h"
#include "tests/sim_storage/image_builder.h"

namespace sim::test {

inline constexpr std::uint32_t kKept =
    EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;
inline constexpr EFI_GUID kSystemPartition{
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};

inline EFI_GUID PartitionGuid(std::uint32_t number) {
  return {0x0D15C0DE + number, 0, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 0x11}};
}

// A FAT12 volume of 128 sectors: the boot sector, two FATs of one sector, a root of one sector, then clusters of one
// sector: 2 is \EFI, 3 is \EFI\BOOT, and the file BOOTX64.EFI begins at 4.
inline Bytes FatVolume(std::span<const std::byte> loader) {
  constexpr std::size_t kSectors = 128, kFirstCluster = 4;
  Bytes volume(kSectors * 512);
  const auto text = [&](std::size_t offset, std::string_view value) {
    std::memcpy(volume.data() + offset, value.data(), value.size());
  };
  text(0, "\xEB\x3C\x90SIM FAT ");
  Put<std::uint16_t>(volume, 11, 512);
  Put<std::uint8_t>(volume, 13, 1);
  Put<std::uint16_t>(volume, 14, 1);
  Put<std::uint8_t>(volume, 16, 2);
  Put<std::uint16_t>(volume, 17, 16);
  Put<std::uint16_t>(volume, 19, kSectors);
  Put<std::uint8_t>(volume, 21, 0xF8);
  Put<std::uint16_t>(volume, 22, 1);
  Put<std::uint8_t>(volume, 38, 0x29);
  text(43, "SYSTEM     FAT12   ");
  Put<std::uint16_t>(volume, 510, 0xAA55);
  const auto cluster = [&](std::size_t number) { return (kFirstCluster + number - 2) * 512; };
  const auto entry = [&](std::size_t offset, std::string_view name, std::uint8_t attributes, std::uint16_t first,
                         std::uint32_t size) {
    text(offset, name);
    Put(volume, offset + 11, attributes);
    Put(volume, offset + 26, first);
    Put(volume, offset + 28, size);
  };
  entry(3 * 512, "EFI        ", 0x10, 2, 0);
  entry(cluster(2), ".          ", 0x10, 2, 0);
  entry(cluster(2) + 32, "..         ", 0x10, 0, 0);
  entry(cluster(2) + 64, "BOOT       ", 0x10, 3, 0);
  entry(cluster(3), ".          ", 0x10, 3, 0);
  entry(cluster(3) + 32, "..         ", 0x10, 2, 0);
  entry(cluster(3) + 64, "BOOTX64 EFI", 0x20, 4, static_cast<std::uint32_t>(loader.size()));
  const std::size_t clusters = (loader.size() + 511) / 512;
  std::copy(loader.begin(), loader.end(), volume.begin() + static_cast<std::ptrdiff_t>(cluster(4)));
  std::vector<std::uint16_t> fat(4 + clusters, 0xFFF);
  fat[0] = 0xFF8;
  for (std::size_t i = 0; i + 1 < clusters; ++i) fat[4 + i] = static_cast<std::uint16_t>(5 + i);
  for (std::size_t i = 0; i < fat.size(); ++i) {
    for (const std::size_t table : {std::size_t{512}, std::size_t{1024}}) {
      std::uint16_t pair = 0;
      std::memcpy(&pair, volume.data() + table + i * 3 / 2, 2);
      pair = static_cast<std::uint16_t>(i % 2 == 0 ? pair | fat[i] : pair | fat[i] << 4);
      std::memcpy(volume.data() + table + i * 3 / 2, &pair, 2);
    }
  }
  return volume;
}

// The bytes of a disk with one system partition, whose GUID tells its number.
inline Bytes SystemDiskBytes(std::uint32_t number) {
  constexpr std::size_t kBlocks = 34 + 128 + 34, kFirst = 34;
  Bytes disk = MakeGptDisk(kBlocks, 512, {{kSystemPartition, PartitionGuid(number), kFirst, kFirst + 127}});
  const PeBuilder loader = SmallImage();
  const Bytes volume = FatVolume(loader.Bytes());
  std::copy(volume.begin(), volume.end(), disk.begin() + kFirst * 512);
  return disk;
}

inline BlockSourcePtr SystemDisk(std::uint32_t number, std::uint64_t claimedSize = 0) {
  return MakeMemoryDisk(SystemDiskBytes(number), {.claimedSize = claimedSize});
}

// The start of a file path option on a disk of SystemDisk: the short form that operating systems write.
inline DevicePath PartitionPath(std::uint32_t number, std::u16string_view file) {
  DevicePath path;
  path.HardDriveGpt(1, 34, 128, PartitionGuid(number));
  path.File(file);
  return path;
}

inline Bytes LoadOptionBytes(std::u16string_view name, std::span<const std::byte> paths, std::uint32_t attributes = 1,
                             std::span<const std::byte> optional = {}) {
  Bytes bytes(6);
  Put<std::uint32_t>(bytes, 0, attributes);
  Put<std::uint16_t>(bytes, 4, static_cast<std::uint16_t>(paths.size()));
  for (const char16_t character : std::u16string(name) + u'\0') {
    bytes.push_back(static_cast<std::byte>(character & 0xFF));
    bytes.push_back(static_cast<std::byte>(character >> 8));
  }
  bytes.insert(bytes.end(), paths.begin(), paths.end());
  bytes.insert(bytes.end(), optional.begin(), optional.end());
  return bytes;
}

inline std::u16string OptionVariable(std::uint16_t number) {
  const std::string name = fmt::format("Boot{:04X}", number);
  return {name.begin(), name.end()};
}

inline void SetBootOrder(VariableStore& store, const std::vector<std::uint16_t>& order) {
  ASSERT_EQ(store.Set(u"BootOrder", gEfiGlobalVariableGuid, kKept, std::as_bytes(std::span(order))), EFI_SUCCESS);
}

inline std::vector<std::uint16_t> BootOrderOf(const VariableStore& store) {
  const Variable* variable = store.Find(u"BootOrder", gEfiGlobalVariableGuid);
  std::vector<std::uint16_t> order(variable == nullptr ? 0 : variable->data.size() / 2);
  if (!order.empty()) std::memcpy(order.data(), variable->data.data(), order.size() * 2);
  return order;
}

inline const Bytes* OptionBytes(const VariableStore& store, std::uint16_t number) {
  const Variable* variable = store.Find(OptionVariable(number), gEfiGlobalVariableGuid);
  return variable == nullptr ? nullptr : &variable->data;
}

// Every non-volatile variable as text and bytes, to be compared as a whole.
inline std::map<std::string, Bytes> NonVolatile(const VariableStore& store) {
  std::map<std::string, Bytes> result;
  for (const Variable& variable : store.All()) {
    if (!variable.NonVolatile()) continue;
    std::string name = fmt::format("{:08X} {} ", variable.guid.Data1, variable.attributes);
    for (const char16_t character : variable.name) name += static_cast<char>(character);
    result[name] = variable.data;
  }
  return result;
}

// A server with an empty tree of one root bridge. `extra` is further TOML, tables last.
inline ServerDescription PlainServer(const std::string& extra = "[bmc]\nfiles = false\n") {
  ServerDescription server = ParseServerDescription("name = \"test\"\n" + extra, "test", ".");
  server.devices.rootBridges.resize(1);
  return server;
}

// SATA disks 1 to `disks`, a USB stick (number 9), a DVD drive, a network port and, with a CSM, an entry of its own.
inline ServerDescription RackServer(unsigned disks, bool csm = true) {
  ServerDescription server = PlainServer();
  std::vector<SataDevice> sata;
  for (unsigned i = 0; i < disks; ++i) {
    sata.push_back(SataDisk(static_cast<std::uint16_t>(i), SystemDisk(i + 1), fmt::format("S{:04}", i + 1)));
  }
  server.devices.rootBridges[0].functions = {Isa(0x1F, 0), Display(2, 0, true), Ahci(0x1F, 2, std::move(sata)),
                                             UsbHost(0x1D, 0, {UsbStick(1, SystemDisk(9))}),
                                             Network(3, 0, {2, 0, 0, 0, 0, 1})};
  server.csm.present = csm;
  if (csm) {
    BbsEntryDescription entry;
    entry.bus = 2;
    entry.device = entry.function = 0;
    entry.classCode = 1;
    entry.subClass = 4;
    entry.description = "RAID LUN 0";
    entry.manufacturer = "SIM RAID";
    server.csm.entries = {entry};
  }
  return server;
}

// What no boot may show, however bad its input.
inline void ExpectClean(const BootReport& report, const std::string& what) {
  EXPECT_NE(report.outcome.end, BootEnd::Crashed) << what << ": " << report.outcome.text;
  EXPECT_NE(report.outcome.end, BootEnd::TimeLimit) << what << ": " << report.outcome.text;
  EXPECT_NE(report.outcome.end, BootEnd::WaitsForever) << what << ": " << report.outcome.text;
  EXPECT_TRUE(report.outcome.leaks.empty())
      << what << ": " << report.outcome.leaks.size() << " leaks, the first is allocation number "
      << report.outcome.leaks.front().block.serial << " of " << report.outcome.leaks.front().block.size << " bytes";
  EXPECT_TRUE(report.complaints.empty()) << what << ": " << report.complaints.front();
}

// Every number once, no two firmware options alike.
inline void ExpectSoundOrder(const BootReport& report, const std::string& what) {
  std::set<std::uint16_t> numbers;
  std::set<std::string> made;
  for (const OptionReport& option : report.options) {
    EXPECT_TRUE(numbers.insert(option.number).second) << what << ": number " << option.number << " twice";
    if (!option.readable || !option.firmware) continue;
    const std::string name(option.name.begin(), option.name.end());
    EXPECT_TRUE(made.insert(name + " " + option.path).second) << what << ": " << name << " " << option.path << " twice";
  }
}

}  // namespace sim::test

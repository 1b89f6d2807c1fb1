// Everything that the tables of class codes and vendors name, compared with a list that a reader of PCI Code and ID
// Assignment 1.15 can follow.
#include "bootopt/names/pci_tables.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace bds {
namespace {

constexpr unsigned kCodes = 0x100;

void AddInterfaces(std::string& names, UINT8 classCode, UINT8 subClass) {
  for (unsigned interface = 0; interface < kCodes; ++interface) {
    const std::string name = PciInterfaceName(classCode, subClass, static_cast<UINT8>(interface));
    if (name != kUndefinedName) {
      names += fmt::format("    {:02x} {}\n", interface, name);
    }
  }
}

void AddClass(std::string& names, UINT8 classCode) {
  if (const std::string name = PciClassName(classCode); name != kUndefinedName) {
    names += fmt::format("{:02x} {}\n", classCode, name);
  }
  for (unsigned subClass = 0; subClass < kCodes; ++subClass) {
    const auto code = static_cast<UINT8>(subClass);
    if (const std::string name = PciSubClassName(classCode, code); name != kUndefinedName) {
      names += fmt::format("  {:02x} {}\n", subClass, name);
    }
    AddInterfaces(names, classCode, code);
  }
}

TEST(PciTables, NameWhatTheListNames) {
  std::string names;
  for (unsigned code = 0; code < kCodes; ++code) {
    AddClass(names, static_cast<UINT8>(code));
  }
  for (unsigned vendor = 0; vendor <= 0xFFFF; ++vendor) {
    if (const char* name = PciVendorName(static_cast<UINT16>(vendor))) {
      names += fmt::format("vendor {:04x} {}\n", vendor, name);
    }
  }
  std::ifstream list(PCI_NAMES_LIST);
  EXPECT_EQ(names, std::string(std::istreambuf_iterator<char>(list), {}));
}

}  // namespace
}  // namespace bds

// A boot report made by hand: three options, the second one booted after the first failed to load.
#pragma once

#include <gtest/gtest.h>

#include "sim/cli/boot_result.h"
#include "sim/firmware/device_path_builder.h"

namespace sim {

inline BootReport HandMadeReport() {
  BootReport report;
  report.outcome.end = BootEnd::HandedOver;
  report.outcome.path = DevicePath().Acpi(0x0A0341D0).Pci(0x1F, 2).Sata(0).File(u"\\EFI\\debian\\shimx64.efi");
  report.outcome.time = 3 * kSecond + 250 * kMillisecond;
  report.bootCurrent = std::uint16_t{2};
  report.bootOrder = {1, 7, 2, 9};
  report.options = {
      {.number = 1, .inOrder = true, .attributes = 1, .name = u"old", .path = "HD(1,GPT)/\\EFI\\old.efi"},
      {.number = 7, .inOrder = true, .attributes = 0, .name = u"off", .path = "PciRoot(0x0)/Pci(0x2,0x0)"},
      {.number = 2,
       .inOrder = true,
       .attributes = 1,
       .name = u"debian",
       .path = "HD(1,GPT)/\\EFI\\debian\\shimx64.efi",
       .firmware = true},
      {.number = 9, .inOrder = true, .readable = false, .name = u"", .path = ""},
      {.number = 0x10,
       .attributes = 9,
       .name = u"hid\x1B[31mden\u202E",
       .path = "BBS(HD,disk)",
       .legacy = true,
       .firmware = true,
       .group = true},
  };
  report.attempts = {
      {.option = std::uint16_t{1},
       .what = "PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)/HD(1,GPT)/\\EFI\\OLD.efi",
       .status = EFI_NOT_FOUND,
       .reason = "no such file"},
      {.option = std::uint16_t{2},
       .what = "PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)/HD(1,GPT)/\\EFI\\debian\\shimx64.efi",
       .loaded = true,
       .reason = "",
       .ended = true},
  };
  report.steps = {{"SignalConnectDriversEvent", 100 * kMillisecond, kSecond},
                  {"RestoreBootorder", kSecond + 100 * kMillisecond, 2 * kSecond},
                  {"ReadBootOptionAndBoot", 3 * kSecond + 100 * kMillisecond, 50 * kMillisecond}};
  report.writes = {
      {VariableWrite::Kind::Create, u"Boot0002", gEfiGlobalVariableGuid, 7, 100, EFI_SUCCESS},
      {VariableWrite::Kind::Change, u"BootOrder", gEfiGlobalVariableGuid, 7, 8, EFI_SUCCESS},
      {VariableWrite::Kind::Create, u"BootCurrent", gEfiGlobalVariableGuid, 6, 2, EFI_SUCCESS},
      {VariableWrite::Kind::Delete, u"BootNext", gEfiGlobalVariableGuid, 0, 0, EFI_SUCCESS},
      {VariableWrite::Kind::Refused, u"LegacyDevOrder", gEfiGlobalVariableGuid, 3, 0, EFI_NOT_FOUND},
      {VariableWrite::Kind::Refused, u"Boot0003", gEfiGlobalVariableGuid, 7, 9000, EFI_OUT_OF_RESOURCES},
  };
  report.counts = {{"GetVariable", 12}, {"bmc.exchanges", 5}, {"bmc.bytes", 320}, {"ipmi.requests", 2}};
  report.complaints = {"a protocol closed twice"};
  report.poolPeak = 4096;
  report.poolInUse = 64;
  report.outcome.leaks.push_back({nullptr, {.size = 48, .serial = 17}});
  report.console = "Loading\n";
  return report;
}

inline BootReport ResetReport(EFI_RESET_TYPE type) {
  BootReport report;
  report.outcome.end = BootEnd::Reset;
  report.outcome.reset = type;
  report.outcome.time = kSecond;
  return report;
}

}  // namespace sim

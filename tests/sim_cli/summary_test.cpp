// The summary for people, word for word, and the facts that it is made from.
#include <gmock/gmock.h>

#include "sim/cli/options_text.h"
#include "tests/sim_cli/report_builder.h"

namespace sim {
namespace {

TEST(Summary, OfABootWithAResetIsWordForWord) {
  BootResult result;
  result.starts = {ResetReport(EfiResetWarm), HandMadeReport()};
  result.warmResets = 1;
  EXPECT_EQ(SummaryText("rack, boot 1 of 2", result, {}), R"(rack, boot 1 of 2
  Start 1 ended after 1.000 s with a warm reset, EFI_SUCCESS
  NVRAM: 0 written
  Boot options
    Boot0001  old                               active                        HD(1,GPT)/\EFI\old.efi
    Boot0007  off                               inactive                      PciRoot(0x0)/Pci(0x2,0x0)
  * Boot0002  debian                            active, firmware              HD(1,GPT)/\EFI\debian\shimx64.efi
    Boot0009                                    missing
    Boot0010  hid\x1B[31mden\u202E              hidden, legacy, firmware, group, not in order  BBS(HD,disk)
  Attempts
    1. Boot0001, PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)/HD(1,GPT)/\EFI\OLD.efi: not loaded: EFI_NOT_FOUND (no such file)
    2. Boot0002, PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)/HD(1,GPT)/\EFI\debian\shimx64.efi: started, which ended the boot
  Passed over
    Boot0001: not loaded: EFI_NOT_FOUND (no such file)
    Boot0007: not active
  Outcome: Boot0002 debian: handed over to PciRoot(0x0)/Pci(0x1F,0x2)/Sata(0x0,0xFFFF,0x0)/\EFI\debian\shimx64.efi
  Virtual time 3.250 s
    platform and consoles        1.000 s
    BMC                          2.000 s
    hand-over                    0.050 s
    outside the steps            0.200 s
  NVRAM: 3 written
    created 1: Boot0002
    changed 1: BootOrder
    deleted 1: BootNext
    refused 1: Boot0003 (EFI_OUT_OF_RESOURCES)
  Complaints about the driver: 1
    a protocol closed twice
  Pool blocks that nobody holds: 1
    48 bytes, allocation 17
  Resets: 1 warm, 0 cold; virtual time of all 2 starts 4.250 s
)");
}

TEST(PassedOver, AnAttemptBelongsToTheOptionThatItNames) {
  BootReport report;
  report.outcome.end = BootEnd::Returned;
  for (const std::uint16_t number : {std::uint16_t{1}, std::uint16_t{2}, std::uint16_t{3}}) {
    report.options.push_back(
        {.number = number, .inOrder = true, .attributes = 1, .name = u"", .path = "BBS(HD)", .legacy = true});
  }
  report.attempts = {
      {.what = "a driver", .loaded = true, .status = EFI_SUCCESS, .reason = ""},
      {.option = std::uint16_t{3}, .what = "b", .legacy = true, .loaded = true, .status = EFI_TIMEOUT, .reason = ""},
      {.option = std::uint16_t{1}, .what = "a", .legacy = true, .loaded = true, .status = EFI_ABORTED, .reason = ""}};
  std::vector<std::string> reasons;
  for (const PassedOver& each : OptionsPassedOver(report)) {
    reasons.push_back(each.reason);
  }
  EXPECT_THAT(reasons,
              testing::ElementsAre("legacy boot: EFI_ABORTED", "no attempt on record", "legacy boot: EFI_TIMEOUT"));
}

}  // namespace
}  // namespace sim

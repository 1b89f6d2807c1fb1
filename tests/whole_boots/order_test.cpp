// The order that somebody set is the order that is tried.
#include "tests/whole_boots/server_builder.h"

namespace sim::test {
namespace {

// The number of the first option whose path holds the text.
std::uint16_t NumberOf(const BootReport& report, std::string_view part) {
  for (const OptionReport& option : report.options) {
    if (option.path.find(part) != std::string::npos) {
      return option.number;
    }
  }
  ADD_FAILURE() << "no option for " << part;
  return 0xFFFF;
}

std::vector<std::uint16_t> Front(std::vector<std::uint16_t> order, std::uint16_t number) {
  std::stable_partition(order.begin(), order.end(), [number](std::uint16_t one) { return one == number; });
  return order;
}

std::string Told(const BootReport& report) {
  std::string text;
  for (const AttemptReport& attempt : report.attempts) {
    text += fmt::format("{}: {:X} {}\n", attempt.what, attempt.status, attempt.reason);
  }
  return text;
}

TEST(Order, ASetOrderIsFollowedOnTheNextBoot) {
  Server server(RackServer(2), {});
  const BootReport first = server.Boot({});
  std::vector<std::uint16_t> order(first.bootOrder.rbegin(), first.bootOrder.rend());
  SetBootOrder(server.Variables(), order);
  const BootReport second = server.Boot({});
  EXPECT_EQ(second.bootOrder, order);
  EXPECT_EQ(server.Boot({}).bootOrder, order);
}

TEST(Order, AUefiDiskWithoutALoaderPathBootsTheDefaultLoader) {
  Server server(RackServer(0, false), {});
  const BootReport first = server.Boot({});
  SetBootOrder(server.Variables(), Front(first.bootOrder, NumberOf(first, "USB(")));
  const BootReport report = server.Boot({});
  ASSERT_EQ(report.outcome.end, BootEnd::HandedOver) << report.outcome.text;
  ASSERT_FALSE(report.attempts.empty());
  EXPECT_NE(report.attempts.back().what.find("\\EFI\\BOOT\\BOOTX64.EFI"), std::string::npos) << Told(report);
}

TEST(Order, ALoaderThatAnswersLeadsToTheNextOption) {
  ServerDescription description = RackServer(2, false);
  description.firmware.shellPresent = false;
  Server server(std::move(description), {});
  for (const std::uint16_t number : {std::uint16_t{1}, std::uint16_t{2}, std::uint16_t{3}}) {
    const bool there = number != 3;
    const DevicePath path = PartitionPath(there ? number : 1, there ? u"\\EFI\\BOOT\\BOOTX64.EFI" : u"\\EFI\\gone.efi");
    ASSERT_EQ(server.Variables().Set(OptionVariable(number), gEfiGlobalVariableGuid, kKept,
                                     LoadOptionBytes(u"system", path.Bytes())),
              EFI_SUCCESS);
  }
  SetBootOrder(server.Variables(), {2, 3, 1});
  BootRequest request;
  request.loader.action = LoaderAction::Answer;
  request.loader.status = EFI_ABORTED;
  const BootReport report = server.Boot(request);
  EXPECT_FALSE(report.Started());
  EXPECT_EQ(report.outcome.end, BootEnd::Returned) << report.outcome.text;
  std::vector<std::string> answered;
  std::vector<std::uint16_t> tried;  // as they happened, each once
  for (const AttemptReport& attempt : report.attempts) {
    ASSERT_TRUE(attempt.option) << Told(report);
    if (tried.empty() || tried.back() != *attempt.option) {
      tried.push_back(*attempt.option);
    }
    if (attempt.loaded && attempt.status == EFI_ABORTED) {
      answered.push_back(attempt.what);
    }
  }
  EXPECT_EQ(tried, report.bootOrder) << Told(report);
  std::erase_if(tried, [](std::uint16_t number) { return number > 3; });
  EXPECT_EQ(tried, (std::vector<std::uint16_t>{2, 3, 1})) << Told(report);
  ASSERT_GE(answered.size(), 2U) << Told(report);
  EXPECT_NE(answered[0].find("Sata(0x1,"), std::string::npos) << Told(report);
  EXPECT_NE(answered[1].find("Sata(0x0,"), std::string::npos) << Told(report);
  EXPECT_NE(report.log.find("BdsEntry:Out of BdsEntry, this should never happen\n"), std::string::npos);
}

TEST(Order, BootNextIsTakenOnceByAFrontEndThatBoots) {
  ServerDescription description = RackServer(1, false);
  description.frontEnd = FrontEndKind::Boots;
  Server server(std::move(description), {});
  const BootReport first = server.Boot({});
  const std::uint16_t usb = NumberOf(first, "USB(");
  ASSERT_EQ(server.Variables().Set(u"BootNext", gEfiGlobalVariableGuid, kKept, std::as_bytes(std::span(&usb, 1))),
            EFI_SUCCESS);
  const BootReport next = server.Boot({});
  EXPECT_EQ(next.bootCurrent, usb) << Told(next);
  EXPECT_EQ(server.Variables().Find(u"BootNext", gEfiGlobalVariableGuid), nullptr);
  EXPECT_EQ(server.Boot({}).bootCurrent, first.bootCurrent);
}

}  // namespace
}  // namespace sim::test

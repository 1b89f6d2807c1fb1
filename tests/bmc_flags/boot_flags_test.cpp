// The boot flags step: what it asks the BMC, what it keeps, what it makes of each selector.
#include "platform/setup_variable.h"
#include "tests/bmc_flags/option_server.h"

namespace test {
namespace {

class BootFlags : public OptionServer {
 protected:
  BootFlags() { AddAll(); }
  void AddAll() {
    PublishMode(0, 0);
    PublishIpmi();
    nextNumber = 1;
    AddLegacy(u"disk", 2);
    AddLegacy(u"dvd", 3);
    AddLegacy(u"nic", 6);
    AddLegacy(u"fdd", 1);
    Add(u"uefi disk", Join({Disk(), Loader()}));
    Add(u"uefi dvd", Join({Pci(), Cdrom()}));
    Add(u"uefi pxe", Join({Pci(), Mac(), Ipv4()}));
    Add(u"uefi fdd", Acpi(0x060441D0));
  }
  void Fresh() {
    NextBoot();
    AddAll();
    SetVariable(u"IpmiBootFlags", kIpmiGuid, kAttributes3, {});
    SetVariable(u"BootOrderBeforeIpmiBoot", kIpmiGuid, kAttributes3, {});
    bmc().State() = {};
  }
  std::optional<Bytes> Stored() { return Variable(u"IpmiBootFlags", kIpmiGuid); }
  sim::BmcState& State() { return bmc().State(); }
};

// Reserved bits around the selector and the instance say nothing; the instance comes from data 5.
TEST_F(BootFlags, EachValueIsTakenFromItsOwnBits) {
  const struct {
    Bytes flags;
    std::uint8_t acknowledge;
    const char* front;
  } cases[] = {
      {{0xA0, 0x08, 0, 0, 0}, 0, "uefi disk=0"},
      {{0xA0, 0xCB, 0xFF, 0xFF, 0xEF}, 0x01, "uefi disk=0"},  // no instance given
      {{0xA0, 0x08, 0x1F, 0x1F, 0x11}, 0x03, "second=0"},
      {{0xA0, 0xCB, 0, 0, 0xF1}, 0x01, "second=0"},
      {{0xA0, 0x08, 0, 0, 0}, 0x02, ""},  // handled before
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.flags));
    Fresh();
    Add(u"second", Join({Disk(), Loader()}));
    std::copy(c.flags.begin(), c.flags.end(), State().bootFlags.begin());
    State().acknowledge = c.acknowledge;
    bds::SetIpmiBootOptionPriorities();
    EXPECT_EQ(Front(), c.front);
  }
}

TEST_F(BootFlags, FlagsThatWereHandledBeforeAreLeftAndForgotten) {
  SetVariable(u"IpmiBootFlags", kIpmiGuid, kAttributes3, {1, 5, 0xC0, 0x08, 0, 0, 0});
  State().bootFlags = {0x80, 0x08, 0, 0, 0};
  State().acknowledge = 0x1E;
  bds::SetIpmiBootOptionPriorities();
  EXPECT_EQ(Front(), "");
  EXPECT_FALSE(Stored());
  EXPECT_EQ(State().bootFlags[0], 0x80);
}

TEST_F(BootFlags, AStoredRequestOfAnotherSizeIsNone) {
  for (const std::size_t size : {6, 8}) {
    Fresh();
    Bytes stored{1, 5, 0xC0, 0x08, 0, 0, 0, 0};
    stored.resize(size);
    SetVariable(u"IpmiBootFlags", kIpmiGuid, kAttributes3, stored);
    bds::SetIpmiBootOptionPriorities();
    EXPECT_EQ(Front(), "");
  }
}

// The step sends: 0 4 0 5, then for a valid request 0 set4 0 set5. A failure of each stops it there.
TEST_F(BootFlags, EachFailureStopsTheStepWhereItHappens) {
  const struct {
    std::uint64_t fails;
    const char* logs;
    std::uint8_t acknowledge;
    std::uint8_t flags;
    bool stored;
  } cases[] = {
      {1, " GetBootOptions failed=8000000000000007 for Parameter=0 \n", 1, 0xC0, false},
      {2, " GetBootOptions failed=8000000000000007 for Parameter=4 \n", 1, 0xC0, false},
      {2, "Retrun Status of IpmiGetBootInfoAcknowledgeData:8000000000000007\n", 1, 0xC0, false},
      {3, " GetBootOptions failed=8000000000000007 for Parameter=0 \n", 1, 0xC0, false},
      {4, " GetBootOptions failed=8000000000000007 for Parameter=5 \n", 1, 0xC0, false},
      {5, "IPMI:SetBootInfoAck Failed:8000000000000007 \n", 1, 0xC0, true},
      {6, "IPMI:SetBootInfoAck Failed:8000000000000007 \n", 1, 0xC0, true},
      {7, " GetBootOptions failed=8000000000000007 for Parameter=0 \n", 0, 0xC0, true},
      {8, "", 0, 0xC0, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fails);
    Fresh();
    State().bootFlags = {0xC0, 0x08, 0, 0, 0};
    State().acknowledge = 1;
    std::uint64_t sent = 0;
    bmc().Transport().onRequest = [&](std::uint64_t) {
      return ++sent == c.fails ? std::optional<EFI_STATUS>(EFI_DEVICE_ERROR) : std::nullopt;
    };
    bds::SetIpmiBootOptionPriorities();
    EXPECT_EQ(sent, c.fails);
    EXPECT_TRUE(Logged(c.logs)) << Log();
    EXPECT_EQ(State().acknowledge, c.acknowledge);
    EXPECT_EQ(State().bootFlags[0], c.flags);
    EXPECT_EQ(Stored().has_value(), c.stored);
    EXPECT_EQ(Front(), "");
  }
}

TEST_F(BootFlags, SetInProgressForeverEndsTheStepAfterElevenQueries) {
  State().setInProgress = 1;
  State().bootFlags = {0x80, 0x08, 0, 0, 0};
  bds::SetIpmiBootOptionPriorities();
  EXPECT_EQ(Count("ipmi.requests"), 11U);
  EXPECT_TRUE(
      Logged("IPMI:WaitSetInProgressClear TimeOut\n"
             "Retrun Status of IpmiGetBootInfoAcknowledgeData:8000000000000012\n"));
  EXPECT_EQ(Front(), "");
}

}  // namespace
}  // namespace test

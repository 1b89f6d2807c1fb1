// Whole boots on bad input: services that fail at the n-th call, load options and orders that are no such thing, files
// of the BMC and variables of the driver's own that are damaged, a store that is full, disks and BBS strings that lie.
// Whatever it is, the boot comes to an end, nothing leaks, and what the user made keeps its bytes and its place.
#include <random>

#include "tests/whole_boots/users_server.h"

namespace sim::test {
namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr std::uint64_t kSamples = 12;  // calls of one service that fail, one after the other, and inputs of a kind
#else
constexpr std::uint64_t kSamples = 60;
#endif
constexpr std::uint16_t kBad = 0x0200;
constexpr EFI_GUID kIpmiGuid{0x842680F2, 0x1A9C, 0x48E6, {0xA4, 0x33, 0xBE, 0x9A, 0xCB, 0x0D, 0xD4, 0x38}};
constexpr EFI_GUID kLegacyOrderGuid{0xA56074DB, 0x65FE, 0x45F7, {0xBD, 0x21, 0x2D, 0x2B, 0xDD, 0x8E, 0x96, 0x52}};
constexpr EFI_GUID kRestoredGuid{0x9DAE27E6, 0x9CC9, 0x4972, {0xBC, 0xDB, 0x82, 0x45, 0x73, 0xA2, 0xC2, 0xF6}};

class BadInput : public testing::Test, protected UsersServer {
 protected:
  BadInput() : UsersServer(true) {}

  void Put(Kept& kept, std::u16string name, const Bytes& data, const EFI_GUID& guid = gEfiGlobalVariableGuid) const {
    std::erase_if(kept.variables, [&name](const Variable& one) { return one.name == name; });
    kept.variables.push_back({std::move(name), guid, kKept, data});
  }
  void PutOrder(Kept& kept, const std::vector<std::uint16_t>& order) const {
    const auto bytes = std::as_bytes(std::span(order));
    Put(kept, u"BootOrder", {bytes.begin(), bytes.end()});
  }
  // The user's server with one option more, which comes first.
  Kept WithBadOption(const Bytes& image) const {
    Kept kept = usual_;
    std::vector<std::uint16_t> order = own_;
    order.insert(order.begin(), kBad);
    Put(kept, OptionVariable(kBad), image);
    PutOrder(kept, order);
    return kept;
  }
  Bytes Noise(std::size_t size) {
    Bytes bytes(size);
    for (std::byte& byte : bytes) byte = static_cast<std::byte>(random_());
    return bytes;
  }
  std::size_t Below(std::size_t limit) { return random_() % limit; }

  // Behind their attributes, which follow what is plugged in and set up.
  void CheckUsers(const Server& server, const std::string& what) const {
    const std::vector<std::uint16_t> order = BootOrderOf(server.Variables());
    std::vector<std::uint16_t> users;
    std::ranges::copy_if(order, std::back_inserter(users), [this](std::uint16_t one) { return users_.contains(one); });
    EXPECT_EQ(users, (std::vector<std::uint16_t>{kFirst, kOther})) << what;
    for (const auto& [number, bytes] : users_) {
      const Bytes* now = OptionBytes(server.Variables(), number);
      ASSERT_NE(now, nullptr) << what;
      EXPECT_TRUE(std::equal(now->begin() + 4, now->end(), bytes.begin() + 4, bytes.end())) << what;
    }
  }

  // One boot; it starts something unless its report is asked for, and with `keeps` nothing of the user's is lost.
  std::unique_ptr<Server> Try(const Kept& kept, const std::string& what, const std::string& fault = "",
                              BootReport* told = nullptr, bool keeps = true) {
    return Try(description_, kept, what, fault, told, keeps);
  }
  std::unique_ptr<Server> Try(const ServerDescription& description, const Kept& kept, const std::string& what,
                              const std::string& fault = "", BootReport* told = nullptr, bool keeps = true) {
    auto server = Place(description, kept);
    BootRequest request;
    if (!fault.empty()) request.faults = {fault};
    BootReport report = server->Boot(request);
    if (report.outcome.end == BootEnd::Reset) report = server->Boot(request);
    ExpectClean(report, what);
    EXPECT_TRUE(report.Started() || told != nullptr) << what << ": " << report.outcome.text;
    if (keeps) CheckUsers(*server, what);
    if (told != nullptr) *told = std::move(report);
    return server;
  }

  std::mt19937 random_{20261124};
};

TEST_F(BadInput, AServiceThatFailsAtAnyCall) {
  const char* const services[][2] = {{"AllocatePool", "EFI_OUT_OF_RESOURCES"},
                                     {"SetVariable", "EFI_OUT_OF_RESOURCES"},
                                     {"SetVariable", "EFI_DEVICE_ERROR"},
                                     {"GetVariable", "EFI_DEVICE_ERROR"},
                                     {"LocateHandleBuffer", "EFI_OUT_OF_RESOURCES"},
                                     {"HandleProtocol", "EFI_UNSUPPORTED"}};
  const BootReport usual = Place(description_, usual_)->Boot({});
  unsigned notStarted = 0;  // by one failure
  for (const auto& [service, status] : services) {
    const std::uint64_t calls = usual.counts.at(service);
    ASSERT_GT(calls, 0U) << service;
    const std::uint64_t stride = std::max<std::uint64_t>(1, calls / kSamples);
    for (std::uint64_t nth = 1; nth <= calls && !HasFailure(); nth += stride) {
      for (const std::uint64_t count : {1, 25, 100'000'000}) {
        const std::string fault = fmt::format("call {} {} {} {}", service, nth, status, count);
        BootReport report;
        const auto server = Try(usual_, fault, fault, &report);
        notStarted += count == 1 && !report.Started() ? 1 : 0;
        const BootReport next = server->Boot({});
        EXPECT_TRUE(next.Started()) << fault;
        CheckUsers(*server, "behind " + fault);
      }
    }
  }
  // The two calls that read the order to be booted: without it there is nothing to boot.
  EXPECT_LE(notStarted, 2U);
}

// The options of a server, whatever call failed once on the way to them.
TEST_F(BadInput, OneFailureIsMadeUpForByTheBootsBehindIt) {
  const auto options = [](const Server& server, bool ordered) {
    std::vector<Bytes> images;
    for (const std::uint16_t number : BootOrderOf(server.Variables())) {
      const Bytes* bytes = OptionBytes(server.Variables(), number);
      images.push_back(bytes == nullptr ? Bytes{} : *bytes);
    }
    if (!ordered) std::ranges::sort(images);
    return images;
  };
  // Of a fresh server, an option that had to wait comes later.
  const std::tuple<const char*, Kept, bool> starts[] = {{"fresh", Kept{}, false}, {"settled", usual_, true}};
  const std::pair<const char*, const char*> faults[] = {{"AllocatePool", "EFI_OUT_OF_RESOURCES"},
                                                        {"GetVariable", "EFI_DEVICE_ERROR"},
                                                        {"SetVariable", "EFI_OUT_OF_RESOURCES"}};
  for (const auto& [name, start, ordered] : starts) {
    const auto undisturbed = Place(description_, start);
    const BootReport first = undisturbed->Boot({});
    BootUntilSettled(*undisturbed);
    for (const auto& [service, status] : faults) {
      const std::uint64_t stride = 1 + first.counts.at(service) / (8 * kSamples);
      for (std::uint64_t nth = 1; nth <= first.counts.at(service); nth += stride) {
        BootRequest request;
        request.faults = {fmt::format("call {} {} {}", service, nth, status)};
        auto server = Place(description_, start);
        server->Boot(request);
        BootUntilSettled(*server);
        EXPECT_EQ(options(*server, ordered), options(*undisturbed, ordered)) << name << ", " << request.faults[0];
      }
    }
  }
}

TEST_F(BadInput, ALoadOptionThatIsNone) {
  const Bytes good = users_.at(kFirst);
  for (std::size_t size = 1; size < good.size(); size += 1 + good.size() / kSamples) {
    Try(WithBadOption({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)}),
        fmt::format("cut at {}", size));
  }
  for (std::uint64_t i = 0; i < kSamples; ++i) {
    Try(WithBadOption(Noise(1 + Below(400))), fmt::format("noise {}", i));
    Bytes damaged = good;
    damaged[Below(damaged.size())] ^= static_cast<std::byte>(1U << Below(8));
    damaged[Below(damaged.size())] = static_cast<std::byte>(random_());
    Try(WithBadOption(damaged), fmt::format("damaged {}", i));
  }
  Bytes large = good;
  large.resize(60000);
  Try(WithBadOption(large), "oversized");
}

TEST_F(BadInput, GroupsWithLyingLengths) {
  const Bytes good = users_.at(kOther);
  const auto add = [](Bytes& to, std::initializer_list<int> bytes) {
    for (const int byte : bytes) to.push_back(static_cast<std::byte>(byte));
  };
  for (std::uint64_t i = 0; i < kSamples; ++i) {
    Bytes image = good;
    add(image, {0, 0, 0x47, 0x4F});
    for (std::size_t member = 0; member <= Below(3); ++member) {
      const std::uint32_t lengths[] = {0, 7, 8, 9, 50, 0xFFFFFFFF, static_cast<std::uint32_t>(good.size() + 8)};
      const std::uint32_t length = lengths[Below(std::size(lengths))];
      add(image, {0, 0, 0x4E, 0x4F});
      image.resize(image.size() + sizeof(length));
      std::memcpy(image.data() + image.size() - sizeof(length), &length, sizeof(length));
      image.insert(image.end(), good.begin(), good.begin() + static_cast<std::ptrdiff_t>(Below(good.size())));
    }
    Try(WithBadOption(image), fmt::format("group {}", i));
  }
}

TEST_F(BadInput, AnOrderThatIsNone) {
  Kept odd = usual_;
  Bytes bytes = *usual_.Find(u"BootOrder");
  bytes.push_back(std::byte{7});
  Put(odd, u"BootOrder", bytes);
  Try(odd, "odd size");
  Kept doubled = usual_;
  std::vector<std::uint16_t> order = own_;
  order.insert(order.end(), own_.begin(), own_.end());
  PutOrder(doubled, order);
  EXPECT_EQ(BootOrderOf(Try(doubled, "every number twice")->Variables()), own_);
  Kept strange = usual_;
  order = own_;
  for (std::uint32_t number = 0x8000; number < 0x8000 + 2000; ++number) {
    order.push_back(static_cast<std::uint16_t>(number));
  }
  order.push_back(0xFFFF);
  PutOrder(strange, order);
  Try(strange, "numbers of nothing");
}

TEST_F(BadInput, VariablesOfTheDriversOwnThatAreDamaged) {
  const struct {
    const char16_t* name;
    EFI_GUID guid;
  } variables[] = {{u"IpmiBootFlags", kIpmiGuid},
                   {u"IpmiMatchBootOptionData", kIpmiGuid},
                   {u"LegacyDevOrder", kLegacyOrderGuid},
                   {u"OldLegacyDevOrder", kLegacyOrderGuid},
                   {u"BootOptionRestored", kRestoredGuid},
                   {u"Timeout", gEfiGlobalVariableGuid},
                   {u"DriverOrder", gEfiGlobalVariableGuid},
                   {u"Driver0001", gEfiGlobalVariableGuid},
                   {u"ConIn", gEfiGlobalVariableGuid},
                   {u"ConOut", gEfiGlobalVariableGuid},
                   {u"ErrOut", gEfiGlobalVariableGuid},
                   {u"BootNext", gEfiGlobalVariableGuid}};
  for (const auto& variable : variables) {
    for (std::uint64_t i = 0; i < 1 + kSamples / 4; ++i) {
      Kept kept = usual_;
      Bytes noise = Noise(1 + Below(80));
      // The number of the user's option before the bytes that are none.
      if (noise.size() > 1) noise[0] = static_cast<std::byte>(kFirst), noise[1] = std::byte{0};
      Put(kept, variable.name, noise, variable.guid);
      const std::u16string name = variable.name;
      Try(kept, fmt::format("{} {}", std::string(name.begin(), name.end()), i));
    }
  }
}

TEST_F(BadInput, FilesOfTheBmcThatAreDamaged) {
  Kept lost = usual_;
  lost.variables.clear();
  for (std::uint64_t i = 0; i < kSamples; ++i) {
    Kept kept = lost;
    auto file = kept.files.begin();
    std::advance(file, Below(kept.files.size()));
    const std::size_t sizes[] = {0, 1, file->second.size() / 2, file->second.size() + 1, 65536, 65537};
    file->second.resize(sizes[Below(std::size(sizes))], static_cast<std::uint8_t>(random_()));
    const bool noise = Below(2) == 0;
    if (noise) std::ranges::generate(file->second, [this] { return static_cast<std::uint8_t>(random_()); });
    for (std::uint8_t& byte : kept.bmc.bootFlags) byte = static_cast<std::uint8_t>(random_());
    kept.bmc.acknowledge = static_cast<std::uint8_t>(random_());
    const std::string what = fmt::format("{} of {} bytes", file->first, file->second.size());
    const bool orderKnown = file->first != "BootOrder";
    const bool users = file->first == "Boot0042" || file->first == "Boot0017";
    Try(kept, what, "", nullptr, orderKnown && !users);
    // With the variables whole, no file matters.
    kept.variables = usual_.variables;
    Try(kept, what + ", variables whole");
    // Restored over whole variables: what is no option at all replaces none.
    std::erase_if(kept.variables, [](const Variable& one) { return one.name == u"BootOptionRestored"; });
    Try(kept, what + ", variables whole, not restored", "", nullptr, orderKnown && (noise || !users));
  }
}

TEST_F(BadInput, AStoreThatIsNearlyFull) {
  const std::uint64_t used = Place(description_, usual_)->Variables().Used(true);
  for (const std::uint64_t more : {0, 16, 100, 200, 400, 1000}) {
    ServerDescription description = description_;
    description.nvram.size = used + more;
    const std::string what = fmt::format("{} bytes left", more);
    Try(description, usual_, what);
    description.devices.rootBridges[0].functions.push_back(UsbHost(0x1D, 0, {UsbStick(1, SystemDisk(9))}));
    Try(description, usual_, what + ", a new device");
  }
}

TEST_F(BadInput, BbsStringsAndDisksThatLie) {
  for (const std::uint32_t pointer : {0U, 1U, 0x0FFFU, 0xFFFFFFFFU, 0xFFFF0010U, 0xF000FFFFU, 0x00FF0FFFU}) {
    ServerDescription description = description_;
    description.csm.entries[0].description.clear();
    description.csm.entries[0].manufacturer.clear();
    description.csm.entries[0].descriptionPointer = pointer;
    description.csm.entries[0].manufacturerPointer = pointer;
    Try(description, usual_, fmt::format("BBS pointer {:X}", pointer));
  }
  const Bytes whole = SystemDiskBytes(1);
  for (const std::size_t size : {std::size_t{512}, std::size_t{1024}, std::size_t{17408}, whole.size() / 2}) {
    ServerDescription description = description_;
    auto& disk = std::get<AhciController>(description.devices.rootBridges[0].functions[2].controller).devices[0];
    Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    disk = SataDisk(0, MakeMemoryDisk(std::move(cut), {.claimedSize = whole.size()}), "S0001");
    Try(description, usual_, fmt::format("a disk of {} bytes", size));
  }
}

}  // namespace
}  // namespace sim::test

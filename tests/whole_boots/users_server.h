// A server that somebody uses: with options of an operating system, an order of the user's own, copies of both on the
// BMC, and a network that a boot request can mean.
#pragma once

#include "tests/whole_boots/kept_state.h"

namespace sim::test {

inline constexpr std::uint16_t kFirst = 0x0042;  // the user's options; this one comes first in the user's order
inline constexpr std::uint16_t kOther = 0x0017;

class UsersServer {
 protected:
  // `crowd` further options are the user's.
  explicit UsersServer(bool csm = false, bool managed = false, unsigned crowd = 0) : description_(RackServer(2, csm)) {
    description_.bmcFiles = true;
    description_.managementMode = managed ? 1 : 0;
    auto& functions = description_.devices.rootBridges[0].functions;
    functions.erase(functions.begin() + 3);  // the USB host
    NetworkPort& port = std::get<NetworkController>(functions.back().controller).ports[0];
    const PeBuilder loader = SmallImage();
    port.ipv6 = false;
    port.boot.image.assign(loader.Bytes().begin(), loader.Bytes().end());
    Make(crowd);
  }

  void CheckUsersOptions(const Kept& kept) const {
    for (const auto& [number, bytes] : users_) {
      const Bytes* option = kept.Find(OptionVariable(number));
      ASSERT_NE(option, nullptr) << number;
      EXPECT_EQ(*option, bytes) << number;
    }
  }

  // The BMC holds the order and every option of it as the variables do.
  static bool CopiesAreComplete(const Kept& kept) {
    const auto same = [&kept](const std::string& name) {
      const Bytes* bytes = kept.Find(std::u16string(name.begin(), name.end()));
      const auto file = kept.files.find(name);
      return bytes != nullptr && file != kept.files.end() &&
             std::ranges::equal(std::as_bytes(std::span(file->second)), *bytes);
    };
    const std::vector<std::uint16_t> order = kept.Order();
    return same("BootOrder") && std::ranges::all_of(order, [&same](std::uint16_t number) {
             return same(fmt::format("Boot{:04X}", number));
           });
  }

  ServerDescription description_;
  std::map<std::uint16_t, Bytes> users_;
  std::vector<std::uint16_t> own_;
  std::uint16_t requested_ = 0;  // the option for the network: the legacy one when there is a CSM
  Kept usual_;                   // settled

 private:
  void Make(unsigned crowd) {
    Server server(description_, {});
    BootUntilSettled(server);
    own_ = BootOrderOf(server.Variables());
    std::reverse(own_.begin(), own_.end());
    const auto add = [&](std::uint16_t number, std::u16string_view name, std::uint32_t disk, std::ptrdiff_t place) {
      const DevicePath path = PartitionPath(disk, u"\\EFI\\BOOT\\BOOTX64.EFI");
      const std::byte data[] = {std::byte{0x55}, std::byte{0}, static_cast<std::byte>(number)};
      users_[number] = LoadOptionBytes(name, path.Bytes(), 1, data);
      ASSERT_EQ(server.Variables().Set(OptionVariable(number), gEfiGlobalVariableGuid, kKept, users_[number]),
                EFI_SUCCESS);
      own_.insert(own_.begin() + place, number);
    };
    add(kFirst, u"system", 1, 0);
    add(kOther, u"other system", 2, 2);
    for (unsigned i = 0; i < crowd; ++i) add(static_cast<std::uint16_t>(0x0100 + i), u"one of many", 2, 3);
    SetBootOrder(server.Variables(), own_);
    const BootReport last = BootUntilSettled(server).back();
    ASSERT_EQ(last.bootOrder, own_);
    ASSERT_EQ(last.bootCurrent, kFirst);
    for (const OptionReport& option : last.options) {
      const char* part = description_.csm.present ? "BBS(0x80" : "IPv4(";
      requested_ = option.path.find(part) != std::string::npos ? option.number : requested_;
    }
    ASSERT_NE(requested_, 0);
    usual_ = Take(server);
  }
};

}  // namespace sim::test

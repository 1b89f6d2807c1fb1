// The server of the pairs: somebody uses it, with options of operating systems, an order of the user's own, copies of
// both on the BMC, and a network that a boot request can mean. Its states before a boot, what happens to it between two
// boots, and both as files that bds-sim boots.
#pragma once

#include <filesystem>
#include <span>
#include <tuple>

#include "tests/whole_boots/kept_state.h"

namespace sim::test {

// What a pair changes of the hardware and its settings.
struct Hardware {
  bool csm = false;
  bool managed = false;
  bool stbu = false;
  bool secondDisk = true;
  bool stick = false;
  std::uint64_t nvram = 262144;
  std::string firstDisk = "disk1.img";
  std::string bbsEntry = {};  // TOML

  auto operator<=>(const Hardware&) const = default;
};

// The same option, whatever its attributes, which follow what is plugged in.
bool IsSameOption(std::span<const std::byte> image, std::span<const std::byte> other);
// Empty when there is none of the number.
Bytes OptionBytes(const Kept& kept, std::uint16_t number);

struct World {
  Hardware hardware;
  Kept kept;
  std::map<std::uint16_t, Bytes> users;   // options that are the user's, and their bytes
  std::vector<std::uint16_t> usersOrder;  // as they follow each other in BootOrder

  // The key among the user's options, whatever the option's number is by now; 0: it is none of the user's.
  std::uint16_t UsersNumber(const Bytes& image) const;
};

// Behind a colon stands which one of its kind a state is ("damaged:17").
std::span<const char* const> StartNames();
// Starts that are tried without a fault only: further damages and stores that are nearly full.
std::vector<std::string> FurtherStarts();
std::span<const char* const> EventNames();

class PairServer {
 public:
  PairServer();
  ~PairServer();
  PairServer(const PairServer&) = delete;

  const ServerDescription& Description(const Hardware& hardware);
  World Start(const std::string& name, bool csm);
  // What happens between two boots; the network's option of the order is the one that somebody replaces.
  static void Happen(const std::string& event, World& world);
  // The option of the order that a request for the network means; 0: none.
  static std::uint16_t NetworkOption(const Kept& kept, bool legacy);
  // A description with its disks, and a state folder beside it.
  void Write(const World& world, const std::filesystem::path& folder) const;

 private:
  World MakeUsual(bool csm, bool stbu, bool managed, unsigned crowd);
  const World& Usual(bool csm, bool stbu, bool managed, unsigned crowd);

  std::filesystem::path folder_;  // of the disks
  std::map<Hardware, ServerDescription> descriptions_;
  std::map<std::tuple<bool, bool, bool, unsigned>, World> usual_;
};

}  // namespace sim::test

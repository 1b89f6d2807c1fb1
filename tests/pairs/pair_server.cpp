#include "tests/pairs/pair_server.h"

#include <fstream>

#include "tests/pairs/damages.h"

namespace sim::test {
namespace {

constexpr std::uint16_t kFirst = 0x0042;
constexpr std::uint16_t kOther = 0x0017;
constexpr std::uint16_t kInstalled = 0x0300;
constexpr unsigned kCrowd = 30;  // an order of more than one piece of a file
constexpr unsigned kDamages = 240;

constexpr const char* kStarts[] = {
    "fresh",       // never booted
    "settled",     // as on every day; an option of the firmware's is the first
    "foreign",     // the same, the user's own option the first
    "uncopied",    // nothing on the BMC, and nothing ever restored from it
    "unmarked",    // behind the first save: copies and all variables, nothing ever restored
    "restored",    // NVRAM lost, the copies whole
    "long",        // NVRAM lost, and the order fills two pieces of its file
    "full:100",    // bytes left in NVRAM
    "damaged:0",   // damages.h
    "damaged:6",   //
    "damaged:14",  //
    "managed",     // by the central manager, which does not put orders back
    "stbu",        // the whole order is the firmware's
    "renumbered",  // the same from this boot on: every option gets a new number
    "overridden",  // behind the boot of a request, which changed the order
};
constexpr const char* kEvents[] = {"nothing", "install", "append",   "reorder", "unplug",
                                   "plug",    "delete",  "withdraw", "replace"};

void WriteFile(const std::filesystem::path& file, std::span<const std::byte> bytes) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string Text(const Hardware& hardware) {
  constexpr const char* kText = R"(name = "a server of the pairs"
[setup]
stbu_mode = {stbu}
[nvram]
size = {nvram}
[management]
managed = {managed}
[csm]
present = {csm}
{bbs}
[[root_bridge]]
[[root_bridge.function]]
kind = "isa"
device = 0x1F
[[root_bridge.function]]
kind = "vga"
device = 2
embedded = true
[[root_bridge.function]]
kind = "ahci"
device = 0x1F
number = 2
[[root_bridge.function.sata]]
port = 0
image = "{disk}"
serial = "S0001"
[[root_bridge.function.sata]]
port = 1
image = "disk2.img"
serial = "S0002"
present = {second}
[[root_bridge.function]]
kind = "ehci"
device = 0x1D
present = {stick}
[[root_bridge.function.usb]]
port = 1
image = "stick.img"
[[root_bridge.function]]
kind = "network"
device = 3
mac = "02:00:00:00:00:01"
ipv6 = false
boot_file = "loader.efi"
)";
  return fmt::format(fmt::runtime(kText), fmt::arg("stbu", hardware.stbu ? 1 : 0), fmt::arg("nvram", hardware.nvram),
                     fmt::arg("managed", hardware.managed), fmt::arg("csm", hardware.csm),
                     fmt::arg("bbs", hardware.bbsEntry), fmt::arg("disk", hardware.firstDisk),
                     fmt::arg("second", hardware.secondDisk), fmt::arg("stick", hardware.stick));
}

Bytes UsersOption(std::uint16_t number, std::uint32_t disk) {
  const std::byte data[] = {std::byte{0x55}, static_cast<std::byte>(number >> 8), static_cast<std::byte>(number)};
  return LoadOptionBytes(u"system", PartitionPath(disk, u"\\EFI\\BOOT\\BOOTX64.EFI").Bytes(), 1, data);
}

void Add(World& world, std::uint16_t number, std::ptrdiff_t place, std::uint32_t disk) {
  world.users[number] = UsersOption(number, disk);
  world.kept.Put(OptionVariable(number), world.users[number]);
  std::vector<std::uint16_t> order = world.kept.Order();
  order.insert(order.begin() + std::min<std::ptrdiff_t>(place, std::ssize(order)), number);
  world.kept.PutOrder(order);
}

void NoteUsersOrder(World& world) {
  world.usersOrder.clear();
  for (const std::uint16_t number : world.kept.Order()) {
    const std::uint16_t user = world.UsersNumber(OptionBytes(world.kept, number));
    if (user != 0) world.usersOrder.push_back(user);
  }
}

unsigned Detail(const std::string& name) {
  const std::size_t colon = name.find(':');
  return colon == std::string::npos ? 0 : static_cast<unsigned>(std::stoul(name.substr(colon + 1)));
}

}  // namespace

bool IsSameOption(std::span<const std::byte> image, std::span<const std::byte> other) {
  constexpr std::size_t kAttributes = 4;
  return image.size() == other.size() && image.size() >= kAttributes &&
         std::ranges::equal(image.subspan(kAttributes), other.subspan(kAttributes));
}

Bytes OptionBytes(const Kept& kept, std::uint16_t number) {
  const Bytes* bytes = kept.Find(OptionVariable(number));
  return bytes == nullptr ? Bytes{} : *bytes;
}

std::uint16_t World::UsersNumber(const Bytes& image) const {
  const auto user = std::ranges::find_if(users, [&](const auto& one) { return IsSameOption(one.second, image); });
  return user == users.end() ? std::uint16_t{0} : user->first;
}

std::span<const char* const> StartNames() { return kStarts; }
std::span<const char* const> EventNames() { return kEvents; }

std::vector<std::string> FurtherStarts() {
  std::vector<std::string> names;
  for (const unsigned left : {0, 16, 200, 400, 1000}) names.push_back(fmt::format("full:{}", left));
  for (unsigned i = 0; i < kDamages; ++i) names.push_back(fmt::format("damaged:{}", i));
  return names;
}

PairServer::PairServer() {
  std::string place = (std::filesystem::temp_directory_path() / "pairs-XXXXXX").string();
  if (mkdtemp(place.data()) == nullptr) throw StateError("no temporary folder can be made");
  folder_ = place;
  WriteFile(folder_ / "loader.efi", SmallImage().Bytes());
  WriteFile(folder_ / "stick.img", SystemDiskBytes(9));
  WriteFile(folder_ / "disk2.img", SystemDiskBytes(2));
  const Bytes disk = SystemDiskBytes(1);
  WriteFile(folder_ / "disk1.img", disk);
  for (const std::size_t size : kCutDisks) {
    WriteFile(folder_ / fmt::format("disk1-{}.img", size), std::span(disk).first(size));
  }
}

PairServer::~PairServer() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

const ServerDescription& PairServer::Description(const Hardware& hardware) {
  const auto known = descriptions_.find(hardware);
  if (known != descriptions_.end()) return known->second;
  return descriptions_.emplace(hardware, ParseServerDescription(Text(hardware), "pairs", folder_)).first->second;
}

World PairServer::MakeUsual(bool csm, bool stbu, bool managed, unsigned crowd) {
  World world;
  world.hardware = {.csm = csm, .managed = managed, .stbu = stbu};
  const auto settle = [&] {
    const auto server = Place(Description(world.hardware), world.kept);
    BootUntilSettled(*server);
    world.kept = Take(*server);
  };
  settle();
  std::vector<std::uint16_t> order = world.kept.Order();
  std::ranges::reverse(order);
  world.kept.PutOrder(order);
  Add(world, kFirst, 1, 1);
  Add(world, kOther, 3, 2);
  for (unsigned i = 0; i < crowd; ++i) Add(world, static_cast<std::uint16_t>(0x0100 + i), 3, 2);
  // The network is not what boots on a day like any other.
  order = world.kept.Order();
  const auto network = std::ranges::find(order, NetworkOption(world.kept, csm));
  if (network != order.end()) std::rotate(network, network + 1, order.end());
  world.kept.PutOrder(order);
  settle();
  NoteUsersOrder(world);
  return world;
}

const World& PairServer::Usual(bool csm, bool stbu, bool managed, unsigned crowd) {
  const auto key = std::tuple(csm, stbu, managed, crowd);
  const auto known = usual_.find(key);
  return known != usual_.end() ? known->second
                               : usual_.emplace(key, MakeUsual(csm, stbu, managed, crowd)).first->second;
}

World PairServer::Start(const std::string& name, bool csm) {
  const std::string kind = name.substr(0, name.find(':'));
  World world = Usual(csm, kind == "stbu", kind == "managed", kind == "long" ? kCrowd : 0);
  if (kind == "fresh") {
    return {.hardware = world.hardware, .kept = {}, .users = {}, .usersOrder = {}};
  }
  if (kind == "foreign") {
    std::vector<std::uint16_t> order = world.kept.Order();
    std::erase(order, kFirst);
    order.insert(order.begin(), kFirst);
    world.kept.PutOrder(order);
  }
  if (kind == "uncopied") world.kept.files.clear();
  if (kind == "uncopied" || kind == "unmarked") world.kept.Drop(u"BootOptionRestored");
  if (kind == "restored" || kind == "long") world.kept.variables.clear();
  if (kind == "full") {
    world.hardware.nvram = Place(Description(world.hardware), world.kept)->Variables().Used(true) + Detail(name);
  }
  if (kind == "renumbered") {
    world.hardware.stbu = true;
    world.kept.Drop(u"Setup");
  }
  if (kind == "overridden") {
    std::string error;
    const std::vector<std::string> words =
        csm ? std::vector<std::string>{"pxe"} : std::vector<std::string>{"pxe", "efi"};
    if (!SetBootFlags(world.kept.bmc, words, error)) throw StateError(error);
    const auto server = Place(Description(world.hardware), world.kept);
    server->Boot({});
    world.kept = Take(*server);
  }
  if (kind == "damaged") Damage(world, Detail(name));
  if (kind == "foreign") NoteUsersOrder(world);
  return world;
}

std::uint16_t PairServer::NetworkOption(const Kept& kept, bool legacy) {
  for (const std::uint16_t number : kept.Order()) {
    const Bytes* bytes = kept.Find(OptionVariable(number));
    const auto option = bytes == nullptr ? std::nullopt : ParseLoadOption(*bytes);
    if (!option || option->paths.empty()) continue;
    for (const auto& path : option->paths) {  // the first may be the mask
      if (DevicePathToUtf8(path).find(legacy ? "BBS(0x80" : "IPv4(") != std::string::npos) return number;
    }
  }
  return 0;
}

void PairServer::Happen(const std::string& event, World& world) {
  Kept& kept = world.kept;
  // Whoever adds an option found the room for it.
  if (event == "install" || event == "append" || event == "replace") world.hardware.nvram += 300;
  if (event == "install") Add(world, kInstalled, 0, 2);
  if (event == "append") Add(world, kInstalled, 0xFFFF, 2);
  if (event == "reorder") {
    std::vector<std::uint16_t> order = kept.Order();
    std::ranges::reverse(order);
    kept.PutOrder(order);
  }
  if (event == "unplug") world.hardware.secondDisk = false;
  if (event == "plug") world.hardware.stick = true;
  if (event == "delete") {
    std::vector<std::uint16_t> order = kept.Order();
    const auto gone = std::ranges::find_if(
        order, [&](std::uint16_t number) { return world.UsersNumber(OptionBytes(kept, number)) == kOther; });
    if (gone != order.end()) {
      kept.Drop(OptionVariable(*gone));
      order.erase(gone);
    }
    kept.PutOrder(order);
    world.users.erase(kOther);
  }
  if (event == "withdraw") {  // what ipmitool's "bootdev none" sends
    kept.bmc.bootFlags = {BmcState::kValid, 0, 0, 0, 0};
    kept.bmc.acknowledge = 1;
  }
  const std::uint16_t replaced = event == "replace" ? NetworkOption(kept, world.hardware.csm) : 0;
  if (replaced != 0) {
    world.users[replaced] = UsersOption(replaced, 2);
    kept.Put(OptionVariable(replaced), world.users[replaced]);
  }
  if (event == "install") world.usersOrder.insert(world.usersOrder.begin(), kInstalled);
  if (event == "append") world.usersOrder.push_back(kInstalled);
  if (event == "delete") std::erase(world.usersOrder, kOther);
  if (event == "reorder" || event == "replace") world.usersOrder.clear();  // follows from the boot before
}

void PairServer::Write(const World& world, const std::filesystem::path& folder) const {
  std::filesystem::create_directories(folder);
  using enum std::filesystem::copy_options;
  std::filesystem::copy(folder_, folder, overwrite_existing | recursive);
  std::ofstream(folder / "server.toml") << Text(world.hardware);
  Place(LoadServerDescription(folder / "server.toml"), world.kept, folder / "state");
}

}  // namespace sim::test

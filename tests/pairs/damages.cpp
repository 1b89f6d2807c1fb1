#include "tests/pairs/damages.h"

#include <random>

namespace sim::test {
namespace {

using Random = std::mt19937;
constexpr std::uint16_t kBad = 0x0200;
constexpr EFI_GUID kIpmiGuid{0x842680F2, 0x1A9C, 0x48E6, {0xA4, 0x33, 0xBE, 0x9A, 0xCB, 0x0D, 0xD4, 0x38}};
constexpr EFI_GUID kLegacyOrderGuid{0xA56074DB, 0x65FE, 0x45F7, {0xBD, 0x21, 0x2D, 0x2B, 0xDD, 0x8E, 0x96, 0x52}};
constexpr EFI_GUID kRestoredGuid{0x9DAE27E6, 0x9CC9, 0x4972, {0xBC, 0xDB, 0x82, 0x45, 0x73, 0xA2, 0xC2, 0xF6}};

std::size_t Below(Random& random, std::size_t limit) { return random() % limit; }
Bytes Noise(Random& random, std::size_t size) {
  Bytes bytes(size);
  for (std::byte& byte : bytes) byte = static_cast<std::byte>(random());
  return bytes;
}
const Bytes& Good(const World& world) { return world.users.begin()->second; }

// A load option that is none, the first of the order.
void PutFirst(World& world, const Bytes& image) {
  std::vector<std::uint16_t> order = world.kept.Order();
  order.insert(order.begin(), kBad);
  world.kept.Put(OptionVariable(kBad), image);
  world.kept.PutOrder(order);
}
void CutOption(World& world, Random& random) {
  const Bytes& good = Good(world);
  PutFirst(world, {good.begin(), good.begin() + static_cast<std::ptrdiff_t>(1 + Below(random, good.size() - 1))});
}
void NoOption(World& world, Random& random) { PutFirst(world, Noise(random, 1 + Below(random, 400))); }
void ChangedOption(World& world, Random& random) {
  Bytes image = Good(world);
  image[Below(random, image.size())] ^= static_cast<std::byte>(1U << Below(random, 8));
  image[Below(random, image.size())] = static_cast<std::byte>(random());
  if (Below(random, 8) == 0) image.resize(60000);
  PutFirst(world, image);
}
void LyingGroup(World& world, Random& random) {
  const Bytes& good = Good(world);
  Bytes image = good;
  const auto add = [&image](std::initializer_list<int> bytes) {
    for (const int byte : bytes) image.push_back(static_cast<std::byte>(byte));
  };
  add({0, 0, 0x47, 0x4F});
  for (std::size_t member = 0; member <= Below(random, 3); ++member) {
    const std::uint32_t lengths[] = {0, 7, 8, 9, 50, 0xFFFFFFFF, static_cast<std::uint32_t>(good.size() + 8)};
    add({0, 0, 0x4E, 0x4F});
    image.resize(image.size() + sizeof(std::uint32_t));
    Put<std::uint32_t>(image, image.size() - sizeof(std::uint32_t), lengths[Below(random, std::size(lengths))]);
    image.insert(image.end(), good.begin(), good.begin() + static_cast<std::ptrdiff_t>(Below(random, good.size())));
  }
  PutFirst(world, image);
}
void OddOrder(World& world, Random& random) {
  std::vector<std::uint16_t> order = world.kept.Order();
  const std::size_t kind = Below(random, 3);
  if (kind == 0) {
    Bytes bytes = *world.kept.Find(u"BootOrder");
    bytes.push_back(std::byte{7});
    return world.kept.Put(u"BootOrder", bytes);
  }
  if (kind == 1) {
    const std::vector<std::uint16_t> once = order;
    order.insert(order.end(), once.begin(), once.end());
  }
  for (std::uint32_t number = 0x8000; kind == 2 && number <= 0x8000 + 2000; ++number) {
    order.push_back(static_cast<std::uint16_t>(number == 0x8000 + 2000 ? 0xFFFF : number));
  }
  world.kept.PutOrder(order);
}
void OwnVariable(World& world, Random& random) {
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
  const auto& variable = variables[Below(random, std::size(variables))];
  Bytes noise = Noise(random, 1 + Below(random, 80));
  // The number of an option of the user's before the bytes that are none.
  if (noise.size() > 1) Put<std::uint16_t>(noise, 0, world.users.begin()->first);
  world.kept.Put(variable.name, noise, variable.guid);
}
void BmcFile(World& world, Random& random) {
  Kept& kept = world.kept;
  auto file = kept.files.begin();
  std::advance(file, Below(random, kept.files.size()));
  const std::size_t sizes[] = {0, 1, file->second.size() / 2, file->second.size() + 1, 65536, 65537};
  file->second.resize(sizes[Below(random, std::size(sizes))], static_cast<std::uint8_t>(random()));
  if (Below(random, 2) == 0) std::ranges::generate(file->second, [&] { return static_cast<std::uint8_t>(random()); });
  for (std::uint8_t& byte : kept.bmc.bootFlags) byte = static_cast<std::uint8_t>(random() & 0x7F);
  kept.bmc.acknowledge = static_cast<std::uint8_t>(random());
  switch (Below(random, 3)) {
    case 0:  // what was lost with NVRAM may be lost with its copy too
      kept.variables.clear();
      world.users.clear();
      world.usersOrder.clear();
      break;
    case 1:
      kept.Drop(u"BootOptionRestored");
      break;
    default:
      break;
  }
}
void Surroundings(World& world, Random& random) {
  if (!world.hardware.csm || Below(random, 2) == 0) {
    world.hardware.firstDisk = fmt::format("disk1-{}.img", kCutDisks[Below(random, std::size(kCutDisks))]);
    return;
  }
  const std::uint32_t pointers[] = {0, 1, 0x0FFF, 0xFFFFFFFF, 0xFFFF0010, 0xF000FFFF, 0x00FF0FFF};
  const std::uint32_t pointer = pointers[Below(random, std::size(pointers))];
  world.hardware.bbsEntry = fmt::format(
      "[[csm.entry]]\nclass = 1\nsubclass = 4\ndescription_pointer = {0}\nmanufacturer_pointer = {0}", pointer);
}

constexpr void (*kDamages[])(World&, Random&) = {CutOption, NoOption,    ChangedOption, LyingGroup,
                                                 OddOrder,  OwnVariable, BmcFile,       Surroundings};

}  // namespace

void Damage(World& world, unsigned number) {
  Random random(number);
  kDamages[number % std::size(kDamages)](world, random);
}

}  // namespace sim::test

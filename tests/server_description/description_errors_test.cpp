// Every mistake in a description is told with file, line, key and what was expected.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/server/description.h"

namespace sim {
namespace {

std::string ErrorOf(std::string_view text) {
  try {
    static_cast<void>(ParseServerDescription(text, "rack.toml", "."));
  } catch (const DescriptionError& error) {
    return error.what();
  }
  return "no error";
}

struct ErrorCase {
  const char* text;
  const char* begin;  // file, line and key
  const char* part;   // what was expected
};

void Check(std::span<const ErrorCase> cases) {
  for (const ErrorCase& each : cases) {
    const std::string error = ErrorOf(each.text);
    EXPECT_THAT(error, testing::StartsWith(each.begin)) << each.text;
    EXPECT_THAT(error, testing::HasSubstr(each.part)) << each.text;
  }
}

TEST(DescriptionErrors, UnknownKeysNameTheKnownOnes) {
  const ErrorCase cases[] = {
      {"name = \"a\"\nnmae = \"b\"\n", "rack.toml:2: nmae: ", "unknown key; known here: "},
      {"\n[setup]\nuefi_mod = 1\n", "rack.toml:3: setup.uefi_mod: ", "uefi_mode"},
      {"[nvram]\nsiez = 1\n", "rack.toml:2: nvram.siez: ", "size"},
      {"[bmc]\nfile = true\n", "rack.toml:2: bmc.file: ", "files"},
      {"[csm]\n[[csm.entry]]\n[[csm.entry]]\nidx = 1\n", "rack.toml:4: csm.entry[1].idx: ", "index"},
      {"[firmware]\n[[firmware.memory_type]]\ntype = 4\npages = 1\nuse = 2\n",
       "rack.toml:5: firmware.memory_type[0].use: ", "used"},
      {"[[root_bridge]]\nbuses = 1\n", "rack.toml:2: root_bridge[0].buses: ", "first_bus"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"vga\"\ndevice = 1\nport = 2\n",
       "rack.toml:5: root_bridge[0].function[0].port: ", "width"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"ahci\"\ndevice = 1\n[[root_bridge.function.sata]]\n"
       "port = 0\nslot = 1\n",
       "rack.toml:7: root_bridge[0].function[0].sata[0].slot: ", "multiplier_port"},
      {"[front_end]\nkind = \"menu\"\ntimeout = 3\n", "rack.toml:3: front_end.timeout: ", "kind"},
  };
  Check(cases);
}

TEST(DescriptionErrors, WrongTypesNameTheRightOne) {
  const ErrorCase cases[] = {
      {"name = 1\n", "rack.toml:1: name: expected ", "a text"},
      {"usb_support = 1\n", "rack.toml:1: usb_support: expected ", "true or false"},
      {"setup = 1\n", "rack.toml:1: setup: expected ", "a table"},
      {"root_bridge = 1\n", "rack.toml:1: root_bridge: expected ", "[[root_bridge]]"},
      {"[root_bridge]\nuid = 1\n", "rack.toml:1: root_bridge: expected ", "[[root_bridge]]"},
      {"[setup]\nuefi_mode = true\n", "rack.toml:2: setup.uefi_mode: expected ", "a number from 0 to 255"},
      {"[setup]\nuefi_mode = 1.0\n", "rack.toml:2: setup.uefi_mode: expected ", "a number from 0 to 255"},
      {"[setup]\noption_rom_policy = 2\n", "rack.toml:2: setup.option_rom_policy: expected ", "a list of numbers"},
      {"[setup]\noption_rom_policy = [1, \"2\"]\n", "rack.toml:2: setup.option_rom_policy: expected ", "a number"},
      {"[nvram]\ninitial = []\n", "rack.toml:2: nvram.initial: expected ", "a text"},
  };
  Check(cases);
}

TEST(DescriptionErrors, NumbersOutOfRangeNameTheRange) {
  const ErrorCase cases[] = {
      {"[setup]\nuefi_mode = 256\n", "rack.toml:2: setup.uefi_mode: expected ", "from 0 to 255"},
      {"[setup]\nuefi_mode = -1\n", "rack.toml:2: setup.uefi_mode: expected ", "from 0 to 255"},
      {"[setup]\noption_rom_policy = [0, 1]\n", "rack.toml:2: setup.option_rom_policy: expected ", "6 numbers"},
      {"[nvram]\nsize = 1023\n", "rack.toml:2: nvram.size: expected ", "from 1024 to 0x1000000"},
      {"[csm]\n[[csm.entry]]\nindex = 256\n", "rack.toml:3: csm.entry[0].index: expected ", "from 0 to 255"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"isa\"\ndevice = 32\n",
       "rack.toml:4: root_bridge[0].function[0].device: expected ", "from 0 to 31"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"isa\"\ndevice = 1\nnumber = 8\n",
       "rack.toml:5: root_bridge[0].function[0].number: expected ", "from 0 to 7"},
      {"[[driver_health]]\ndevice = 1\nstatuses = [6]\n", "rack.toml:3: driver_health[0].statuses: expected ",
       "from 0 to 5"},
      {"[[driver_health]]\ndevice = 1\nstatuses = []\n", "rack.toml:3: driver_health[0].statuses: expected ", "a list"},
      {"[[root_bridge]]\n[[driver_health]]\ndevice = 1\nroot_bridge = 1\nstatuses = [0]\n",
       "rack.toml:4: driver_health[0].root_bridge: expected ", "a described root bridge"},
  };
  Check(cases);
}

TEST(DescriptionErrors, MissingKeysAndUnknownWords) {
  const ErrorCase cases[] = {
      {"\n[[root_bridge]]\n[[root_bridge.function]]\ndevice = 1\n",
       "rack.toml:3: root_bridge[0].function[0]: expected ", "the key 'kind'"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"isa\"\n",
       "rack.toml:2: root_bridge[0].function[0]: ", "the key 'device', a number from 0 to 31"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"tape\"\ndevice = 1\n",
       "rack.toml:3: root_bridge[0].function[0].kind: expected ", "one of \"isa\", \"ahci\""},
      {"[front_end]\nkind = \"Menu\"\n", "rack.toml:2: front_end.kind: expected ", "\"absent\", \"returns\""},
      {"[bmc]\nipmi = \"tcp://x\"\n", "rack.toml:2: bmc.ipmi: expected ", "vm://127.0.0.1:PORT"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"network\"\ndevice = 1\nmac = \"02:00:00:00:00\"\n",
       "rack.toml:5: root_bridge[0].function[0].mac: expected ", "six hexadecimal bytes"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"network\"\ndevice = 1\nmac = \"02:00:00:00:00:01:02\"\n",
       "rack.toml:5: root_bridge[0].function[0].mac: expected ", "six hexadecimal bytes"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"network\"\ndevice = 1\nmac = \"-1:+2:0x: 4:05:06\"\n",
       "rack.toml:5: root_bridge[0].function[0].mac: expected ", "six hexadecimal bytes"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"network\"\ndevice = 1\nmac = \"02:00:00:00:00:0a\"\n"
       "[[root_bridge.function]]\nkind = \"network\"\ndevice = 2\nmac = \"02:00:00:00:00:0A\"\n",
       "rack.toml:9: root_bridge[0].function[1].mac: expected ", "another port has this one"},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"vga\"\ndevice = 1\n[[root_bridge.function.namespace]]\n",
       "rack.toml:5: root_bridge[0].function[0].namespace: expected ",
       "behind a function of kind \"nvme\"; the function begun last is of kind \"vga\""},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"nvme\"\ndevice = 1\n[[root_bridge.function.namespace]]\n"
       "eui64 = \"0x10000000000000000\"\n",
       "rack.toml:6: root_bridge[0].function[0].namespace[0].eui64: expected ", "0xFFFFFFFFFFFFFFFF"},
  };
  Check(cases);
}

TEST(DescriptionErrors, FilesThatAreNotThere) {
  const std::string sata =
      "[[root_bridge]]\n[[root_bridge.function]]\nkind = \"ahci\"\ndevice = 1\n"
      "[[root_bridge.function.sata]]\nport = 0\n";
  const std::string image = sata + "image = \"no/such.img\"\n";
  const std::string folder = sata + "folder = \"no/such\"\n";
  const std::string noImage = sata + "image = \".\"\n";
  const std::string both = sata + "folder = \".\"\nimage = \"a\"\n";
  const ErrorCase cases[] = {
      {"[nvram]\ninitial = \"no/such\"\n", "rack.toml:2: nvram.initial: expected ", "an existing folder"},
      {"[firmware]\nshell = \"no/such.efi\"\n", "rack.toml:2: firmware.shell: expected ", "an existing file"},
      {image.c_str(), "rack.toml:7: root_bridge[0].function[0].sata[0].image: expected ", "a readable disk image"},
      {noImage.c_str(), "rack.toml:7: root_bridge[0].function[0].sata[0].image: expected ", "this is a folder"},
      {folder.c_str(), "rack.toml:7: root_bridge[0].function[0].sata[0].folder: expected ", "an existing folder"},
      {both.c_str(), "rack.toml:7: root_bridge[0].function[0].sata[0].folder: expected ", "not both"},
  };
  Check(cases);
}

TEST(DescriptionErrors, TwoDevicesInOnePlace) {
  const ErrorCase cases[] = {
      {"name = \"a\"\n[[root_bridge]]\n[[root_bridge.function]]\nkind = \"isa\"\ndevice = 1\n"
       "[[root_bridge.function]]\nkind = \"vga\"\ndevice = 1\n",
       "rack.toml:6: root_bridge[0].function[1]: expected ", "devices that fit together: "},
      {"[[root_bridge]]\n[[root_bridge.function]]\nkind = \"ahci\"\ndevice = 1\n[[root_bridge.function.sata]]\nport = "
       "4\n"
       "[[root_bridge.function.sata]]\nport = 4\n",
       "rack.toml:2: root_bridge[0].function[0]: expected ", "devices that fit together: "},
      {"[[root_bridge]]\n[[root_bridge]]\n", "rack.toml:2: root_bridge[1].first_bus: expected ", "buses of its own"},
      {"[[root_bridge]]\nlast_bus = 64\n[[root_bridge]]\nfirst_bus = 64\n",
       "rack.toml:4: root_bridge[1].first_bus: expected ", "root bridge 0 has 0 to 64"},
      {"[[root_bridge]]\nuid = 3\nlast_bus = 3\n[[root_bridge]]\nuid = 3\nfirst_bus = 4\n",
       "rack.toml:4: root_bridge[1]: expected ", "devices that fit together: "},
  };
  Check(cases);
}

TEST(DescriptionErrors, SlotsThatCannotBe) {
  const std::string bridges = "root_bridge = [{last_bus = 0x7F}, {first_bus = 0x80}]\n";
  const std::string twice = bridges + "[[slot]]\nnumber = 3\n[[slot]]\nnumber = 3\n";
  const std::string risers = bridges + "[[slot]]\nnumber = 1\nriser = true\n[[slot]]\nnumber = 2\nriser = true\n";
  const std::string taken = bridges + "[[slot]]\nnumber = 5\n[[slot]]\nnumber = 2\nriser = true\n";
  const std::string port =
      bridges + "[[slot]]\nnumber = 4\nfunction = [{kind = \"nvme\", device = 0, root_port = 1}]\n";
  const std::string high = bridges + "[[slot]]\nnumber = 3\nriser = true\n";
  const ErrorCase cases[] = {
      {"[[root_bridge]]\n[[slot]]\nnumber = 7\n", "rack.toml:3: slot[0].number: expected ", "from 1 to 6"},
      {"[[root_bridge]]\n[[slot]]\nnumber = 2\n", "rack.toml:2: slot[0]: expected ", "whose first bus is 0x80"},
      {twice.c_str(), "rack.toml:4: slot[1]: expected ", "described twice"},
      {risers.c_str(), "rack.toml:5: slot[1]: expected ", "one riser"},
      {taken.c_str(), "rack.toml:4: slot[1]: expected ", "the place is taken"},
      {port.c_str(), "rack.toml:2: slot[0]: expected ", "one root port, 0, without a riser"},
      {high.c_str(), "rack.toml:2: slot[0]: expected ", "slot 1 or 2"},
  };
  Check(cases);
}

TEST(DescriptionErrors, NamesAndPathsOfAnotherShape) {
  const std::string function = "root_bridge = [{function = [{kind = ";
  const std::string name = function + "\"fc\", device = 1, lun = [{wwpn = \"50:06:01\"}]}]}]\n";
  const std::string units =
      function + "\"ehci\", device = 1, usb = [{port = 1, unit = [{number = 1}, {number = 1}]}]}]}]\n";
  const ErrorCase cases[] = {
      {name.c_str(), "rack.toml:1: root_bridge[0].function[0].lun[0].wwpn: expected ", "eight hexadecimal bytes"},
      {units.c_str(), "rack.toml:1: root_bridge[0].function[0].usb[0].unit[1].number: expected ", "no other unit"},
      {"[[nvram.option]]\nnumber = 1\nname = \"a\"\npath = \"Pci(x)\"\n",
       "rack.toml:4: nvram.option[0].path: expected ", "a device path"},
      {"[bmc]\npolicy = \"no/such.xml\"\n", "rack.toml:2: bmc.policy: expected ", "an existing file"},
  };
  Check(cases);
}

TEST(DescriptionErrors, TextThatIsNoToml) {
  const ErrorCase cases[] = {
      {"name = \"a\"\nname = \"b\"\n", "rack.toml:2: description: ", "name"},
      {"\n\n[setup\n", "rack.toml:3: description: ", ""},
      {"\nname = \"a\n[setup]\n", "rack.toml:2: description: ", "closed by a quote on its own line"},
      {"name = \"a\x01\"\n", "rack.toml:1: description: ", "control characters"},
      {"name = a\n", "rack.toml:1: description: ", "a text stands in quotes"},
      {"name = \"a\xFF\"\n", "rack.toml:1: description: ", ""},
  };
  Check(cases);
}

TEST(DescriptionErrors, AFileThatIsNotThere) {
  try {
    static_cast<void>(LoadServerDescription("no/such/rack.toml"));
    FAIL() << "no error";
  } catch (const DescriptionError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("no/such/rack.toml"));
    EXPECT_THAT(error.what(), testing::HasSubstr("cannot be read"));
  }
}

}  // namespace
}  // namespace sim

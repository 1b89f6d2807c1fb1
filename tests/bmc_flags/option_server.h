// A server's options of every kind that a boot request can mean, each with its name and number.
#pragma once

#include <cstring>
#include <deque>

#include "bmc/steps.h"
#include "platform/device_path.h"
#include "support/text.h"
#include "tests/support/bmc_fixture.h"

namespace test {

class OptionServer : public BmcFixture {
 protected:
  static Bytes Node(std::uint8_t type, std::uint8_t subType, const Bytes& body) {
    Bytes node{type, subType, static_cast<std::uint8_t>(body.size() + 4), 0};
    node.insert(node.end(), body.begin(), body.end());
    return node;
  }
  static Bytes Join(std::initializer_list<Bytes> nodes) {
    Bytes path;
    for (const Bytes& node : nodes) {
      path.insert(path.end(), node.begin(), node.end());
    }
    return path;
  }
  static Bytes Pci() { return Node(1, 1, {0, 0x1F}); }
  static Bytes Usb() { return Node(3, 5, {1, 0}); }
  static Bytes Mac() { return Node(3, 11, Bytes(33)); }
  static Bytes Ipv4() { return Node(3, 12, Bytes(23)); }
  static Bytes Disk() { return Node(4, 1, Bytes(38)); }
  static Bytes Cdrom() { return Node(4, 2, Bytes(20)); }
  static Bytes Loader() { return Node(4, 4, {'a', 0, 0, 0}); }
  static Bytes Acpi(std::uint32_t hid) {
    return Node(2, 1,
                {static_cast<std::uint8_t>(hid), static_cast<std::uint8_t>(hid >> 8),
                 static_cast<std::uint8_t>(hid >> 16), static_cast<std::uint8_t>(hid >> 24), 0, 0, 0, 0});
  }

  bds::BOOT_OPTION& Add(const char16_t* name, const Bytes& nodes) {
    bds::BOOT_OPTION* option = bds::CreateBootOption(bds::BootOptionList);
    option->Description = bds::CopyText(name, bds::TextLength(name));
    Bytes path = nodes;
    path.insert(path.end(), {0x7F, 0xFF, 4, 0});
    option->FilePathList.reset(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(bds::AllocatePool(path.size())));
    std::memcpy(option->FilePathList.get(), path.data(), path.size());
    option->FilePathListLength = path.size();
    option->BootOptionNumber = nextNumber;
    option->Priority = nextNumber * 256U;
    option->Tag = 0x50000U + nextNumber;
    ++nextNumber;
    return *option;
  }
  // A legacy option of a BBS type with its entry; usb sets the entry's class.
  bds::BOOT_OPTION& AddLegacy(const char16_t* name, std::uint16_t type, bool usb = false) {
    bds::BOOT_OPTION& option =
        Add(name, Node(5, 1, {static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(type >> 8), 0, 0, 0}));
    BBS_TABLE& entry = entries.emplace_back();
    entry.DeviceType = type;
    entry.Class = usb ? 0x0C : 0x01;
    entry.SubClass = usb ? 0x03 : 0x06;
    option.BbsEntry = &entry;
    option.BbsIndex = static_cast<UINT16>(entries.size());
    return option;
  }
  // The options with Tag 1 in list order, with their priorities: "name=0 other=1".
  std::string Front() {
    std::string text;
    for (const bds::BOOT_OPTION* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
      if (option->Tag != 1) {
        continue;
      }
      text += text.empty() ? "" : " ";
      for (const char16_t* c = option->Description.get(); *c != 0; ++c) {
        text += static_cast<char>(*c);
      }
      text += "=" + std::to_string(option->Priority);
    }
    return text;
  }

  std::uint16_t nextNumber = 1;
  std::deque<BBS_TABLE> entries;  // side by side as in the real table: every other one lies at an odd address
};

inline constexpr EFI_GUID kIpmiGuid{0x842680F2, 0x1A9C, 0x48E6, {0xA4, 0x33, 0xBE, 0x9A, 0xCB, 0x0D, 0xD4, 0x38}};

}  // namespace test

// What a server description says of the legacy side: whether there is a CSM and which BBS entries it shows.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sim {

// One BBS entry given by hand; whatever is not said keeps the value that a CSM would give it.
struct BbsEntryDescription {
  std::optional<std::uint8_t> index;    // place in the table; else the first free one from 25 on
  std::uint16_t bootPriority = 0xFFFE;  // not prioritised
  std::uint32_t bus = 0xFFFFFFFF;       // all ones: no PCI location
  std::uint32_t device = 0xFFFFFFFF;
  std::uint32_t function = 0xFFFFFFFF;
  std::uint8_t classCode = 0;
  std::uint8_t subClass = 0;
  std::uint16_t deviceType = 2;        // hard disk
  std::uint16_t statusFlags = 0x0900;  // enabled, media present
  std::uint8_t driveNumber = 0x80;
  bool bootHandler = true;  // it has code that boots it; without, it is there and cannot be booted
  std::string description;  // empty: no string
  std::string manufacturer;
  std::optional<std::uint32_t> descriptionPointer;  // segment << 16 | offset, whatever lies there
  std::optional<std::uint32_t> manufacturerPointer;
  std::string devicePath;  // text of the device path whose handle goes into IBV1/IBV2
};

struct CsmDescription {
  bool present = false;
  bool entriesFromDevices = true;  // disks, drives and network functions appear by themselves
  std::vector<BbsEntryDescription> entries;
};

}  // namespace sim

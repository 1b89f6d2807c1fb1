// The server's six PCI slots: where each one's root port lies, and how a slot is put into a device tree.
//   PlugSlot(tree, {.number = 3, .functions = {{VirtualNic(0, 0, mac)}}});
#pragma once

#include <array>
#include <string>

#include "sim/bus/device_tree.h"

namespace sim {

struct SlotPlace {
  const char16_t* name;
  std::uint8_t bus;  // of the root port, as are device and function
  std::uint8_t device;
  std::uint8_t function;
};
// Slots 1 to 6 in order. Bus 0x80 is the first one behind the second processor's root bridge.
inline constexpr std::array kSlotPlaces{
    SlotPlace{u"SlotID:1", 0x00, 0x03, 0},          SlotPlace{u"SlotID:2", 0x80, 0x02, 0},
    SlotPlace{u"SlotID:MLOM", 0x00, 0x02, 0},       SlotPlace{u"SlotID:HBA", 0x00, 0x02, 2},
    SlotPlace{u"SlotID:FrontPCIe1", 0x80, 0x02, 2}, SlotPlace{u"SlotID:FrontPCIe2", 0x80, 0x02, 3},
};
// A riser, which slots 1 and 2 may hold, spreads its slot over three root ports: functions f, f + 2 and f + 4.
inline constexpr std::size_t kRiserPorts = 3;
inline constexpr std::uint8_t kRiserStep = 2;
inline constexpr std::uint8_t kLastRiserSlot = 2;

struct PciSlot {
  std::uint8_t number = 1;
  bool enabled = true;  // false: its root ports are switched off, and nothing behind them is there
  bool riser = false;
  std::array<std::vector<PciFunction>, kRiserPorts> functions;  // behind each root port; the first one's alone, or all
  SlotTold told;
};

// Adds the slot's root ports with what is behind them to the tree's root bridges, and the slot to its records. The
// fault as a text, and nothing added, when the slot cannot be there: no such number, no root bridge of its bus, a
// second riser, functions behind root ports that it does not have. Empty: done.
[[nodiscard]] std::string PlugSlot(DeviceTree& tree, PciSlot slot);

}  // namespace sim

// What the two directions of the device path texts share: names, GUIDs and nodes without a declaration elsewhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/device_path.h"

namespace sim {

#pragma pack(push, 1)
// Memory mapped node (UEFI 2.10, 10.3.2.3).
struct MemoryMappedNode {
  EFI_DEVICE_PATH_PROTOCOL header;
  std::uint32_t memoryType;
  std::uint64_t start;
  std::uint64_t end;
};
static_assert(sizeof(MemoryMappedNode) == 24);

// Serial attached SCSI as a vendor-defined messaging node (UEFI 2.10, 10.3.4.17).
struct SasNode {
  EFI_DEVICE_PATH_PROTOCOL header;
  EFI_GUID guid;
  std::uint32_t reserved;
  std::uint64_t address;
  std::uint64_t lun;
  std::uint16_t topology;
  std::uint16_t relativeTargetPort;
};
static_assert(sizeof(SasNode) == 44);
#pragma pack(pop)

inline constexpr EFI_GUID kSasGuid{0xD487DDB4, 0x008B, 0x11D9, {0xAF, 0xDC, 0x00, 0x10, 0x83, 0xFF, 0xCA, 0x4D}};
inline constexpr EFI_GUID kUartFlowControlGuid{
    0x37499A9D, 0x542F, 0x4C89, {0xA0, 0x26, 0x35, 0xDA, 0x14, 0x20, 0x94, 0xE4}};

struct TerminalKind {
  EFI_GUID guid;
  const char* name;
};
inline constexpr TerminalKind kTerminals[] = {
    {{0xE0C14753, 0xF9BE, 0x11D2, {0x9A, 0x0C, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}}, "VenPcAnsi"},
    {{0xDFA66065, 0xB419, 0x11D3, {0x9A, 0x2D, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0x4D}}, "VenVt100"},
    {{0x7BAEC70B, 0x57E0, 0x4C76, {0x8E, 0x87, 0x2F, 0x9E, 0x28, 0x08, 0x83, 0x43}}, "VenVt100Plus"},
    {{0xAD15A0D6, 0x8BEC, 0x4ACF, {0xA0, 0x73, 0xD0, 0x1D, 0xE7, 0x7E, 0x2D, 0x88}}, "VenUtf8"},
    {{0xEBA4E8D2, 0x3858, 0x41EC, {0xA2, 0x81, 0x26, 0x47, 0xBA, 0x96, 0x60, 0xD0}}, "DebugPort"},
};
inline const char* TerminalName(const EFI_GUID& guid) {
  for (const TerminalKind& each : kTerminals) {
    if (each.guid == guid) {
      return each.name;
    }
  }
  return nullptr;
}
inline constexpr const char* kFlowControlNames[] = {"None", "Hardware", "XonXoff"};

struct AcpiName {
  std::uint32_t hid;
  const char* name;
};
inline constexpr AcpiName kAcpiNames[] = {
    {0x0A0341D0, "PciRoot"},  {0x0A0841D0, "PcieRoot"}, {0x060441D0, "Floppy"},
    {0x030141D0, "Keyboard"}, {0x050141D0, "Serial"},   {0x040141D0, "ParallelPort"},
};

inline constexpr int kAnySubClass = -1;
struct UsbClassName {
  std::uint8_t deviceClass;
  int subClass;  // kAnySubClass: the text tells it
  const char* name;
};
inline constexpr UsbClassName kUsbClassNames[] = {
    {1, kAnySubClass, "UsbAudio"},        {2, kAnySubClass, "UsbCDCControl"},
    {3, kAnySubClass, "UsbHID"},          {6, kAnySubClass, "UsbImage"},
    {7, kAnySubClass, "UsbPrinter"},      {8, kAnySubClass, "UsbMassStorage"},
    {9, kAnySubClass, "UsbHub"},          {10, kAnySubClass, "UsbCDCData"},
    {11, kAnySubClass, "UsbSmartCard"},   {14, kAnySubClass, "UsbVideo"},
    {220, kAnySubClass, "UsbDiagnostic"}, {224, kAnySubClass, "UsbWireless"},
    {254, 1, "UsbDeviceFirmwareUpdate"},  {254, 2, "UsbIrdaBridge"},
    {254, 3, "UsbTestAndMeasurement"},
};

inline constexpr const char* kIp6Origins[] = {"Static", "StatelessAutoConfigure", "StatefulAutoConfigure"};
inline constexpr char kParityLetters[] = "DNEOMS";
inline constexpr const char* kStopBits[] = {"D", "1", "1.5", "2"};

struct BbsType {
  std::uint16_t type;
  const char* name;
};
inline constexpr BbsType kBbsTypes[] = {
    {BBS_TYPE_FLOPPY, "Floppy"}, {BBS_TYPE_HARDDRIVE, "HD"}, {BBS_TYPE_CDROM, "CDROM"},
    {BBS_TYPE_PCMCIA, "PCMCIA"}, {BBS_TYPE_USB, "USB"},      {BBS_TYPE_EMBEDDED_NETWORK, "Network"},
};
inline const char* BbsTypeName(std::uint16_t type) {
  for (const BbsType& each : kBbsTypes) {
    if (each.type == type) {
      return each.name;
    }
  }
  return nullptr;
}

// A text as one argument: in quotes when it holds a character that would end the argument or the node.
inline std::string Quoted(const std::string& text) {
  return text.find_first_of(",()/\\\"") == std::string::npos && !text.empty() ? text : "\"" + text + "\"";
}

}  // namespace sim

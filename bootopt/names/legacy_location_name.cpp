// The names under which the BMC knows legacy devices.
#include "bootopt/bbs_table.h"
#include "bootopt/names/bbs_names.h"
#include "support/format.h"
#include "support/legacy_memory.h"
#include "support/memory.h"

namespace bds {
namespace {

constexpr UINTN kDescriptionLimit = 32;

struct LocationRow {
  UINT8 Code;
  const char* Place;
};
constexpr LocationRow kLocations[] = {{1, "Primary Master "},  {2, "Primary Slave "}, {3, "Secondary Master "},
                                      {4, "Secondary Slave "}, {5, "SATA Port 0 "},   {6, "SATA Port 1 "},
                                      {7, "SATA Port 2 "},     {8, "SATA Port 3 "},   {10, "Virtual Device "}};

struct TypeWordRow {
  UINT16 DeviceType;
  const char* Word;
};
constexpr TypeWordRow kTypeWords[] = {
    {BBS_TYPE_FLOPPY, "Floppy"},
    {BBS_TYPE_HARDDRIVE, "Hard Disk"},
    {BBS_TYPE_CDROM, "CD-ROM"},
    {BBS_TYPE_PCMCIA, "PCMCIA"},
    {BBS_TYPE_USB, "USB"},
    {BBS_TYPE_EMBEDDED_NETWORK, "Network"},
    {BBS_TYPE_BEV, "Boot Entry Vector (BEV)"},
};

const char* TypeWord(UINT16 deviceType) {
  for (const TypeWordRow& row : kTypeWords) {
    if (row.DeviceType == deviceType) {
      return row.Word;
    }
  }
  return "Unknown";
}

const char* PlaceOf(UINT8 locationCode) {
  for (const LocationRow& row : kLocations) {
    if (row.Code == locationCode) {
      return row.Place;
    }
  }
  return "";
}

}  // namespace

UINTN BuildLegacyLocationName(const BBS_TABLE& entry, UINT8 locationCode, std::span<char> text) {
  char description[kDescriptionLimit + 1] = {};
  const auto found = LegacyString(entry.DescStringSegment, entry.DescStringOffset, kDescriptionLimit);
  CopyMemory(description, found.data(), found.size());
  const char* name = found.empty() ? TypeWord(entry.DeviceType) : description;
  return FormatAscii(text.first(text.size() < kLegacyLocationNameCapacity ? text.size() : kLegacyLocationNameCapacity),
                     "%a%a", PlaceOf(locationCode), name);
}

}  // namespace bds

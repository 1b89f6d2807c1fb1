// The boot order table (BOT): the picture of the boot order that the firmware and the BMC exchange.
//
// Header, then the first section: entries of code, count and items, the SYS entry first, ended by FF 00; then, up to
// Length, the second section: a name record for each item. All bytes of the table sum to 0.
#pragma once

#include "platform/device_path.h"
#include "platform/flexboot_protocol.h"
#include "support/byte_reader.h"

namespace bds {

#pragma pack(push, 1)
struct BOT_HEADER {
  UINT32 Signature;  // "_BO_"
  UINT8 Checksum;    // makes the sum of the whole table 0
  UINT8 Reserved5;
  UINT8 Kind;
  UINT16 Length;  // bytes of the whole table
  UINT8 Reserved9;
  UINT8 Flags;  // kBotChanged
};
#pragma pack(pop)
static_assert(sizeof(BOT_HEADER) == 11);
static_assert(offsetof(BOT_HEADER, Length) == 7);

inline constexpr UINT32 kBotSignature = 0x5F4F425F;              // "_BO_"
inline constexpr UINT8 kBotFromOptions = 0x95;                   // Kind of a table that was built from the boot options
inline constexpr UINT8 kBotChanged = 0x02;                       // Flags: the BMC changed the order
inline constexpr UINT16 kMinBotLength = sizeof(BOT_HEADER) + 2;  // and the end entry

enum BOT_CODE : UINT8 {
  kBotSys = 0x00,  // its items are the codes of the groups, in boot order
  kBotFloppy = 0x01,
  kBotCdRom = 0x03,
  kBotUsb = 0x05,
  kBotNetwork = 0x06,
  kBotHardDisk = 0x08,
  kBotExternalDisk = 0x09,  // known, but never built
  kBotEfi = 0x10,           // its items are UINT16 option numbers; all others are bytes
  kBotBev = 0x80,
  kBotEnd = 0xFF,
};

// A group of legacy devices in the table; its items are BBS indexes.
struct BotGroup {
  BOT_CODE Code;
  UINT16 BbsType;
};
// In the order in which a table that is built holds them.
inline constexpr BotGroup kBotGroups[] = {
    {kBotFloppy, BBS_TYPE_FLOPPY}, {kBotHardDisk, BBS_TYPE_HARDDRIVE},       {kBotCdRom, BBS_TYPE_CDROM},
    {kBotUsb, BBS_TYPE_USB},       {kBotNetwork, BBS_TYPE_EMBEDDED_NETWORK}, {kBotBev, BBS_TYPE_BEV},
};
// Null when the type, or the code, has no group.
[[nodiscard]] const BotGroup* FindBotGroupOfType(UINT16 bbsType);
[[nodiscard]] const BotGroup* FindBotGroup(UINT8 code);

// The sum of the bytes modulo 256.
[[nodiscard]] UINT8 BotSum(Bytes bytes);
// The header, when there is a whole one with the signature, and the table's Length lies within the bytes.
[[nodiscard]] bool ReadBotHeader(Bytes table, BOT_HEADER& header);

// One entry of the first section.
struct BotEntry {
  UINT8 Code;
  UINT8 Count;
  Bytes Items;
};
// Walks over the first section of a table.
class BotEntries {
 public:
  explicit BotEntries(Bytes table)
      : reader_(table.size() > sizeof(BOT_HEADER) ? table.subspan(sizeof(BOT_HEADER)) : Bytes{}) {}
  // False behind the last entry: the end entry is the last one, and one that would reach past the table is none.
  [[nodiscard]] bool Next(BotEntry& entry);
  // What follows the entries walked over.
  Bytes Rest() const { return reader_.Rest(); }
  bool ReachedEnd() const { return ended_; }

 private:
  ByteReader reader_;
  bool ended_ = false;
};

// Prints the entries of a table whose Length is its size; nothing otherwise.
void DumpBootOrderTable(Bytes table, UINTN size);
// The same with the table's own Length as the size.
void DumpBootOrderTable(Bytes table);

// Variables: non-volatile, boot service access.
inline constexpr EFI_GUID kBotVariablesGuid = kPolicyVariablesGuid;
inline constexpr CHAR16 kBotCopyName[] = u"VeyraBootOrderTable";  // the last table that went to or came from the BMC
inline constexpr CHAR16 kBotChangedName[] = u"SMBootOrder";       // the last one that the BMC had changed

// Writes one of them, unless it holds the same table already: what is read back has zeros behind it that what was sent
// has not, and a boot that changes nothing is to write nothing. False when the write is refused, which is logged.
bool KeepBootOrderTable(const CHAR16* name, Bytes table);

}  // namespace bds

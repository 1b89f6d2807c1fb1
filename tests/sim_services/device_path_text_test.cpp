// Device path texts: the form of every node kind, read back to the same bytes, and hostile bytes and texts.
#include "sim/firmware/services/device_path_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "sim/firmware/services/text_numbers.h"

namespace sim {
namespace {

std::vector<std::byte> Bytes(std::string_view hex) {
  const auto text = BytesFromHex(hex);
  std::vector<std::byte> bytes(text ? text->size() : 0);
  if (!bytes.empty()) {
    std::memcpy(bytes.data(), text->data(), bytes.size());
  }
  return bytes;
}
std::string Narrow(std::u16string_view text) { return {text.begin(), text.end()}; }
std::u16string Wide(std::string_view text) { return {text.begin(), text.end()}; }

struct NodeCase {
  const char* hex;
  const char* text;
  const char* display = nullptr;   // display only, when it differs
  const char* longhand = nullptr;  // without shortcuts, when it differs
};

const NodeCase kNodes[] = {
    {"01 01 06 00 02 1F", "Pci(0x1F,0x2)"},
    {"01 02 05 00 03", "PcCard(0x3)"},
    {"01 03 18 00 0B000000 0000100000000000 FFFF100000000000", "MemoryMapped(0xB,0x100000,0x10FFFF)"},
    {"01 04 14 00 04030201 0605 0807 090A0B0C0D0E0F10", "VenHw(01020304-0506-0708-090A-0B0C0D0E0F10)"},
    {"01 04 16 00 04030201 0605 0807 090A0B0C0D0E0F10 00FF", "VenHw(01020304-0506-0708-090A-0B0C0D0E0F10,00FF)"},
    {"01 05 08 00 07000000", "Ctrl(0x7)"},
    {"02 01 0C 00 D041030A 01000000", "PciRoot(0x1)", nullptr, "Acpi(PNP0A03,0x1)"},
    {"02 01 0C 00 D041080A 00000000", "PcieRoot(0x0)", nullptr, "Acpi(PNP0A08,0x0)"},
    {"02 01 0C 00 D0410406 00000000", "Floppy(0x0)", nullptr, "Acpi(PNP0604,0x0)"},
    {"02 01 0C 00 D0410103 00000000", "Keyboard(0x0)", nullptr, "Acpi(PNP0301,0x0)"},
    {"02 01 0C 00 D0410105 01000000", "Serial(0x1)", nullptr, "Acpi(PNP0501,0x1)"},
    {"02 01 0C 00 D0410104 00000000", "ParallelPort(0x0)", nullptr, "Acpi(PNP0401,0x0)"},
    {"02 01 0C 00 D0410303 00000000", "Acpi(PNP0303,0x0)"},
    {"02 01 0C 00 00000100 05000000", "Acpi(0x10000,0x5)"},
    {"03 01 08 00 01 01 0300", "Ata(Secondary,Slave,0x3)", "Ata(0x3)"},
    {"03 02 08 00 0500 0100", "Scsi(0x5,0x1)"},
    {"03 03 18 00 00000000 500601603B201101 0300000000000000", "Fibre(0x111203B60010650,0x3)"},
    {"03 15 18 00 00000000 500601603B201101 0000000000000003", "FibreEx(0x500601603B201101,0x0000000000000003)"},
    {"03 13 1A 00 0000 0008 0000000000000001 0100 69716E2E 782E793A",
     "iSCSI(iqn.x.y:,0x1,0x0000000000000001,None,None,None,TCP)"},
    {"03 05 06 00 03 01", "USB(0x3,0x1)"},
    {"03 0F 0B 00 FFFF FFFF 08 06 50", "UsbMassStorage(0xFFFF,0xFFFF,0x6,0x50)", nullptr,
     "UsbClass(0xFFFF,0xFFFF,0x8,0x6,0x50)"},
    {"03 0F 0B 00 3412 7856 FE 02 01", "UsbIrdaBridge(0x1234,0x5678,0x1)", nullptr,
     "UsbClass(0x1234,0x5678,0xFE,0x2,0x1)"},
    {"03 0F 0B 00 3412 7856 FF 02 01", "UsbClass(0x1234,0x5678,0xFF,0x2,0x1)"},
    {"03 10 10 00 0100 3412 7856 4100 4200 4300", "UsbWwid(0x1234,0x5678,0x1,\"ABC\")"},
    {"03 11 05 00 02", "Unit(0x2)"},
    {"03 12 0A 00 0400 FFFF 0000", "Sata(0x4,0xFFFF,0x0)"},
    {"03 16 18 00 5000C50012345678 0000000000000001 0000 0100",
     "SasEx(0x5000C50012345678,0x0000000000000001,0x1,NoTopology,0,0,0)"},
    {"03 16 18 00 5000C50012345678 0000000000000000 3100 0100",
     "SasEx(0x5000C50012345678,0x0000000000000000,0x1,SATA,External,Direct,0)"},
    {"03 16 18 00 5000C50012345678 0000000000000000 4205 0100",
     "SasEx(0x5000C50012345678,0x0000000000000000,0x1,SAS,Internal,Expanded,0x6)"},
    {"03 17 10 00 01000000 08 07 06 05 04 03 02 01", "NVMe(0x1,01-02-03-04-05-06-07-08)"},
    {"03 0B 25 00 525400123456 0000000000000000000000000000000000000000000000000000 01", "MAC(525400123456,0x1)"},
    {"03 0C 1B 00 C0A80102 C0A80101 0000 0000 0600 01 C0A801FE FFFFFF00",
     "IPv4(192.168.1.1,TCP,Static,192.168.1.2,192.168.1.254,255.255.255.0)", "IPv4(192.168.1.1)"},
    {"03 0C 1B 00 00000000 00000000 0000 0000 0000 00 00000000 00000000",
     "IPv4(0.0.0.0,0x0,DHCP,0.0.0.0,0.0.0.0,0.0.0.0)", "IPv4(0.0.0.0)"},
    {"03 0D 3C 00 FE800000000000000000000000000001 20010DB8000000000000000000000002 0000 0000 1100 01 40 "
     "00000000000000000000000000000000",
     "IPv6(2001:db8::2,UDP,StatelessAutoConfigure,fe80::1,0x40,::)", "IPv6(2001:db8::2)"},
    {"03 0E 13 00 00000000 00C2010000000000 08 01 01", "Uart(115200,8,N,1)"},
    {"03 0E 13 00 00000000 0000000000000000 00 00 00", "Uart(DEFAULT,DEFAULT,D,D)"},
    {"03 0E 13 00 00000000 8025000000000000 07 02 02", "Uart(9600,7,E,1.5)"},
    {"03 0A 14 00 65A0 6FDF 19B4 D311 9A2D0090273FC14D", "VenMsg(DF6FA065-B419-11D3-9A2D-0090273FC14D)"},
    {"03 0A 14 00 6560A6DF 19B4 D311 9A2D0090273FC14D", "VenVt100()", nullptr,
     "VenMsg(DFA66065-B419-11D3-9A2D-0090273FC14D)"},
    {"03 0A 18 00 9D9A4937 2F54 894C A026 35DA142094E4 01000000", "UartFlowCtrl(Hardware)", nullptr,
     "VenMsg(37499A9D-542F-4C89-A026-35DA142094E4,01000000)"},
    {"03 0A 2C 00 B4DD87D4 8B00 D911 AFDC001083FFCA4D 00000000 0100000000C50050 0200000000000000 0000 0300",
     "SAS(0x5000C50000000001,0x2,0x3,NoTopology,0,0,0,0x0)", nullptr,
     "VenMsg(D487DDB4-008B-11D9-AFDC-001083FFCA4D,000000000100000000C50050020000000000000000000300)"},
    {"04 01 2A 00 01000000 0008000000000000 0000100000000000 04030201 0605 0807 090A0B0C0D0E0F10 02 02",
     "HD(1,GPT,01020304-0506-0708-090A-0B0C0D0E0F10,0x800,0x100000)", "HD(1,GPT,01020304-0506-0708-090A-0B0C0D0E0F10)"},
    {"04 01 2A 00 02000000 3F00000000000000 0010000000000000 78563412 000000000000000000000000 01 01",
     "HD(2,MBR,0x12345678,0x3F,0x1000)", "HD(2,MBR,0x12345678)"},
    {"04 01 2A 00 02000000 3F00000000000000 0010000000000000 00000000 000000000000000000000000 00 00",
     "HD(2,0,0,0x3F,0x1000)", "HD(2,0,0)"},
    {"04 02 18 00 01000000 3400000000000000 0400000000000000", "CDROM(0x1,0x34,0x4)", "CDROM(0x1)"},
    {"04 03 14 00 5BC92350 26DB 9B42 BD64 8D47664C8012 8012", "VenMedia(5023C95B-DB26-429B-BD64-8D47664C8012)"},
    {"04 04 0C 00 5C00 4100 4200 0000", "\\AB"},
    {"04 05 14 00 04030201 0605 0807 090A0B0C0D0E0F10", "Media(01020304-0506-0708-090A-0B0C0D0E0F10)"},
    {"04 06 14 00 83A5047C 3E9E 1C4F AD65E05268D0B4D1", "FvFile(7C04A583-9E3E-4F1C-AD65-E05268D0B4D1)"},
    {"04 07 14 00 04030201 0605 0807 090A0B0C0D0E0F10", "Fv(01020304-0506-0708-090A-0B0C0D0E0F10)"},
    {"05 01 0B 00 0200 0000 57 44 00", "BBS(HD,WD,0x0)", "BBS(HD,WD)"},
    {"05 01 0E 00 0600 0100 41 2C 28 62 29 00", "BBS(Network,\"A,(b)\",0x1)", "BBS(Network,\"A,(b)\")"},
    {"05 01 0A 00 8000 0000 58 00", "BBS(0x80,X,0x0)", "BBS(0x80,X)"},
    {"01 07 05 00 AB", "HardwarePath(7,AB)"},
    {"02 07 04 00", "AcpiPath(7)"},
    {"03 30 05 00 01", "Msg(48,01)"},
    {"04 30 04 00", "MediaPath(48)"},
    {"05 07 04 00", "BbsPath(7)"},
    {"0A 07 06 00 0102", "Path(10,7,0102)"},
};

TEST(DeviceNodeText, EveryKindHasItsFormAndComesBack) {
  for (const NodeCase& test : kNodes) {
    auto node = Bytes(test.hex);
    ASSERT_GE(node.size(), 4u);
    const std::size_t length = std::to_integer<std::size_t>(node[2]);
    node.resize(length);
    EXPECT_EQ(Narrow(DeviceNodeText(node)), test.text);
    EXPECT_EQ(Narrow(DeviceNodeText(node, {true, true})), test.display != nullptr ? test.display : test.text);
    const char* longhand = test.longhand != nullptr ? test.longhand : test.text;
    EXPECT_EQ(Narrow(DeviceNodeText(node, {false, false})), longhand);
    for (const char* text : {test.text, longhand}) {
      const auto back = DeviceNodeFromText(Wide(text));
      ASSERT_TRUE(back) << text;
      EXPECT_EQ(HexBytes(*back), HexBytes(node)) << text;
    }
  }
}

TEST(DeviceNodeText, NodesTooShortForTheirKindTakeTheGeneralForm) {
  for (const NodeCase& test : kNodes) {
    const auto node = Bytes(test.hex);
    for (std::size_t size = 4; size < node.size(); ++size) {
      // Exactly this many bytes, so that the address sanitizer sees one read too far.
      const std::vector<std::byte> cut(node.begin(), node.begin() + size);
      EXPECT_NO_THROW(static_cast<void>(DeviceNodeText(cut)));
    }
  }
  EXPECT_EQ(Narrow(DeviceNodeText(Bytes("01 01 05 00 02"))), "HardwarePath(1,02)");
  EXPECT_EQ(Narrow(DeviceNodeText(Bytes("04 01 06 00 0100"))), "MediaPath(1,0100)");
}

TEST(DevicePathText, MalformedPathsHaveNoText) {
  const char* cases[] = {
      "", "7F", "7FFF0300", "01010600021F", "01010300021F7FFF0400", "0101FF00021F7FFF0400", "01010000 7FFF0400"};
  for (const char* hex : cases) {
    EXPECT_FALSE(DevicePathText(Bytes(hex))) << hex;
  }
  EXPECT_EQ(DevicePathText(Bytes("7FFF0400")), u"");
}

TEST(DevicePathFromText, WrongArgumentsRefuseThePath) {
  for (const std::string text :
       {"Pci(0x100,0)", "Pci(x,0)", "Pci(1,2,3)", "Scsi(0x10000,0)", "HD(1,GPT,123,0,0)", "VenHw(1234)", "MAC(123,1)",
        "IPv4(1.2.3.256)", "Ata(Third,0,0)", "Acpi(XYZ,0)", "Path(127,1)", "BBS(Tape,x)",
        "NVMe(1,01-02-03-04-05-06-07-08-09)", "VenVt100(1)", "Path(1,1,0)"}) {
    EXPECT_FALSE(DeviceNodeFromText(Wide(text))) << text;
    EXPECT_FALSE(DevicePathFromText(Wide("PciRoot(0x0)/" + text))) << text;
  }
}

TEST(DevicePathText, RandomPathsNeverCrossTheirBytesAndRandomTextsNeverCrash) {
  std::mt19937 random(3);
  const char16_t alphabet[] = u"PciHDVenMsgUSBMAC(),/\\\"0x19AFGT- ";
  for (int round = 0; round < 20000; ++round) {
    std::vector<std::byte> path(random() % 64);
    for (std::byte& byte : path) {
      byte = static_cast<std::byte>(random() % 3 == 0 ? random() : random() % 24);
    }
    static_cast<void>(DevicePathText(path));
    std::u16string text(random() % 40, u' ');
    for (char16_t& c : text) {
      c = alphabet[random() % (std::size(alphabet) - 1)];
    }
    if (const auto back = DevicePathFromText(text)) {
      EXPECT_TRUE(DevicePathText(*back)) << "what is read must be a well-formed path: " << Narrow(text);
    }
  }
}

}  // namespace
}  // namespace sim

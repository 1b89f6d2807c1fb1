// The name by which a device is recognised again: serial numbers first.
#include "bootopt/names/identity_name.h"
#include "bootopt/names/option_name.h"
#include "platform/usb_io.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

using fake::Path;

struct UsbSerialDevice : EFI_USB_IO_PROTOCOL {
  UINT8 SerialIndex = 3;
  UsbSerialDevice() : EFI_USB_IO_PROTOCOL{} {
    UsbGetDeviceDescriptor = [](EFI_USB_IO_PROTOCOL* self, EFI_USB_DEVICE_DESCRIPTOR* descriptor) EFIAPI -> EFI_STATUS {
      *descriptor = {};
      descriptor->StrSerialNumber = static_cast<UsbSerialDevice*>(self)->SerialIndex;
      return EFI_SUCCESS;
    };
    UsbGetStringDescriptor = [](EFI_USB_IO_PROTOCOL*, UINT16 language, UINT8 index, CHAR16** text)
                                 EFIAPI -> EFI_STATUS {
      EXPECT_EQ(language, 0x0409);
      if (index != 3) {
        return EFI_NOT_FOUND;
      }
      *text = CopyText(u"USB-SN-1", 8).release();
      return EFI_SUCCESS;
    };
  }
};

class IdentityName : public fake::BootListsTest {
 protected:
  std::u16string NameOf(const BOOT_OPTION& option) {
    CHAR16 buffer[kNameCapacity];
    const UINTN length = BuildDeviceIdentityName(option, buffer);
    EXPECT_EQ(buffer[length], 0) << "the NUL stands behind the name";
    return {buffer, length};
  }
};

TEST_F(IdentityName, TheAtaSerialStandsAsTheDriveStoresIt) {
  fake::DiskInfo disk;
  disk.SetSerial("DW-CWMA1234567");
  BOOT_OPTION& option = AddOption();
  option.DeviceHandle = Fw.NewHandle(fake::PciRoot());
  Fw.Install(option.DeviceHandle, static_cast<EFI_DISK_INFO_PROTOCOL*>(&disk));
  EXPECT_EQ(NameOf(option), u"DW-CWMA1234567      ") << "20 characters, blanks kept, pairs not swapped";
  std::fill_n(disk.IdentifyData.begin() + 20, 20, UINT8{0});
  EXPECT_EQ(NameOf(option), std::u16string(20, u'\0')) << "the same on every boot, whatever the BBS text says";
}

TEST_F(IdentityName, IdentifyDataOfAnotherSizeIsNoIdentifyData) {
  fake::DiskInfo disk;
  disk.SetSerial("SERIAL");
  BOOT_OPTION& option = AddOption();
  option.DeviceHandle = Fw.NewHandle(fake::PciRoot());
  Fw.Install(option.DeviceHandle, static_cast<EFI_DISK_INFO_PROTOCOL*>(&disk));
  for (const UINTN size : {0, 511, 513, 4096}) {
    disk.IdentifyData.resize(size);
    EXPECT_EQ(NameOf(option), u"") << size;
  }
  disk.IdentifyData.assign(512, 'x');
  disk.Status = EFI_DEVICE_ERROR;
  EXPECT_EQ(NameOf(option), u"");
}

TEST_F(IdentityName, ThenUsbSerialThenDescription) {
  UsbSerialDevice usb;
  BBS_TABLE entry{};
  entry.DescStringSegment = 0xE000;
  Fw.WriteLegacy(0xE0000, std::string("USB Stick \0", 11));
  const auto path = fake::PciRoot().Node(3, 5, {1, 0});
  Fw.Install(Fw.NewHandle(path), static_cast<EFI_USB_IO_PROTOCOL*>(&usb));
  BOOT_OPTION& option = AddOption();
  option.BbsEntry = &entry;
  option.DeviceHandle = Fw.NewHandle(Path(path).Node(4, 1, fake::HardDriveBody(1)));
  EXPECT_EQ(NameOf(option), u"USB-SN-1");
  usb.SerialIndex = 9;
  EXPECT_EQ(NameOf(option), u"USB Stick") << "the string cannot be read";
  usb.SerialIndex = 0;
  EXPECT_EQ(NameOf(option), u"USB Stick");
  option.BbsEntry = nullptr;
  EXPECT_EQ(NameOf(option), u"");
  option.DeviceHandle = nullptr;
  EXPECT_EQ(NameOf(option), u"");
}

}  // namespace
}  // namespace bds

// Device names from INQUIRY: the bytes on the wire, and devices that stall, lie or answer too little.
#include "bootopt/names/inquiry_name.h"
#include "platform/ext_scsi_pass_thru.h"
#include "platform/scsi_pass_thru.h"
#include "platform/usb_io.h"
#include "tests/support/boot_lists_fixture.h"
#include "tests/support/name_fakes.h"

namespace bds {
namespace {

using fake::Data;
using fake::Path;

Data Answer(const std::string& vendor, const std::string& product, const std::string& revision, UINTN size = 36) {
  Data answer(size, 0);
  std::string text = vendor + std::string(8 - vendor.size(), ' ') + product + std::string(16 - product.size(), ' ') +
                     revision + std::string(4 - revision.size(), ' ');
  std::memcpy(&answer[8], text.data(), text.size());
  return answer;
}

// A USB storage device: takes the command, answers, reports status; faults by switch.
struct UsbStick : EFI_USB_IO_PROTOCOL {
  UINT8 Protocol = 0x50, Class = 8, SubClass = 6;
  Data Inquiry = Answer("ACME", "Stick", "1.00");
  bool StallData = false, StallStatusOnce = false;
  UINT8 Status = 0;
  UINT32 WrongTag = 0;
  Data Completion = {0, 0};
  // What was seen.
  Data Command;
  Data Setup;
  std::vector<UINT16> HaltsCleared;
  int Step = 0;

  UsbStick() : EFI_USB_IO_PROTOCOL{} {
    UsbGetInterfaceDescriptor = [](EFI_USB_IO_PROTOCOL* self, EFI_USB_INTERFACE_DESCRIPTOR* descriptor)
                                    EFIAPI -> EFI_STATUS {
      const auto& stick = *static_cast<UsbStick*>(self);
      *descriptor = {};
      descriptor->NumEndpoints = 3;
      descriptor->InterfaceNumber = 2;
      descriptor->InterfaceClass = stick.Class;
      descriptor->InterfaceSubClass = stick.SubClass;
      descriptor->InterfaceProtocol = stick.Protocol;
      return EFI_SUCCESS;
    };
    UsbGetEndpointDescriptor = [](EFI_USB_IO_PROTOCOL*, UINT8 index, EFI_USB_ENDPOINT_DESCRIPTOR* descriptor)
                                   EFIAPI -> EFI_STATUS {
      constexpr UINT8 kEndpoints[][2] = {{0x02, 2}, {0x81, 2}, {0x83, 3}};
      if (index >= 3) {
        return EFI_NOT_FOUND;
      }
      *descriptor = {};
      descriptor->EndpointAddress = kEndpoints[index][0];
      descriptor->Attributes = kEndpoints[index][1];
      return EFI_SUCCESS;
    };
    UsbControlTransfer = [](EFI_USB_IO_PROTOCOL* self, EFI_USB_DEVICE_REQUEST* request, EFI_USB_DATA_DIRECTION,
                            UINT32 timeout, VOID* data, UINTN size, UINT32* status) EFIAPI -> EFI_STATUS {
      auto& stick = *static_cast<UsbStick*>(self);
      EXPECT_EQ(timeout, 2000U);
      *status = 0;
      if (request->RequestType == 0x02 && request->Request == 1) {
        stick.HaltsCleared.push_back(request->Index);
        return EFI_SUCCESS;
      }
      const auto* setup = reinterpret_cast<const UINT8*>(request);
      stick.Setup.assign(setup, setup + sizeof(*request));
      stick.Command.assign(static_cast<UINT8*>(data), static_cast<UINT8*>(data) + size);
      stick.Step = 1;
      return EFI_SUCCESS;
    };
    UsbBulkTransfer = [](EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN* size, UINTN timeout,
                         UINT32* status) EFIAPI -> EFI_STATUS {
      EXPECT_EQ(timeout, 2000U);
      return static_cast<UsbStick*>(self)->Bulk(endpoint, static_cast<UINT8*>(data), *size, *status);
    };
    UsbSyncInterruptTransfer = [](EFI_USB_IO_PROTOCOL* self, UINT8 endpoint, VOID* data, UINTN* size, UINTN,
                                  UINT32* status) EFIAPI -> EFI_STATUS {
      const auto& stick = *static_cast<UsbStick*>(self);
      EXPECT_EQ(endpoint, 0x83);
      *status = 0;
      *size = std::min<UINTN>(*size, stick.Completion.size());
      std::memcpy(data, stick.Completion.data(), *size);
      return EFI_SUCCESS;
    };
  }

  EFI_STATUS Bulk(UINT8 endpoint, UINT8* data, UINTN& size, UINT32& status) {
    status = 0;
    if (endpoint == 0x02) {
      Command.assign(data, data + size);
      Step = 1;
      return EFI_SUCCESS;
    }
    EXPECT_EQ(endpoint, 0x81);
    const bool answering = Step == 1;
    if (answering) {
      Step = 2;
    }
    if ((answering && StallData) || (!answering && std::exchange(StallStatusOnce, false))) {
      status = EFI_USB_ERR_STALL;
      return EFI_DEVICE_ERROR;
    }
    Data reply = Inquiry;
    if (!answering) {
      reply = {0x55, 0x53, 0x42, 0x53, 0, 0, 0, 0, 0, 0, 0, 0, Status};
      const auto tag = LoadUnaligned<UINT32>(&Command[4]) + WrongTag;
      std::memcpy(&reply[4], &tag, 4);
    }
    EXPECT_GE(size, answering ? 36U : 13U);
    size = std::min<UINTN>(size, reply.size());
    std::memcpy(data, reply.data(), size);
    return EFI_SUCCESS;
  }
};

class UsbName : public fake::BootListsTest {
 protected:
  UsbName() { Fw.Install(Fw.NewHandle(path_), static_cast<EFI_USB_IO_PROTOCOL*>(&stick_)); }
  std::string NameOf(const Path& path) {
    const PoolPtr<char> name = UsbDeviceName(Fw.NewHandle(path));
    return name ? name.get() : "(none)";
  }
  std::string NameOf() { return NameOf(Path(path_).Node(4, 1, fake::HardDriveBody(1))); }

  Path path_ = fake::PciRoot().Node(3, 5, {1, 0});
  UsbStick stick_;
};

TEST_F(UsbName, BulkOnlyCommandAndName) {
  EXPECT_EQ(NameOf(), "ACMEStick1.00");
  Data expected = {0x55, 0x53, 0x42, 0x43, 1, 0, 0, 0, 36, 0, 0, 0, 0x80, 0, 6, 0x12, 0, 0, 0, 36};
  expected.resize(31);
  EXPECT_EQ(stick_.Command, expected);
  EXPECT_TRUE(stick_.HaltsCleared.empty());
}

TEST_F(UsbName, ControlBulkInterruptCommandAndItsCompletion) {
  for (const UINT8 protocol : {UINT8{0}, UINT8{1}}) {
    stick_.Protocol = protocol;
    EXPECT_EQ(NameOf(), "ACMEStick1.00");
    EXPECT_EQ(stick_.Setup, (Data{0x21, 0, 0, 0, 2, 0, 12, 0}));
    EXPECT_EQ(stick_.Command, (Data{0x12, 0, 0, 0, 36, 0, 0, 0, 0, 0, 0, 0}));
  }
  stick_.Completion = {0, 1};
  EXPECT_EQ(NameOf(), "ACMEStick1.00") << "protocol 1 has no interrupt";
  stick_.Protocol = 0;
  EXPECT_EQ(NameOf(), "(none)") << "failed";
  stick_.Completion = {0, 4};
  EXPECT_EQ(NameOf(), "ACMEStick1.00") << "reserved bits do not count";
  stick_.SubClass = 4;
  EXPECT_EQ(NameOf(), "(none)") << "a UFI device gives a sense code";
  stick_.Completion = {0};
  EXPECT_EQ(NameOf(), "(none)");
}

TEST_F(UsbName, TheLunIsThatOfTheLastScsiNode) {
  const auto named = [&](UINT8 low, UINT8 high) { return NameOf(Path(path_).Node(3, 2, {0, 0, low, high})); };
  EXPECT_EQ(named(3, 0), "ACMEStick1.00");
  EXPECT_EQ(stick_.Command.at(13), 3);
  EXPECT_EQ(named(254, 0), "ACMEStick1.00");
  EXPECT_EQ(named(255, 0), "(none)");
  EXPECT_EQ(named(0, 1), "(none)");
}

TEST_F(UsbName, RefusalsAreClearedAndGiveNoName) {
  stick_.StallData = true;
  EXPECT_EQ(NameOf(), "(none)");
  EXPECT_EQ(stick_.HaltsCleared, std::vector<UINT16>{0x81});
  stick_.StallData = false;
  stick_.StallStatusOnce = true;
  EXPECT_EQ(NameOf(), "ACMEStick1.00") << "the status is fetched once more";
  stick_.Status = 1;
  EXPECT_EQ(NameOf(), "(none)");
  stick_.Status = 0;
  stick_.WrongTag = 1;
  EXPECT_EQ(NameOf(), "(none)");
  stick_.WrongTag = 0;
  stick_.Inquiry.resize(35);
  EXPECT_EQ(NameOf(), "(none)") << "too little";
}

TEST_F(UsbName, OnlyStorageInterfacesAreAsked) {
  stick_.Class = 3;
  EXPECT_EQ(NameOf(), "(none)");
  stick_.Class = 8;
  stick_.Protocol = 0x62;
  EXPECT_EQ(NameOf(), "(none)");
  EXPECT_TRUE(stick_.Command.empty());
  EXPECT_EQ(NameOf(fake::PciRoot()), "(none)") << "not on the USB";
}

struct ExtScsi : EFI_EXT_SCSI_PASS_THRU_PROTOCOL {
  EFI_EXT_SCSI_PASS_THRU_MODE ModeData{0, 0, 64};
  Data Inquiry = Answer("SEAGATE", "ST600", "A\x01", 96);
  UINT8 TargetStatus = 0;
  EFI_STATUS Status = EFI_SUCCESS;

  ExtScsi() : EFI_EXT_SCSI_PASS_THRU_PROTOCOL{} {
    Mode = &ModeData;
    GetTargetLun = [](EFI_EXT_SCSI_PASS_THRU_PROTOCOL*, EFI_DEVICE_PATH_PROTOCOL* path, UINT8** target, UINT64* lun)
                       EFIAPI -> EFI_STATUS {
      if (path->Type != 3 || path->SubType != 2) {
        return EFI_UNSUPPORTED;
      }
      (*target)[0] = reinterpret_cast<UINT8*>(path)[4];
      *lun = reinterpret_cast<UINT8*>(path)[6];
      return EFI_SUCCESS;
    };
    PassThru = [](EFI_EXT_SCSI_PASS_THRU_PROTOCOL* self, UINT8* target, UINT64 lun,
                  EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* packet, EFI_EVENT event) EFIAPI -> EFI_STATUS {
      auto& scsi = *static_cast<ExtScsi*>(self);
      EXPECT_EQ(event, nullptr);
      EXPECT_EQ(target[0], 4);
      EXPECT_EQ(lun, 1U);
      EXPECT_EQ(reinterpret_cast<UINTN>(packet->InDataBuffer) % std::max(scsi.ModeData.IoAlign, 1U), 0U);
      EXPECT_EQ(packet->InTransferLength, 96U);
      EXPECT_EQ(packet->Timeout, 10'000'000U);
      const UINT8 command[] = {0x12, 0, 0, 0, 96, 0};
      EXPECT_EQ(packet->CdbLength, sizeof(command));
      EXPECT_EQ(std::memcmp(packet->Cdb, command, sizeof(command)), 0);
      packet->InTransferLength = static_cast<UINT32>(scsi.Inquiry.size());
      std::memcpy(packet->InDataBuffer, scsi.Inquiry.data(), std::min<UINTN>(scsi.Inquiry.size(), 96));
      packet->TargetStatus = scsi.TargetStatus;
      return scsi.Status;
    };
  }
};

struct OlderScsi : EFI_SCSI_PASS_THRU_PROTOCOL {
  EFI_SCSI_PASS_THRU_MODE ModeData{};
  OlderScsi() : EFI_SCSI_PASS_THRU_PROTOCOL{} {
    Mode = &ModeData;
    GetTargetLun = [](EFI_SCSI_PASS_THRU_PROTOCOL*, EFI_DEVICE_PATH_PROTOCOL*, UINT32* target, UINT64* lun)
                       EFIAPI -> EFI_STATUS {
      *target = 4;
      *lun = 1;
      return EFI_SUCCESS;
    };
    PassThru = [](EFI_SCSI_PASS_THRU_PROTOCOL*, UINT32 target, UINT64, EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET* packet,
                  EFI_EVENT) EFIAPI -> EFI_STATUS {
      EXPECT_EQ(target, 4U);
      const Data answer = Answer("OLD", "Disk", "9", 96);
      std::memcpy(packet->DataBuffer, answer.data(), packet->TransferLength);
      return EFI_SUCCESS;
    };
  }
};

class ScsiName : public fake::BootListsTest {
 protected:
  std::string NameOf(const Path& path) {
    const PoolPtr<char> name = ScsiDeviceName(Fw.NewHandle(path));
    return name ? name.get() : "(none)";
  }
  Path controller_ = fake::PciRoot().Node(1, 1, {0, 3});
  Path disk_ = Path(controller_).Node(3, 2, {4, 0, 1, 0});
  ExtScsi extended_;
  OlderScsi older_;
};

TEST_F(ScsiName, TheExtendedProtocolGivesFieldsWithBlanksBetween) {
  EXPECT_EQ(NameOf(disk_), "(none)");
  Fw.Install(Fw.NewHandle(controller_), static_cast<EFI_EXT_SCSI_PASS_THRU_PROTOCOL*>(&extended_));
  EXPECT_EQ(NameOf(disk_), "SEAGATE ST600 A ") << "a control character becomes a blank";
  EXPECT_EQ(NameOf(Path(disk_).Node(4, 1, fake::HardDriveBody(1))), "SEAGATE ST600 A ");
  EXPECT_EQ(NameOf(controller_), "(none)") << "the controller is no device";
  extended_.Inquiry = Answer("", "", "", 96);
  EXPECT_EQ(NameOf(disk_), "(none)") << "three empty fields are no name";
}

TEST_F(ScsiName, AFailedOrShortAnswerIsNoName) {
  Fw.Install(Fw.NewHandle(controller_), static_cast<EFI_EXT_SCSI_PASS_THRU_PROTOCOL*>(&extended_));
  extended_.TargetStatus = 2;
  EXPECT_EQ(NameOf(disk_), "(none)");
  extended_.TargetStatus = 0;
  extended_.Status = EFI_TIMEOUT;
  EXPECT_EQ(NameOf(disk_), "(none)");
  extended_.Status = EFI_SUCCESS;
  for (const UINTN size : {35, 97}) {
    extended_.Inquiry.resize(size);
    EXPECT_EQ(NameOf(disk_), "(none)") << size;
  }
  extended_.Inquiry = Answer("A", "B", "C");
  for (const UINT32 alignment : {0U, 1U, 4096U}) {
    extended_.ModeData.IoAlign = alignment;
    EXPECT_EQ(NameOf(disk_), "A B C") << alignment;
  }
  for (const UINT32 alignment : {3U, 8192U}) {
    extended_.ModeData.IoAlign = alignment;
    EXPECT_EQ(NameOf(disk_), "(none)") << alignment;
  }
}

TEST_F(ScsiName, TheOlderProtocolIsForScsiNodesOnly) {
  Fw.Install(Fw.NewHandle(controller_), static_cast<EFI_SCSI_PASS_THRU_PROTOCOL*>(&older_));
  EXPECT_EQ(NameOf(disk_), "OLD Disk 9");
  EXPECT_EQ(NameOf(Path(controller_).Node(3, 18, {0, 0, 0xFF, 0xFF, 0, 0})), "(none)");
}

}  // namespace
}  // namespace bds

// Both pass-thru protocols of an adapter: whose path a node is, and INQUIRY.
#include "sim/bus/scsi_adapter.h"

#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

class Adapter : public testing::Test {
 protected:
  Adapter() {
    for (const auto& [target, lun] : {std::pair<std::uint16_t, std::uint64_t>{5, 0}, {2, 1}, {2, 0}}) {
      ScsiDevice device;
      device.target = target;
      device.lun = lun;
      device.drive.vendor = "VENDOR" + std::to_string(target);
      device.drive.medium.blocks = NumberedDisk(4);
      controller_.devices.push_back(device);
    }
    controller_.devices[0].sasAddress = 0x5000C50012345678;
    controller_.olderPassThru = true;
    adapter_ = std::make_unique<ScsiAdapter>(controller_, bus_.context);
    ext_ = ProtocolOf<EFI_EXT_SCSI_PASS_THRU_PROTOCOL>(*adapter_);
    old_ = ProtocolOf<EFI_SCSI_PASS_THRU_PROTOCOL>(*adapter_);
  }

  FakeBus bus_;
  ScsiController controller_;
  std::unique_ptr<ScsiAdapter> adapter_;
  EFI_EXT_SCSI_PASS_THRU_PROTOCOL* ext_ = nullptr;
  EFI_SCSI_PASS_THRU_PROTOCOL* old_ = nullptr;
};

TEST_F(Adapter, InquiryAnswersThroughBothPackets) {
  UINT8 command[6] = {0x12, 0, 0, 0, 96, 0};
  UINT8 data[96] = {};
  UINT8 target[16] = {5};
  EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET packet{};
  packet.Timeout = 10'000'000;
  packet.InDataBuffer = data;
  packet.InTransferLength = sizeof data;
  packet.Cdb = command;
  packet.CdbLength = sizeof command;
  ASSERT_EQ(ext_->PassThru(ext_, target, 0, &packet, nullptr), EFI_SUCCESS);
  EXPECT_EQ(packet.InTransferLength, 36U);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(data) + 8, 7), "VENDOR5");

  EFI_SCSI_PASS_THRU_SCSI_REQUEST_PACKET older{};
  older.DataBuffer = data;
  older.TransferLength = sizeof data;
  older.Cdb = command;
  older.CdbLength = sizeof command;
  ASSERT_EQ(old_->PassThru(old_, 2, 1, &older, nullptr), EFI_SUCCESS);
  EXPECT_EQ(older.TransferLength, 36U);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(data) + 8, 7), "VENDOR2");
}

TEST_F(Adapter, MissingTargetAndSmallBufferAreTold) {
  UINT8 command[6] = {0x12, 0, 0, 0, 96, 0};
  UINT8 data[10] = {};
  UINT8 target[16] = {6};
  EFI_EXT_SCSI_PASS_THRU_SCSI_REQUEST_PACKET packet{};
  packet.InDataBuffer = data;
  packet.InTransferLength = sizeof data;
  packet.Cdb = command;
  packet.CdbLength = sizeof command;
  EXPECT_EQ(ext_->PassThru(ext_, target, 0, &packet, nullptr), EFI_TIMEOUT);
  EXPECT_EQ(packet.HostAdapterStatus, EFI_EXT_SCSI_STATUS_HOST_ADAPTER_SELECTION_TIMEOUT);
  target[0] = 5;
  packet.InTransferLength = sizeof data;
  EXPECT_EQ(ext_->PassThru(ext_, target, 0, &packet, nullptr), EFI_BAD_BUFFER_SIZE);
  EXPECT_EQ(packet.InTransferLength, 10U);
  EXPECT_EQ(packet.HostAdapterStatus, EFI_EXT_SCSI_STATUS_HOST_ADAPTER_DATA_OVERRUN_UNDERRUN);
  UINT8 sense[18] = {};
  command[0] = 0xFF;
  packet.SenseData = sense;
  packet.SenseDataLength = sizeof sense;
  packet.InTransferLength = sizeof data;
  EXPECT_EQ(ext_->PassThru(ext_, target, 0, &packet, nullptr), EFI_SUCCESS);
  EXPECT_EQ(packet.TargetStatus, EFI_EXT_SCSI_STATUS_TARGET_CHECK_CONDITION);
  EXPECT_EQ(sense[2], 5);
}

}  // namespace
}  // namespace sim::test

// USB devices: descriptors, strings, and both mass storage transports step by step, in order and out of it.
#include "sim/bus/usb_interface.h"
#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

class UsbStorage : public testing::Test {
 protected:
  void Make(UsbTransport transport) {
    device_ = UsbStick(1, NumberedDisk(50), "SERIAL");
    device_.transport = transport;
    device_.units[0].vendor = "ACME";
    device_.units[0].model = "Stick";
    device_.units[0].revision = "1.00";
    interface_ = std::make_unique<UsbInterface>(device_, bus_.context);
    io_ = ProtocolOf<EFI_USB_IO_PROTOCOL>(*interface_);
  }

  static Bytes Wrapper(std::uint32_t tag, std::uint32_t length, const std::vector<std::uint8_t>& command,
                       std::uint8_t flags = 0x80, std::uint8_t lun = 0) {
    Bytes wrapper(31);
    Put<std::uint32_t>(wrapper, 0, 0x43425355);
    Put<std::uint32_t>(wrapper, 4, tag);
    Put<std::uint32_t>(wrapper, 8, length);
    Put<std::uint8_t>(wrapper, 12, flags);
    Put<std::uint8_t>(wrapper, 13, lun);
    Put<std::uint8_t>(wrapper, 14, static_cast<std::uint8_t>(command.size()));
    for (std::size_t i = 0; i < command.size(); ++i) wrapper[15 + i] = static_cast<std::byte>(command[i]);
    return wrapper;
  }

  EFI_STATUS Bulk(UINT8 endpoint, Bytes& data, UINTN timeout = 2000) {
    UINTN length = data.size();
    const EFI_STATUS status = io_->UsbBulkTransfer(io_, endpoint, data.data(), &length, timeout, &usbStatus_);
    data.resize(length);
    return status;
  }

  EFI_STATUS Control(UINT8 type, UINT8 request, UINT16 value, UINT16 index, EFI_USB_DATA_DIRECTION direction,
                     Bytes& data) {
    EFI_USB_DEVICE_REQUEST setup{type, request, value, index, static_cast<UINT16>(data.size())};
    return io_->UsbControlTransfer(io_, &setup, direction, 2000, data.data(), data.size(), &usbStatus_);
  }

  void ExpectStatus(std::uint32_t tag, std::uint32_t residue, std::uint8_t status) {
    Bytes wrapper(13);
    ASSERT_EQ(Bulk(kBulkIn, wrapper), EFI_SUCCESS);
    ASSERT_EQ(wrapper.size(), 13U);
    EXPECT_EQ(TextOf(wrapper, 0, 4), "USBS");
    std::uint32_t fields[2];
    std::memcpy(fields, wrapper.data() + 4, 8);
    EXPECT_EQ(fields[0], tag);
    EXPECT_EQ(fields[1], residue);
    EXPECT_EQ(std::to_integer<int>(wrapper[12]), status);
  }

  FakeBus bus_;
  UsbDevice device_;
  std::unique_ptr<UsbInterface> interface_;
  EFI_USB_IO_PROTOCOL* io_ = nullptr;
  UINT32 usbStatus_ = 0;
};

const std::vector<std::uint8_t> kInquiry{0x12, 0, 0, 0, 36, 0};

TEST_F(UsbStorage, BulkOnlyFailedCommandStallsTheDataThenTellsIt) {
  Make(UsbTransport::BulkOnly);
  Bytes wrapper = Wrapper(9, 512, {0x28, 0, 0, 0, 1, 0, 0, 0, 1, 0});
  ASSERT_EQ(Bulk(kBulkOut, wrapper), EFI_SUCCESS);
  Bytes data(512);
  EXPECT_EQ(Bulk(kBulkIn, data), EFI_DEVICE_ERROR);
  EXPECT_EQ(usbStatus_, EFI_USB_ERR_STALL);
  Bytes none;
  ASSERT_EQ(Control(0x02, USB_REQ_CLEAR_FEATURE, 0, kBulkIn, EfiUsbNoData, none), EFI_SUCCESS);
  ExpectStatus(9, 512, 1);
}

TEST_F(UsbStorage, BulkOnlyWrongWrapperNeedsTheReset) {
  const std::pair<const char*, Bytes> cases[] = {
      {"size", Bytes(30)}, {"signature", Bytes(31)}, {"lun", Wrapper(1, 36, kInquiry, 0x80, 3)}};
  for (const auto& [what, bad] : cases) {
    Make(UsbTransport::BulkOnly);
    Bytes wrapper = bad;
    EXPECT_EQ(Bulk(kBulkOut, wrapper), EFI_DEVICE_ERROR) << what;
    Bytes none;
    ASSERT_EQ(Control(0x02, USB_REQ_CLEAR_FEATURE, 0, kBulkOut, EfiUsbNoData, none), EFI_SUCCESS);
    wrapper = Wrapper(2, 36, kInquiry);
    EXPECT_EQ(Bulk(kBulkOut, wrapper), EFI_DEVICE_ERROR) << what << ": the halt stays until the reset";
    ASSERT_EQ(Control(0x21, 0xFF, 0, 0, EfiUsbNoData, none), EFI_SUCCESS);
    ASSERT_EQ(Control(0x02, USB_REQ_CLEAR_FEATURE, 0, kBulkOut, EfiUsbNoData, none), EFI_SUCCESS);
    ASSERT_EQ(Control(0x02, USB_REQ_CLEAR_FEATURE, 0, kBulkIn, EfiUsbNoData, none), EFI_SUCCESS);
    wrapper = Wrapper(2, 36, kInquiry);
    EXPECT_EQ(Bulk(kBulkOut, wrapper), EFI_SUCCESS) << what;
  }
}

TEST_F(UsbStorage, BulkOnlySilenceTakesTheWholeTimeout) {
  Make(UsbTransport::BulkOnly);
  Bytes data(36);
  EXPECT_EQ(Bulk(kBulkIn, data, 2000), EFI_TIMEOUT);
  EXPECT_EQ(bus_.waited, 2000U);
  EXPECT_EQ(usbStatus_, EFI_USB_ERR_TIMEOUT);
}

TEST_F(UsbStorage, CbiFailureIsToldByInterruptOrStall) {
  Bytes write(12);
  write[0] = std::byte{0x2A};
  Make(UsbTransport::Cbi);
  EXPECT_EQ(Control(0x21, 0, 0, 0, EfiUsbDataOut, write), EFI_DEVICE_ERROR);
  Make(UsbTransport::CbiInterrupt);
  EXPECT_EQ(Control(0x21, 0, 0, 0, EfiUsbDataOut, write), EFI_SUCCESS);
  Bytes status(2);
  UINTN length = 2;
  ASSERT_EQ(io_->UsbSyncInterruptTransfer(io_, kInterruptIn, status.data(), &length, 2000, &usbStatus_), EFI_SUCCESS);
  EXPECT_EQ(status[1], std::byte{1});
}

}  // namespace
}  // namespace sim::test

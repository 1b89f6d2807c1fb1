// Drives: block I/O as the standard wants it refused and served, Identify data, INQUIRY, and the SCSI commands.
#include "sim/bus/block_device.h"
#include "sim/bus/drive_identity.h"
#include "sim/bus/scsi_target.h"
#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

TEST(BlockDevice, ReadsAndRefusals) {
  BlockDevice device(NumberedDisk(10), {});
  auto* io = ProtocolOf<EFI_BLOCK_IO_PROTOCOL>(device);
  EXPECT_EQ(io->Media->LastBlock, 9U);
  EXPECT_TRUE(io->Media->ReadOnly);
  Bytes buffer(1024);
  ASSERT_EQ(io->ReadBlocks(io, io->Media->MediaId, 8, 1024, buffer.data()), EFI_SUCCESS);
  EXPECT_EQ(buffer[0], std::byte{8});
  EXPECT_EQ(buffer[512], std::byte{9});
  const struct {
    UINT32 mediaId;
    EFI_LBA lba;
    UINTN size;
    bool withBuffer;
    EFI_STATUS status;
  } cases[] = {{99, 0, 512, true, EFI_MEDIA_CHANGED},
               {1, 0, 500, true, EFI_BAD_BUFFER_SIZE},
               {1, 10, 512, true, EFI_INVALID_PARAMETER},
               {1, 9, 1024, true, EFI_INVALID_PARAMETER},
               {1, UINT64_MAX, 512, true, EFI_INVALID_PARAMETER},
               {1, 0, 512, false, EFI_INVALID_PARAMETER},
               {1, 0, 0, false, EFI_SUCCESS}};
  for (const auto& item : cases) {
    void* target = item.withBuffer ? buffer.data() : nullptr;
    EXPECT_EQ(io->ReadBlocks(io, item.mediaId, item.lba, item.size, target), item.status)
        << item.lba << " " << item.size;
  }
  EXPECT_EQ(io->WriteBlocks(io, 1, 0, 512, buffer.data()), EFI_WRITE_PROTECTED);
}

Drive NamedDrive() {
  Drive drive;
  drive.vendor = "ACME";
  drive.model = "Stick";
  drive.revision = "1.00";
  drive.serial = "SN-1234";
  drive.medium.blocks = NumberedDisk(100);
  return drive;
}

template <std::size_t Size>
ScsiAnswer Execute(ScsiTarget& target, const std::uint8_t (&command)[Size]) {
  return target.Execute(std::as_bytes(std::span(command)));
}

std::uint8_t SenseKey(const ScsiAnswer& answer) {
  return answer.sense.size() < 14 ? 0 : std::to_integer<std::uint8_t>(answer.sense[2]);
}

TEST(ScsiTarget, ReadsBlocksAndRefusesWhatLiesOutside) {
  ScsiTarget target(NamedDrive());
  const ScsiAnswer capacity = Execute(target, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  ASSERT_EQ(capacity.data.size(), 8U);
  EXPECT_EQ(capacity.data[3], std::byte{99});
  EXPECT_EQ(capacity.data[6], std::byte{2});
  const ScsiAnswer read = Execute(target, {0x28, 0, 0, 0, 0, 7, 0, 0, 2, 0});
  ASSERT_EQ(read.data.size(), 1024U);
  EXPECT_EQ(read.data[512], std::byte{8});
  EXPECT_EQ(SenseKey(Execute(target, {0x28, 0, 0, 0, 0, 99, 0, 0, 2, 0})), 5);
  EXPECT_EQ(SenseKey(Execute(target,
                             {0x88, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0})),
            5);
  EXPECT_EQ(SenseKey(Execute(target, {0x28, 0, 0, 0, 0, 7})), 5) << "a block too short for its operation";
  EXPECT_EQ(SenseKey(Execute(target, {0x2A, 0, 0, 0, 0, 7, 0, 0, 1, 0})), 5) << "a write";
}

}  // namespace
}  // namespace sim::test

// Frames of the virtual-machine serial connection: golden bytes, escapes, and recovery from every kind of damage.
#include "sim/bmc/vm_codec.h"

#include <gtest/gtest.h>

#include <numeric>

#include "sim/bmc/vm_client.h"

namespace sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<Bytes> Decode(VmDecoder& decoder, const Bytes& wire) {
  std::vector<Bytes> frames;
  for (const std::uint8_t byte : wire) {
    if (auto content = decoder.Take(byte)) {
      frames.push_back(*content);
    }
  }
  return frames;
}

TEST(VmCodec, GetBootFlagsRequestHasTheBytesOfTheWire) {
  const Bytes request{0x01, 0x00, 0x09, 0x05, 0x00, 0x00};  // sequence, chassis, Get System Boot Options, 5 0 0
  EXPECT_EQ(EncodeVmFrame(request), (Bytes{0x01, 0x00, 0x09, 0x05, 0x00, 0x00, 0xF1, 0xA0}));
}

TEST(VmCodec, SpecialBytesAreEscapedAlsoInTheChecksum) {
  EXPECT_EQ(EncodeVmFrame(Bytes{0xA0}), (Bytes{0xAA, 0xB0, 0x60, 0xA0}));
  EXPECT_EQ(EncodeVmFrame(Bytes{0xA1}), (Bytes{0xAA, 0xB1, 0x5F, 0xA0}));
  EXPECT_EQ(EncodeVmFrame(Bytes{0xAA}), (Bytes{0xAA, 0xBA, 0x56, 0xA0}));
  EXPECT_EQ(EncodeVmFrame(Bytes{0x60}), (Bytes{0x60, 0xAA, 0xB0, 0xA0}));
}

TEST(VmCodec, ControlFramesAreSkipped) {
  VmDecoder decoder;
  Bytes wire{0xFF, 0x01, 0xA1};  // the version, as a simulator sends it first
  const Bytes frame = EncodeVmFrame(Bytes{1, 2, 3});
  wire.insert(wire.end(), frame.begin(), frame.end());
  EXPECT_EQ(Decode(decoder, wire), (std::vector<Bytes>{{1, 2, 3}}));
  EXPECT_EQ(decoder.ControlFrames(), 1U);
}

TEST(VmCodec, ADamagedFrameIsDroppedAndTheNextIsRead) {
  const struct {
    const char* what;
    Bytes damaged;
  } cases[] = {
      {"wrong checksum", {1, 2, 3, 0xA0}},
      {"empty", {0xA0}},
      {"a checksum alone", {0x00, 0xA0}},
      {"escape before the end", {1, 0xFF, 0xAA, 0xA0}},
      {"escape twice", {0xAA, 0xAA, 0xB0, 0x60, 0xA0}},
      {"escape of a byte that needs none", {0xAA, 0x11, 0xFF, 0xA0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    VmDecoder decoder;
    Bytes wire = c.damaged;
    const Bytes frame = EncodeVmFrame(Bytes{7, 8});
    wire.insert(wire.end(), frame.begin(), frame.end());
    EXPECT_EQ(Decode(decoder, wire), (std::vector<Bytes>{{7, 8}}));
    EXPECT_EQ(decoder.BadFrames(), 1U);
  }
}

TEST(VmCodec, AnEndlessFrameIsBoundedAndDropped) {
  VmDecoder decoder;
  for (int i = 0; i < 1'000'000; ++i) {
    ASSERT_FALSE(decoder.Take(0));
  }
  ASSERT_FALSE(decoder.Take(0xA0));
  EXPECT_EQ(decoder.BadFrames(), 1U);
  EXPECT_EQ(Decode(decoder, EncodeVmFrame(Bytes{9})), (std::vector<Bytes>{{9}}));
}

TEST(VmClient, OnlyALoopbackAddressWithAPortIsTaken) {
  std::uint16_t port = 0;
  std::string error;
  EXPECT_TRUE(VmClient::ParseAddress("vm://127.0.0.1:9002", port, error));
  EXPECT_EQ(port, 9002);
  for (const char* wrong : {"", "9002", "vm://127.0.0.1", "vm://127.0.0.1:", "vm://127.0.0.1:0", "vm://127.0.0.1:65536",
                            "vm://127.0.0.1:80x", "vm://10.0.0.1:9002", "tcp://127.0.0.1:9002"}) {
    error.clear();
    EXPECT_FALSE(VmClient::ParseAddress(wrong, port, error)) << wrong;
    EXPECT_NE(error.find("vm://127.0.0.1:PORT"), std::string::npos) << error;
  }
}

}  // namespace
}  // namespace sim

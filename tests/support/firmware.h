// The simulated machine in the bytes and words of the tests of the option and device lists: device paths put together
// node by node, variables, legacy memory. Pool blocks that nobody freed fail the test.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/byte_reader.h"
#include "tests/support/driver_fixture.h"

namespace fake {

using Data = std::vector<std::uint8_t>;

class Path {
 public:
  Path& Node(UINT8 type, UINT8 subType, const Data& body) {
    const auto length = static_cast<UINT16>(body.size() + 4);
    nodes_.insert(nodes_.end(), {type, subType, static_cast<UINT8>(length), static_cast<UINT8>(length >> 8)});
    nodes_.insert(nodes_.end(), body.begin(), body.end());
    return *this;
  }
  // The bytes with their end node.
  Data Bytes() const {
    Data bytes = nodes_;
    bytes.insert(bytes.end(), {0x7F, 0xFF, 4, 0});
    return bytes;
  }

 private:
  Data nodes_;
};

class Firmware : public test::DriverMachine {
 public:
  // With room for every number's variable.
  Firmware() : DriverMachine({.nonVolatileSize = 1U << 24}) {}
  ~Firmware() { EXPECT_EQ(PoolBlocks(), 0U) << "pool blocks were left behind"; }

  using DriverMachine::NewHandle;
  EFI_HANDLE NewHandle(const Path& path) {
    const Data bytes = path.Bytes();
    return NewHandle(std::as_bytes(std::span(bytes)));
  }
  // Variables of the global vendor GUID.
  void Put(std::u16string_view name, const Data& data) {
    const auto bytes = std::as_bytes(std::span(data));
    Set(name, {bytes.begin(), bytes.end()});
  }
  // Names in the order of deletion.
  std::vector<std::u16string> Deleted() const {
    std::vector<std::u16string> names;
    for (const sim::VariableWrite& write : store.Journal()) {
      if (write.kind == sim::VariableWrite::Kind::Delete) names.push_back(write.name);
    }
    return names;
  }

  // The text is written without a NUL.
  void WriteLegacy(UINT32 address, std::string_view text) {
    EXPECT_TRUE(machine.Legacy().Write(address, std::as_bytes(std::span(text))));
  }
  std::string ReadLegacy(UINT32 address, std::size_t size) {
    const auto bytes = machine.Legacy().At(address, size);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }
};

}  // namespace fake

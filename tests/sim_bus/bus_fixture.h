// A bus context without a machine: pool from malloc, counted waiting; and small disks.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <vector>

#include "sim/bus/bus_context.h"
#include "sim/bus/device_object.h"
#include "sim/storage/disk_image.h"
#include "tests/sim_storage/image_builder.h"

namespace sim::test {

struct FakeBus {
  BusContext context{.allocatePool =
                         [this](std::size_t size) {
                           blocks.push_back(std::make_unique<std::byte[]>(size));
                           return static_cast<void*>(blocks.back().get());
                         },
                     .wait = [this](std::uint64_t milliseconds) { waited += milliseconds; }};
  std::vector<std::unique_ptr<std::byte[]>> blocks;
  std::uint64_t waited = 0;
};

template <typename Protocol>
Protocol* ProtocolOf(DeviceObject& object) {
  for (const Interface& item : object.Interfaces()) {
    if (item.guid == ProtocolGuid<Protocol>) return static_cast<Protocol*>(item.pointer);
  }
  ADD_FAILURE() << "the object does not publish the protocol";
  return nullptr;
}

// A blank disk whose blocks begin with their number.
inline BlockSourcePtr NumberedDisk(std::size_t blocks, std::uint32_t block = 512) {
  Bytes bytes(blocks * block);
  for (std::size_t i = 0; i < blocks; ++i) bytes[i * block] = static_cast<std::byte>(i);
  return MakeMemoryDisk(std::move(bytes), {.blockSize = block});
}

inline std::string TextOf(std::span<const std::byte> bytes, std::size_t offset, std::size_t size) {
  return {reinterpret_cast<const char*>(bytes.data()) + offset, size};
}

}  // namespace sim::test

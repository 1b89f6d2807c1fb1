// The platform's services on a machine: memory space, device path utilities.
#include <gtest/gtest.h>

#include "sim/firmware/machine.h"
#include "sim/firmware/services/memory_space.h"
#include "sim/firmware/services/text_services.h"

namespace sim {
namespace {

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

TEST(MemorySpace, RefusesWhatTheStandardRefuses) {
  MemorySpace space;
  ASSERT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, kGiB, kGiB, 8), EFI_SUCCESS);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 0, kGiB + 1, 8), EFI_ACCESS_DENIED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 2 * kGiB - 1, 1, 8), EFI_ACCESS_DENIED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 0, 0, 8), EFI_INVALID_PARAMETER);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeNonExistent, 0, 1, 8), EFI_INVALID_PARAMETER);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, MemorySpace::kEnd - 1, 2, 8), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, kGiB, ~std::uint64_t{0}, 8), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Remove(0, kGiB + 1), EFI_NOT_FOUND);
  EXPECT_EQ(space.Remove(3 * kGiB, 1), EFI_NOT_FOUND);
  EXPECT_EQ(space.SetAttributes(kGiB, kGiB, 16), EFI_UNSUPPORTED);
  EXPECT_EQ(space.SetAttributes(kGiB, kGiB, 8), EFI_SUCCESS);
  EXPECT_EQ(space.SetCapabilities(kGiB, kGiB, 0), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Map().size(), 3u);
}

TEST(TextServices, UtilitiesTakeInstancesApartAndPutThemTogether) {
  Machine machine;
  TextServices services(machine.BootServices());
  auto* utilities = services.Utilities();
  const auto take = [&](EFI_DEVICE_PATH_PROTOCOL* path) {
    DevicePath copy = DevicePath::Copy(path);
    EXPECT_EQ(machine.BootServices()->FreePool(path), EFI_SUCCESS);
    return copy;
  };
  DevicePath first = DevicePath().Pci(1, 0);
  DevicePath second = DevicePath().Pci(2, 0);
  DevicePath both = take(utilities->AppendDevicePathInstance(first.Get(), second.Get()));
  EXPECT_EQ(both, DevicePath(first).NextInstance(second));
  EXPECT_EQ(utilities->IsDevicePathMultiInstance(both.Get()), TRUE);
  EXPECT_EQ(utilities->IsDevicePathMultiInstance(first.Get()), FALSE);
  EXPECT_EQ(utilities->GetDevicePathSize(both.Get()), both.Size());
  EFI_DEVICE_PATH_PROTOCOL* position = both.Get();
  UINTN size = 0;
  EXPECT_EQ(take(utilities->GetNextDevicePathInstance(&position, &size)), first);
  EXPECT_EQ(size, first.Size());
  EXPECT_EQ(take(utilities->GetNextDevicePathInstance(&position, &size)), second);
  EXPECT_EQ(position, nullptr);
  EXPECT_EQ(utilities->GetNextDevicePathInstance(&position, &size), nullptr);
  EXPECT_EQ(take(utilities->AppendDevicePath(first.Get(), second.Get())), DevicePath().Pci(1, 0).Pci(2, 0));
  EXPECT_EQ(take(utilities->AppendDeviceNode(nullptr, second.Get())), second);
  EXPECT_EQ(take(utilities->DuplicateDevicePath(first.Get())), first);
  EXPECT_EQ(utilities->CreateDeviceNode(1, 1, 3), nullptr);
}

}  // namespace
}  // namespace sim

// What everything in this directory reads from: a medium of a known size that answers reads or refuses them.
// A disk image is one, and so is a firmware block device, so that partitions and files found on an image are found
// in the same way through the firmware's own block I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/uefi_base.h"

namespace sim {

class BlockSource {
 public:
  BlockSource() = default;
  BlockSource(const BlockSource&) = delete;
  BlockSource& operator=(const BlockSource&) = delete;
  virtual ~BlockSource() = default;

  // Size of the medium in bytes. What can be read may end before it, when an image was cut short.
  [[nodiscard]] virtual std::uint64_t Size() const = 0;
  // Logical block size in bytes: 512, 2048 or 4096.
  [[nodiscard]] virtual std::uint32_t BlockSize() const = 0;
  // Fills `out` from byte `offset`, which need not be aligned. EFI_DEVICE_ERROR when any byte of it cannot be had;
  // `out` is then undefined.
  [[nodiscard]] virtual EFI_STATUS Read(std::uint64_t offset, std::span<std::byte> out) const = 0;
};

using BlockSourcePtr = std::shared_ptr<const BlockSource>;

// A part of another source, with its block size. Reads never leave the part.
class BlockWindow final : public BlockSource {
 public:
  BlockWindow(BlockSourcePtr whole, std::uint64_t start, std::uint64_t size)
      : whole_(std::move(whole)), start_(start), size_(size) {}

  [[nodiscard]] std::uint64_t Size() const override { return size_; }
  [[nodiscard]] std::uint32_t BlockSize() const override { return whole_->BlockSize(); }
  [[nodiscard]] EFI_STATUS Read(std::uint64_t offset, std::span<std::byte> out) const override {
    if (offset > size_ || out.size() > size_ - offset || start_ > UINT64_MAX - offset) return EFI_DEVICE_ERROR;
    return whole_->Read(start_ + offset, out);
  }

 private:
  BlockSourcePtr whole_;
  std::uint64_t start_;
  std::uint64_t size_;
};

}  // namespace sim

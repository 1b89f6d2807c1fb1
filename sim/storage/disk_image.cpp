// Image files are opened through The Sleuth Kit, so that whatever raw forms it reads (split images too) serve as disks.
#include "sim/storage/disk_image.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "sim/storage/tsk_library.h"

namespace sim {
namespace {

bool IsBlockSize(std::uint32_t size) { return size == 512 || size == 2048 || size == 4096; }

std::uint64_t RoundUp(std::uint64_t size, std::uint32_t block) { return (size + block - 1) / block * block; }

struct ImageCloser {
  void operator()(TSK_IMG_INFO* image) const { tsk_img_close(image); }
};

// What an image holds, and the block rounding and claimed size that all kinds share.
class ImageBase : public BlockSource {
 public:
  ImageBase(std::uint64_t held, const DiskImageOptions& options)
      : held_(held),
        size_(RoundUp(std::max(held, options.claimedSize), options.blockSize)),
        block_(options.blockSize) {}

  [[nodiscard]] std::uint64_t Size() const override { return size_; }
  [[nodiscard]] std::uint32_t BlockSize() const override { return block_; }
  [[nodiscard]] EFI_STATUS Read(std::uint64_t offset, std::span<std::byte> out) const override {
    if (offset > size_ || out.size() > size_ - offset) return EFI_DEVICE_ERROR;
    // The last, partial block reads as if padded with zeros; a claim beyond it holds nothing at all.
    const std::uint64_t readable = RoundUp(held_, block_);
    if (offset > readable || out.size() > readable - offset) return EFI_DEVICE_ERROR;
    const std::size_t here = offset < held_ ? std::min<std::uint64_t>(out.size(), held_ - offset) : 0;
    std::fill(out.begin() + here, out.end(), std::byte{0});
    return here == 0 || ReadHeld(offset, out.first(here)) ? EFI_SUCCESS : EFI_DEVICE_ERROR;
  }

 protected:
  // Reads bytes that lie within what the image holds.
  [[nodiscard]] virtual bool ReadHeld(std::uint64_t offset, std::span<std::byte> out) const = 0;

 private:
  std::uint64_t held_;
  std::uint64_t size_;
  std::uint32_t block_;
};

class FileImage final : public ImageBase {
 public:
  FileImage(std::unique_ptr<TSK_IMG_INFO, ImageCloser> image, const DiskImageOptions& options)
      : ImageBase(static_cast<std::uint64_t>(image->size), options), image_(std::move(image)) {}

 private:
  [[nodiscard]] bool ReadHeld(std::uint64_t offset, std::span<std::byte> out) const override {
    const ssize_t done =
        tsk_img_read(image_.get(), static_cast<TSK_OFF_T>(offset), reinterpret_cast<char*>(out.data()), out.size());
    return done >= 0 && static_cast<std::size_t>(done) == out.size();
  }

  std::unique_ptr<TSK_IMG_INFO, ImageCloser> image_;
};

class MemoryImage final : public ImageBase {
 public:
  MemoryImage(std::vector<std::byte> bytes, const DiskImageOptions& options)
      : ImageBase(bytes.size(), options), bytes_(std::move(bytes)) {}

 private:
  [[nodiscard]] bool ReadHeld(std::uint64_t offset, std::span<std::byte> out) const override {
    std::memcpy(out.data(), bytes_.data() + offset, out.size());
    return true;
  }

  std::vector<std::byte> bytes_;
};

}  // namespace

BlockSourcePtr OpenDiskImage(const std::filesystem::path& path, const DiskImageOptions& options, std::string& error) {
  std::error_code code;
  if (!IsBlockSize(options.blockSize)) {
    error = "block size " + std::to_string(options.blockSize) + ": expected 512, 2048 or 4096";
    return nullptr;
  }
  if (!std::filesystem::is_regular_file(path, code)) {
    error = path.string() + ": no such image file";
    return nullptr;
  }
  if (std::filesystem::file_size(path, code) == 0) {
    error = path.string() + ": the image is empty";
    return nullptr;
  }
  std::unique_ptr<TSK_IMG_INFO, ImageCloser> image(tsk_img_open_utf8_sing(path.c_str(), TSK_IMG_TYPE_RAW, 512));
  if (image == nullptr || image->size <= 0) {
    const char* reason = tsk_error_get();
    error = path.string() + ": " + (reason != nullptr ? reason : "the image cannot be opened");
    tsk_error_reset();
    return nullptr;
  }
  return std::make_shared<FileImage>(std::move(image), options);
}

BlockSourcePtr MakeMemoryDisk(std::vector<std::byte> bytes, const DiskImageOptions& options) {
  if (bytes.empty() || !IsBlockSize(options.blockSize)) return nullptr;
  return std::make_shared<MemoryImage>(std::move(bytes), options);
}

}  // namespace sim

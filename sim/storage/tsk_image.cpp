// The adapter between BlockSource and the library's "external" images.
#include "sim/storage/tsk_image.h"

#include <algorithm>

namespace sim {
namespace {

// The library hands back the address of its own part, so that has to come first.
struct ExternalImage {
  TSK_IMG_INFO info;
  BlockSourcePtr source;
};

// As much of the range as can be read from its start, in blocks: the library reads far ahead into its cache, and
// what lies before a bad spot is still good.
std::size_t ReadUpToBadSpot(const BlockSource& source, std::uint64_t offset, std::span<std::byte> out) {
  if (!EFI_ERROR(source.Read(offset, out))) return out.size();
  std::size_t done = 0;
  while (done < out.size()) {
    const std::size_t piece = std::min<std::size_t>(source.BlockSize(), out.size() - done);
    if (EFI_ERROR(source.Read(offset + done, out.subspan(done, piece)))) break;
    done += piece;
  }
  return done;
}

ssize_t ReadImage(TSK_IMG_INFO* image, TSK_OFF_T offset, char* buffer, size_t length) {
  const BlockSource& source = *reinterpret_cast<ExternalImage*>(image)->source;
  if (offset < 0 || static_cast<std::uint64_t>(offset) >= source.Size()) return -1;
  const std::uint64_t start = static_cast<std::uint64_t>(offset);
  const std::size_t wanted = std::min<std::uint64_t>(length, source.Size() - start);
  const std::size_t done = ReadUpToBadSpot(source, start, {reinterpret_cast<std::byte*>(buffer), wanted});
  return done == 0 ? -1 : static_cast<ssize_t>(done);
}

void CloseImage(TSK_IMG_INFO* image) { delete reinterpret_cast<ExternalImage*>(image); }

void DescribeImage(TSK_IMG_INFO*, FILE*) {}

}  // namespace

void TskImageCloser::operator()(TSK_IMG_INFO* image) const { tsk_img_close(image); }

TskImage OpenTskImage(BlockSourcePtr source) {
  if (source->Size() > static_cast<std::uint64_t>(INT64_MAX)) return nullptr;
  auto image = std::make_unique<ExternalImage>();
  const TSK_OFF_T size = static_cast<TSK_OFF_T>(source->Size());
  const unsigned blockSize = source->BlockSize();
  image->source = std::move(source);
  TSK_IMG_INFO* opened = tsk_img_open_external(image.get(), size, blockSize, ReadImage, CloseImage, DescribeImage);
  if (opened == nullptr) return nullptr;
  image.release();
  return TskImage(opened);
}

}  // namespace sim

// A block source as The Sleuth Kit sees it: its partition and file system code reads through these two callbacks.
#pragma once

#include <memory>

#include "sim/storage/block_source.h"
#include "sim/storage/tsk_library.h"

namespace sim {

struct TskImageCloser {
  void operator()(TSK_IMG_INFO* image) const;
};
// Closes the image and lets go of its source.
using TskImage = std::unique_ptr<TSK_IMG_INFO, TskImageCloser>;

// Null when the library refuses the source's size or block size.
[[nodiscard]] TskImage OpenTskImage(BlockSourcePtr source);

}  // namespace sim

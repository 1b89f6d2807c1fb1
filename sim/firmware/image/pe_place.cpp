// A checked PE image as it lies in memory: copied, relocated, its pages' rights and its resources.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "sim/firmware/image/pe_image.h"
#include "sim/firmware/image/pe_reader.h"

namespace sim {
namespace {

constexpr std::uint32_t kBlockHeaderSize = 8;
constexpr std::uint32_t kPageSize = 4096;

struct BlockHeader {
  std::uint32_t page;
  std::uint32_t size;  // of the block with this header
};
static_assert(sizeof(BlockHeader) == kBlockHeaderSize);

enum RelocationType : std::uint16_t { kAbsolute = 0, kDir64 = 10 };

bool Fail(PeError& error, std::string text) {
  error = {EFI_LOAD_ERROR, std::move(text)};
  return false;
}

bool Relocate(std::span<std::byte> memory, std::uint32_t page, std::uint16_t entry, std::uint64_t distance,
              PeError& error) {
  const std::uint16_t type = entry >> 12;
  if (type == kAbsolute) {
    return true;
  }
  if (type != kDir64) {
    return Fail(error, "a relocation is of type " + std::to_string(type) + ", which x86-64 images do not have");
  }
  const std::uint64_t at = std::uint64_t{page} + (entry & 0xFFF);
  const auto value = FieldAt<std::uint64_t>(memory, at);
  if (!value) {
    return Fail(error, "a relocation lies outside the image");
  }
  const std::uint64_t moved = *value + distance;
  std::memcpy(memory.data() + at, &moved, sizeof(moved));
  return true;
}

// The blocks are copied out first: a relocation that hits the relocation table itself must not change the walk.
bool RelocateAll(const PeImage& image, std::span<std::byte> memory, std::uint64_t distance, PeError& error) {
  const auto table = memory.subspan(image.relocations.address, image.relocations.size);
  const std::vector<std::byte> copy(table.begin(), table.end());
  const std::span<const std::byte> blocks(copy);
  std::uint64_t at = 0;
  while (at + kBlockHeaderSize <= blocks.size()) {
    const auto block = FieldAt<BlockHeader>(blocks, at).value_or(BlockHeader{});
    if (block.size == 0) {
      return true;  // padding behind the last block
    }
    if (block.size < kBlockHeaderSize || block.size % 2 != 0 || !Within(at, block.size, blocks.size())) {
      return Fail(error, "a relocation block's size is wrong");
    }
    for (std::uint64_t entry = at + kBlockHeaderSize; entry < at + block.size; entry += 2) {
      if (!Relocate(memory, block.page, FieldAt<std::uint16_t>(blocks, entry).value_or(0), distance, error)) {
        return false;
      }
    }
    at += block.size;
  }
  return true;
}

// The resource tree (PE format, 6.9): directories of 16 bytes and entries of 8; names are counted UTF-16 texts.
constexpr std::uint32_t kSubdirectory = 0x80000000;
constexpr std::uint32_t kDirectoryHeaderSize = 16;

struct ResourceEntry {
  std::uint32_t name;
  std::uint32_t offset;
};

bool IsNamedHii(std::span<const std::byte> tree, std::uint32_t name) {
  const std::uint32_t at = name & ~kSubdirectory;
  if ((name & kSubdirectory) == 0 || FieldAt<std::uint16_t>(tree, at) != 3) {
    return false;
  }
  static constexpr std::u16string_view kHii = u"HII";
  for (std::size_t i = 0; i < kHii.size(); ++i) {
    if (FieldAt<std::uint16_t>(tree, at + 2 + 2 * i) != kHii[i]) {
      return false;
    }
  }
  return true;
}

// The first entry of a directory that fits; nothing when the directory is cut short or none fits.
template <typename Predicate>
std::optional<ResourceEntry> FindEntry(std::span<const std::byte> tree, std::uint32_t directory, Predicate fits) {
  const auto named = FieldAt<std::uint16_t>(tree, std::uint64_t{directory} + 12);
  const auto numbered = FieldAt<std::uint16_t>(tree, std::uint64_t{directory} + 14);
  if (!named || !numbered) {
    return std::nullopt;
  }
  const std::uint32_t count = std::uint32_t{*named} + *numbered;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto entry = FieldAt<ResourceEntry>(
        tree, std::uint64_t{directory} + kDirectoryHeaderSize + std::uint64_t{i} * sizeof(ResourceEntry));
    if (!entry) {
      return std::nullopt;
    }
    if (fits(*entry)) {
      return entry;
    }
  }
  return std::nullopt;
}

void Grant(PageRights& page, bool writable, bool executable) {
  const bool write = writable || page == PageRights::ReadWrite || page == PageRights::WriteExecute;
  const bool execute = executable || page == PageRights::ReadExecute || page == PageRights::WriteExecute;
  page = write && execute ? PageRights::WriteExecute
         : write          ? PageRights::ReadWrite
         : execute        ? PageRights::ReadExecute
                          : PageRights::Read;
}

}  // namespace

bool PlacePe(const PeImage& image, std::span<const std::byte> file, std::span<std::byte> memory, std::uint64_t base,
             PeError& error) {
  if (memory.size() < image.imageSize) {
    return Fail(error, "there is not enough memory for the image");
  }
  memory = memory.first(image.imageSize);
  std::memcpy(memory.data(), file.data(), image.headerSize);
  for (const PeSection& section : image.sections) {
    if (section.fileSize != 0) {
      std::memcpy(memory.data() + section.address, file.data() + section.fileOffset, section.fileSize);
    }
  }
  if (base == image.preferredBase) {
    return true;
  }
  if (!image.relocatable) {
    return Fail(error, "the image has no relocations and its own address is not free");
  }
  return RelocateAll(image, memory, base - image.preferredBase, error);
}

std::span<std::byte> FindHiiResource(const PeImage& image, std::span<std::byte> memory) {
  if (image.resources.size == 0 || !Within(image.resources.address, image.resources.size, memory.size())) {
    return {};
  }
  const std::span<const std::byte> tree = memory.subspan(image.resources.address, image.resources.size);
  auto entry = FindEntry(tree, 0, [&](const ResourceEntry& each) { return IsNamedHii(tree, each.name); });
  // Below the type lie two more levels, name and language; the first of each is taken.
  for (int level = 0; level < 2; ++level) {
    if (!entry || (entry->offset & kSubdirectory) == 0) {
      return {};
    }
    entry = FindEntry(tree, entry->offset & ~kSubdirectory, [](const ResourceEntry&) { return true; });
  }
  if (!entry || (entry->offset & kSubdirectory) != 0) {
    return {};
  }
  const auto data = FieldAt<PeDirectory>(tree, entry->offset);
  if (!data || !Within(data->address, data->size, memory.size())) {
    return {};
  }
  return memory.subspan(data->address, data->size);
}

std::vector<PageRights> RightsByPage(const PeImage& image) {
  std::vector<PageRights> pages((image.imageSize + kPageSize - 1) / kPageSize, PageRights::Read);
  for (const PeSection& section : image.sections) {
    if (section.size == 0) {
      continue;
    }
    const std::uint32_t last = (section.address + section.size - 1) / kPageSize;
    for (std::uint32_t page = section.address / kPageSize; page <= last; ++page) {
      Grant(pages[page], section.writable, section.executable);
    }
  }
  return pages;
}

}  // namespace sim

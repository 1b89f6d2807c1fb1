// The image file reader against every way in which a file can lie about itself.
#include "sim/firmware/image/pe_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "tests/sim_image/pe_builder.h"

namespace sim {
namespace {

using test::PeBuilder;
using test::SmallImage;

std::vector<std::byte> Place(const PeBuilder& file, std::uint64_t base, PeError& error) {
  const auto image = ReadPe(file.Bytes(), error);
  if (!image) {
    return {};
  }
  std::vector<std::byte> memory(image->imageSize);
  return PlacePe(*image, file.Bytes(), memory, base, error) ? memory : std::vector<std::byte>{};
}

struct BadImage {
  const char* what;
  std::function<void(PeBuilder&)> spoil;
  const char* message;
  EFI_STATUS status;
};

TEST(ReadPe, EveryLieIsNamed) {
  using namespace test;
  const auto section = [](std::size_t index, std::size_t field) { return kSections + index * kSectionSize + field; };
  const BadImage cases[] = {
      {"no MZ", [](PeBuilder& f) { f.Put16(0, 0); }, "MZ", EFI_UNSUPPORTED},
      {"header far away", [](PeBuilder& f) { f.Put32(0x3C, 0xFFFFFFF0); }, "ends before", EFI_LOAD_ERROR},
      {"header at the end", [](PeBuilder& f) { f.Put32(0x3C, static_cast<std::uint32_t>(f.File().size()) - 23); },
       "ends before", EFI_LOAD_ERROR},
      {"no signature", [](PeBuilder& f) { f.Put32(kPeOffset, 0x4551); }, "signature", EFI_UNSUPPORTED},
      {"32-bit machine", [](PeBuilder& f) { f.Put16(kCoff, 0x014C); }, "x86-64", EFI_UNSUPPORTED},
      {"ARM machine", [](PeBuilder& f) { f.Put16(kCoff, 0xAA64); }, "x86-64", EFI_UNSUPPORTED},
      {"no sections", [](PeBuilder& f) { f.Put16(kCoff + 2, 0); }, "sections", EFI_LOAD_ERROR},
      {"97 sections", [](PeBuilder& f) { f.Put16(kCoff + 2, 97); }, "sections", EFI_LOAD_ERROR},
      {"20 sections", [](PeBuilder& f) { f.Put16(kCoff + 2, 20); }, "section table", EFI_LOAD_ERROR},
      {"short optional header", [](PeBuilder& f) { f.Put16(kCoff + 16, 111); }, "optional header", EFI_LOAD_ERROR},
      {"long optional header", [](PeBuilder& f) { f.Put16(kCoff + 16, 0xFFFF); }, "optional header", EFI_LOAD_ERROR},
      {"PE32", [](PeBuilder& f) { f.Put16(kOptional, 0x10B); }, "PE32+", EFI_UNSUPPORTED},
      {"Windows console", [](PeBuilder& f) { f.Put16(kOptional + 68, 3); }, "subsystem is 3", EFI_UNSUPPORTED},
      {"subsystem 13", [](PeBuilder& f) { f.Put16(kOptional + 68, 13); }, "subsystem is 13", EFI_UNSUPPORTED},
      {"size zero", [](PeBuilder& f) { f.Put32(kOptional + 56, 0); }, "size in memory", EFI_LOAD_ERROR},
      {"4 GiB", [](PeBuilder& f) { f.Put32(kOptional + 56, 0xFFFFFFFF); }, "size in memory", EFI_LOAD_ERROR},
      {"alignment 0", [](PeBuilder& f) { f.Put32(kOptional + 32, 0); }, "alignment", EFI_LOAD_ERROR},
      {"alignment 3", [](PeBuilder& f) { f.Put32(kOptional + 32, 3); }, "alignment", EFI_LOAD_ERROR},
      {"17 directories", [](PeBuilder& f) { f.Put32(kOptional + 108, 17); }, "directories", EFI_LOAD_ERROR},
      {"2^32-1 directories", [](PeBuilder& f) { f.Put32(kOptional + 108, ~0u); }, "directories", EFI_LOAD_ERROR},
      {"imports", [](PeBuilder& f) { f.Directory(1, 0x1000, 20); }, "imports", EFI_UNSUPPORTED},
      {"imports outside", [](PeBuilder& f) { f.Directory(1, 0x9000, 20); }, "imports", EFI_UNSUPPORTED},
      {"relocations outside", [](PeBuilder& f) { f.Directory(5, 0x3FFF, 2); }, "outside the image", EFI_LOAD_ERROR},
      {"resources wrap", [](PeBuilder& f) { f.Directory(2, ~0u, ~0u); }, "outside the image", EFI_LOAD_ERROR},
      {"headers past file", [](PeBuilder& f) { f.Put32(kOptional + 60, 0x7FFFFFFF); }, "headers", EFI_LOAD_ERROR},
      {"headers too small", [](PeBuilder& f) { f.Put32(kOptional + 60, 0x100); }, "section table", EFI_LOAD_ERROR},
      {"section in headers", [&](PeBuilder& f) { f.Put32(section(0, 12), 0); }, "overlaps", EFI_LOAD_ERROR},
      {"sections overlap", [&](PeBuilder& f) { f.Put32(section(0, 8), 0x1001); }, "overlaps", EFI_LOAD_ERROR},
      {"section past image", [&](PeBuilder& f) { f.Put32(section(2, 8), 0x1001); }, "image's end", EFI_LOAD_ERROR},
      {"section size wraps", [&](PeBuilder& f) { f.Put32(section(2, 8), ~0u); }, "image's end", EFI_LOAD_ERROR},
      {"section past file", [&](PeBuilder& f) { f.Put32(section(2, 16), 0x201); }, "file's end", EFI_LOAD_ERROR},
      {"section offset wraps", [&](PeBuilder& f) { f.Put32(section(2, 20), ~0u); }, "file's end", EFI_LOAD_ERROR},
      {"entry outside", [](PeBuilder& f) { f.Put32(kOptional + 16, 0x8000); }, "entry point", EFI_LOAD_ERROR},
      {"entry in data", [](PeBuilder& f) { f.Put32(kOptional + 16, 0x2000); }, "entry point", EFI_LOAD_ERROR},
      {"no entry", [](PeBuilder& f) { f.Put32(kOptional + 16, 0); }, "entry point", EFI_LOAD_ERROR},
  };
  for (const BadImage& test : cases) {
    PeBuilder file = SmallImage();
    test.spoil(file);
    PeError error;
    EXPECT_FALSE(ReadPe(file.Bytes(), error)) << test.what;
    EXPECT_NE(error.text.find(test.message), std::string::npos) << test.what << ": " << error.text;
    EXPECT_EQ(error.status, test.status) << test.what;
  }
}

TEST(ReadPe, TruncatedAtEveryByteItIsRefused) {
  const PeBuilder whole = SmallImage();
  for (std::size_t size = 0; size < whole.Bytes().size(); ++size) {
    // A copy of exactly this size, so that one byte read too far is seen by the address sanitizer.
    const std::vector<std::byte> cut(whole.Bytes().begin(), whole.Bytes().begin() + size);
    PeError error;
    ASSERT_FALSE(ReadPe(cut, error)) << size;
    ASSERT_FALSE(error.text.empty()) << size;
  }
}

TEST(ReadPe, AnImportTableOfNothingButItsEndIsAccepted) {
  PeBuilder file = SmallImage();
  file.Directory(1, 0x2010, 20);
  PeError error;
  EXPECT_TRUE(ReadPe(file.Bytes(), error)) << error.text;
  file.Directory(1, 0x2000, 20);
  EXPECT_FALSE(ReadPe(file.Bytes(), error));
}

TEST(PlacePe, BadRelocationsAreNamed) {
  struct Case {
    const char* what;
    std::vector<std::uint8_t> table;
    const char* message;
  };
  const Case cases[] = {
      {"target past the end", {0x00, 0x30, 0, 0, 10, 0, 0, 0, 0xF9, 0xAF}, "outside the image"},
      {"page past the end", {0x00, 0x00, 0, 0xFF, 10, 0, 0, 0, 0x00, 0xA0}, "outside the image"},
      {"type 3", {0x00, 0x20, 0, 0, 10, 0, 0, 0, 0x00, 0x30}, "type 3"},
      {"block of 4 bytes", {0x00, 0x20, 0, 0, 4, 0, 0, 0, 0, 0}, "block's size"},
      {"block past the table", {0x00, 0x20, 0, 0, 12, 0, 0, 0, 0, 0}, "block's size"},
      {"odd block", {0x00, 0x20, 0, 0, 9, 0, 0, 0, 0, 0}, "block's size"},
      {"huge block", {0x00, 0x20, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 0, 0}, "block's size"},
  };
  for (const Case& test : cases) {
    PeBuilder file({{".text", test::kCode, {0xC3}},
                    {".data", test::kData, {1, 2, 3, 4, 5, 6, 7, 8}},
                    {".reloc", test::kReadOnly, test.table}});
    file.Directory(5, 0x3000, static_cast<std::uint32_t>(test.table.size()));
    PeError error;
    EXPECT_TRUE(Place(file, 0x20000000, error).empty()) << test.what;
    EXPECT_NE(error.text.find(test.message), std::string::npos) << test.what << ": " << error.text;
  }
}

TEST(PlacePe, ARelocationOfTheTableItselfDoesNotMisleadTheWalk) {
  // The first entry changes the second block's header in memory; the walk must go by the bytes of the file.
  const std::vector<std::uint8_t> table{0x00, 0x30, 0,    0, 12, 0,  0, 0, 0x0C, 0xA0, 0x00,
                                        0x00, 0x00, 0x20, 0, 0,  10, 0, 0, 0,    0x00, 0xA0};
  PeBuilder file({{".text", test::kCode, {0xC3}},
                  {".data", test::kData, {0, 0x10, 0, 0x10, 0, 0, 0, 0}},
                  {".reloc", test::kReadOnly, table}});
  file.Directory(5, 0x3000, static_cast<std::uint32_t>(table.size()));
  PeError error;
  const auto memory = Place(file, 0xFFFFFFFFFFFF0000, error);
  ASSERT_FALSE(memory.empty()) << error.text;
  std::uint64_t pointer = 0;
  std::memcpy(&pointer, memory.data() + 0x2000, sizeof(pointer));
  EXPECT_EQ(pointer, 0xFFFFFFFFFFFF1000);
}

TEST(RightsByPage, PagesThatMixWritingAndExecutingAreMarked) {
  PeBuilder file = SmallImage();
  file.Put32(test::kSections + 36, test::kCode | 0x80000000);
  PeError error;
  const auto image = ReadPe(file.Bytes(), error);
  ASSERT_TRUE(image);
  EXPECT_EQ(RightsByPage(*image)[1], PageRights::WriteExecute);
}

// A resource tree with one "HII" entry whose data lies at 0x2000 + 0x60.
PeBuilder ImageWithResource() {
  std::vector<std::uint8_t> tree(0x80);
  const auto put = [&tree](std::size_t at, std::uint32_t value) { std::memcpy(tree.data() + at, &value, 4); };
  tree[12] = 1;         // one named entry
  put(16, 0x80000048);  // its name
  put(20, 0x80000018);  // the next directory
  tree[0x18 + 14] = 1;
  put(0x28, 1);
  put(0x2C, 0x80000030);
  tree[0x30 + 14] = 1;
  put(0x40, 0x409);
  put(0x44, 0x50);  // a leaf
  const std::uint8_t name[] = {3, 0, 'H', 0, 'I', 0, 'I', 0};
  std::copy(std::begin(name), std::end(name), tree.begin() + 0x48);
  put(0x50, 0x2060);
  put(0x54, 0x20);
  tree[0x60] = 0xAB;
  PeBuilder file({{".text", test::kCode, {0xC3}}, {".rsrc", test::kReadOnly, tree}});
  file.Directory(2, 0x2000, 0x80);
  return file;
}

TEST(FindHiiResource, NeverLeavesADamagedTree) {
  PeError error;
  const PeBuilder file = ImageWithResource();
  const auto image = ReadPe(file.Bytes(), error);
  const auto good = Place(file, 0x20000000, error);
  std::mt19937 random(1);
  int found = 0;
  for (int round = 0; round < 20000; ++round) {
    auto memory = good;
    for (int i = 0; i < 3; ++i) {
      memory[0x2000 + random() % 0x60] = static_cast<std::byte>(random() % 4 == 0 ? 0xFF : random());
    }
    const auto data = FindHiiResource(*image, memory);
    found += data.empty() ? 0 : 1;
    ASSERT_TRUE(data.empty() ||
                (data.data() >= memory.data() && data.data() + data.size() <= memory.data() + memory.size()));
  }
  EXPECT_GT(found, 0);
  EXPECT_LT(found, 20000);
}

TEST(ReadPe, RandomDamageNeverCrossesTheFile) {
  const PeBuilder whole = SmallImage();
  std::mt19937 random(2);
  int accepted = 0;
  for (int round = 0; round < 20000; ++round) {
    PeBuilder file = whole;
    for (int i = 0; i < 4; ++i) {
      file.File()[random() % test::kHeaders] = static_cast<std::uint8_t>(random());
    }
    PeError error;
    const bool refused = Place(file, 0x20000000, error).empty();
    EXPECT_EQ(refused, !error.text.empty()) << error.text;
    accepted += refused ? 0 : 1;
  }
  EXPECT_GT(accepted, 100);
}

}  // namespace
}  // namespace sim

// Small PE32+ files for tests, right in every field until a test spoils one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace sim::test {

// Offsets of the fields that the tests spoil.
inline constexpr std::size_t kPeOffset = 0x40;
inline constexpr std::size_t kCoff = kPeOffset + 4;
inline constexpr std::size_t kOptional = kCoff + 20;
inline constexpr std::size_t kOptionalSize = 112 + 16 * 8;
inline constexpr std::size_t kDirectories = kOptional + 112;
inline constexpr std::size_t kSections = kOptional + kOptionalSize;
inline constexpr std::size_t kSectionSize = 40;
inline constexpr std::size_t kHeaders = 0x400;
inline constexpr std::uint64_t kImageBase = 0x10000000;

struct TestSection {
  const char* name;
  std::uint32_t characteristics;
  std::vector<std::uint8_t> bytes;
  std::uint32_t memorySize = 0;  // 0: as many bytes as there are
};

inline constexpr std::uint32_t kCode = 0x60000020;
inline constexpr std::uint32_t kReadOnly = 0x40000040;
inline constexpr std::uint32_t kData = 0xC0000040;

class PeBuilder {
 public:
  explicit PeBuilder(std::vector<TestSection> sections) : file_(kHeaders) {
    Put16(0, 0x5A4D);
    Put32(0x3C, kPeOffset);
    Put32(kPeOffset, 0x4550);
    Put16(kCoff, 0x8664);
    Put16(kCoff + 2, static_cast<std::uint16_t>(sections.size()));
    Put16(kCoff + 16, static_cast<std::uint16_t>(kOptionalSize));
    Put16(kCoff + 18, 0x0022);
    Put16(kOptional, 0x20B);
    Put32(kOptional + 16, 0x1000);
    Put64(kOptional + 24, kImageBase);
    Put32(kOptional + 32, 0x1000);
    Put32(kOptional + 36, 0x200);
    Put32(kOptional + 60, kHeaders);
    Put16(kOptional + 68, 10);
    Put16(kOptional + 70, 0x100);  // NX_COMPAT
    Put32(kOptional + 108, 16);
    std::uint32_t address = 0x1000;
    for (std::size_t i = 0; i < sections.size(); ++i) {
      address += Add(i, sections[i], address);
    }
    Put32(kOptional + 56, address);
  }

  void Put16(std::size_t offset, std::uint16_t value) { std::memcpy(file_.data() + offset, &value, sizeof(value)); }
  void Put32(std::size_t offset, std::uint32_t value) { std::memcpy(file_.data() + offset, &value, sizeof(value)); }
  void Put64(std::size_t offset, std::uint64_t value) { std::memcpy(file_.data() + offset, &value, sizeof(value)); }
  void Directory(std::size_t index, std::uint32_t address, std::uint32_t size) {
    Put32(kDirectories + index * 8, address);
    Put32(kDirectories + index * 8 + 4, size);
  }
  std::vector<std::uint8_t>& File() { return file_; }
  std::span<const std::byte> Bytes() const { return std::as_bytes(std::span(file_)); }

 private:
  std::uint32_t Add(std::size_t index, const TestSection& section, std::uint32_t address) {
    const std::size_t at = kSections + index * kSectionSize;
    const auto size = static_cast<std::uint32_t>(section.bytes.size());
    const std::uint32_t memory = section.memorySize != 0 ? section.memorySize : size;
    const auto offset = static_cast<std::uint32_t>(file_.size());
    std::strncpy(reinterpret_cast<char*>(file_.data() + at), section.name, 8);
    Put32(at + 8, memory);
    Put32(at + 12, address);
    Put32(at + 16, (size + 0x1FF) & ~0x1FFu);
    Put32(at + 20, offset);
    Put32(at + 36, section.characteristics);
    file_.insert(file_.end(), section.bytes.begin(), section.bytes.end());
    file_.resize((file_.size() + 0x1FF) & ~std::size_t{0x1FF});
    return (memory + 0xFFF) & ~0xFFFu;
  }

  std::vector<std::uint8_t> file_;
};

// Code at 0x1000 ("mov eax, 0; ret" of the x86-64 convention), data at 0x2000 whose first eight bytes hold the
// address of the code, and a relocation table at 0x3000 that says so.
inline PeBuilder SmallImage() {
  std::vector<std::uint8_t> data(8);
  const std::uint64_t pointer = kImageBase + 0x1000;
  std::memcpy(data.data(), &pointer, sizeof(pointer));
  const std::vector<std::uint8_t> relocations{0x00, 0x20, 0, 0, 12, 0, 0, 0, 0x00, 0xA0, 0x00, 0x00};
  PeBuilder builder(
      {{".text", kCode, {0x31, 0xC0, 0xC3}}, {".data", kData, data, 0x100}, {".reloc", kReadOnly, relocations}});
  builder.Directory(5, 0x3000, 12);
  return builder;
}

}  // namespace sim::test

// The headers of a PE32+ file: one check after the other, each with the text that a person needs to find the fault.
#include "sim/firmware/image/pe_image.h"

#include <algorithm>
#include <bit>

#include "sim/firmware/image/pe_reader.h"

namespace sim {
namespace {

#pragma pack(push, 1)
struct CoffHeader {
  std::uint32_t signature;
  std::uint16_t machine;
  std::uint16_t sectionCount;
  std::uint32_t timeStamp;
  std::uint32_t symbolTable;
  std::uint32_t symbolCount;
  std::uint16_t optionalSize;
  std::uint16_t characteristics;
};
static_assert(sizeof(CoffHeader) == 24);

struct OptionalHeader {
  std::uint16_t magic;
  std::uint8_t linkerVersion[2];
  std::uint32_t codeSize;
  std::uint32_t dataSize;
  std::uint32_t bssSize;
  std::uint32_t entryPoint;
  std::uint32_t codeBase;
  std::uint64_t imageBase;
  std::uint32_t sectionAlignment;
  std::uint32_t fileAlignment;
  std::uint16_t versions[6];
  std::uint32_t win32Version;
  std::uint32_t imageSize;
  std::uint32_t headerSize;
  std::uint32_t checkSum;
  std::uint16_t subsystem;
  std::uint16_t dllCharacteristics;
  std::uint64_t stackAndHeap[4];
  std::uint32_t loaderFlags;
  std::uint32_t directoryCount;
};
static_assert(sizeof(OptionalHeader) == 112);

struct SectionHeader {
  char name[8];
  std::uint32_t virtualSize;
  std::uint32_t address;
  std::uint32_t fileSize;
  std::uint32_t fileOffset;
  std::uint32_t relocations;
  std::uint32_t lineNumbers;
  std::uint16_t relocationCount;
  std::uint16_t lineNumberCount;
  std::uint32_t characteristics;
};
static_assert(sizeof(SectionHeader) == 40);
#pragma pack(pop)

constexpr std::uint32_t kPeSignature = 0x00004550;  // "PE\0\0"
constexpr std::uint16_t kMzSignature = 0x5A4D;      // "MZ"
constexpr std::uint16_t kMachineX64 = 0x8664;
constexpr std::uint16_t kPe32PlusMagic = 0x20B;
constexpr std::uint16_t kRelocationsStripped = 0x0001;
constexpr std::uint16_t kNxCompatible = 0x0100;
constexpr std::uint32_t kSectionExecutable = 0x20000000;
constexpr std::uint32_t kSectionWritable = 0x80000000;
constexpr std::uint64_t kOffsetOfPeOffset = 0x3C;
constexpr std::uint16_t kMaxSections = 96;
constexpr std::uint32_t kImportDirectory = 1;
constexpr std::uint32_t kResourceDirectory = 2;
constexpr std::uint32_t kRelocationDirectory = 5;
constexpr std::uint32_t kMaxDirectories = 16;
constexpr std::uint32_t kImportSize = 20;  // of one import descriptor

class Reader {
 public:
  Reader(std::span<const std::byte> file, PeError& error) : file_(file), error_(error) {}

  std::optional<PeImage> Read() {
    const bool read = ReadCoffHeader() && ReadOptionalHeader() && ReadDirectories() && ReadSections() && CheckWhole();
    return read ? std::optional(std::move(image_)) : std::nullopt;
  }

 private:
  bool Unsupported(std::string text) { return Fail(EFI_UNSUPPORTED, std::move(text)); }
  bool Damaged(std::string text) { return Fail(EFI_LOAD_ERROR, std::move(text)); }
  bool Fail(EFI_STATUS status, std::string text) {
    error_ = {status, std::move(text)};
    return false;
  }

  bool ReadCoffHeader() {
    if (FieldAt<std::uint16_t>(file_, 0) != kMzSignature) {
      return Unsupported("the file does not begin with an MZ header");
    }
    const auto offset = FieldAt<std::uint32_t>(file_, kOffsetOfPeOffset);
    const auto coff = offset ? FieldAt<CoffHeader>(file_, *offset) : std::nullopt;
    if (!coff) {
      return Damaged("the file ends before its PE header");
    }
    if (coff->signature != kPeSignature) {
      return Unsupported("the PE signature is missing");
    }
    if (coff->machine != kMachineX64) {
      return Unsupported("the image is not for x86-64");
    }
    if (coff->sectionCount == 0 || coff->sectionCount > kMaxSections) {
      return Damaged("the image has no sections, or more than " + std::to_string(kMaxSections));
    }
    coff_ = *coff;
    optionalOffset_ = std::uint64_t{*offset} + sizeof(CoffHeader);
    return true;
  }

  bool ReadOptionalHeader() {
    const auto optional = FieldAt<OptionalHeader>(file_, optionalOffset_);
    if (!optional || coff_.optionalSize < sizeof(OptionalHeader) ||
        !Within(optionalOffset_, coff_.optionalSize, file_.size())) {
      return Damaged("the optional header is cut short");
    }
    if (optional->magic != kPe32PlusMagic) {
      return Unsupported("the image is not PE32+");
    }
    if (optional->subsystem < kSubsystemApplication || optional->subsystem > kSubsystemRuntimeDriver) {
      return Unsupported("the subsystem is " + std::to_string(optional->subsystem) + ", not an EFI one (10 to 12)");
    }
    if (optional->imageSize == 0 || optional->imageSize > kMaxImageSize) {
      return Damaged("the image's size in memory is zero or above 256 MiB");
    }
    if (!std::has_single_bit(optional->sectionAlignment)) {
      return Damaged("the section alignment is not a power of two");
    }
    optional_ = *optional;
    image_.subsystem = optional->subsystem;
    image_.preferredBase = optional->imageBase;
    image_.entryPoint = optional->entryPoint;
    image_.imageSize = optional->imageSize;
    image_.headerSize = optional->headerSize;
    image_.sectionAlignment = optional->sectionAlignment;
    image_.nxCompatible = (optional->dllCharacteristics & kNxCompatible) != 0;
    return true;
  }

  bool ReadDirectories() {
    const std::uint32_t count = optional_.directoryCount;
    if (count > kMaxDirectories ||
        !Within(sizeof(OptionalHeader), std::uint64_t{count} * sizeof(PeDirectory), coff_.optionalSize)) {
      return Damaged("the data directories do not fit the optional header");
    }
    const auto directory = [&](std::uint32_t index) {
      const std::uint64_t at = optionalOffset_ + sizeof(OptionalHeader) + index * sizeof(PeDirectory);
      return index < count ? FieldAt<PeDirectory>(file_, at).value_or(PeDirectory{}) : PeDirectory{};
    };
    image_.relocations = directory(kRelocationDirectory);
    image_.resources = directory(kResourceDirectory);
    imports_ = directory(kImportDirectory);
    for (const PeDirectory& each : {image_.relocations, image_.resources}) {
      if (each.size != 0 && !Within(each.address, each.size, image_.imageSize)) {
        return Damaged("a data directory lies outside the image");
      }
    }
    image_.relocatable = (coff_.characteristics & kRelocationsStripped) == 0;
    return true;
  }

  bool ReadSections() {
    const std::uint64_t table = optionalOffset_ + coff_.optionalSize;
    const std::uint64_t tableSize = std::uint64_t{coff_.sectionCount} * sizeof(SectionHeader);
    if (!Within(table, tableSize, image_.headerSize) || image_.headerSize > file_.size() ||
        image_.headerSize > image_.imageSize) {
      return Damaged("the section table lies outside the headers, or the headers outside the file");
    }
    std::uint64_t end = image_.headerSize;
    for (std::uint16_t i = 0; i < coff_.sectionCount; ++i) {
      const auto header = FieldAt<SectionHeader>(file_, table + i * sizeof(SectionHeader));
      if (!header || !ReadSection(*header, end)) {
        return false;
      }
    }
    return true;
  }

  bool ReadSection(const SectionHeader& header, std::uint64_t& end) {
    PeSection section;
    section.name.assign(header.name, std::find(header.name, std::end(header.name), '\0'));
    section.address = header.address;
    section.size = header.virtualSize != 0 ? header.virtualSize : header.fileSize;
    section.fileOffset = header.fileOffset;
    section.fileSize = std::min(header.fileSize, section.size);
    section.executable = (header.characteristics & kSectionExecutable) != 0;
    section.writable = (header.characteristics & kSectionWritable) != 0;
    const std::string where = "section \"" + section.name + "\" ";
    if (section.address < end) {
      return Damaged(where + "overlaps what lies before it");
    }
    if (!Within(section.address, section.size, image_.imageSize)) {
      return Damaged(where + "reaches past the image's end");
    }
    if (header.fileSize != 0 && !Within(header.fileOffset, header.fileSize, file_.size())) {
      return Damaged(where + "reaches past the file's end");
    }
    end = std::uint64_t{section.address} + section.size;
    image_.sections.push_back(std::move(section));
    return true;
  }

  // Some linkers write an import table that holds nothing but its closing, zero descriptor.
  bool ImportsNothing() const {
    if (imports_.size == 0) {
      return true;
    }
    for (const PeSection& section : image_.sections) {
      if (imports_.address < section.address ||
          !Within(imports_.address - section.address, kImportSize, section.size)) {
        continue;
      }
      const std::uint32_t inside = imports_.address - section.address;
      const std::uint32_t stored = section.fileSize > inside ? std::min(section.fileSize - inside, kImportSize) : 0;
      const auto bytes = file_.subspan(stored == 0 ? 0 : section.fileOffset + inside, stored);
      return std::all_of(bytes.begin(), bytes.end(), [](std::byte byte) { return byte == std::byte{0}; });
    }
    return false;
  }

  bool CheckWhole() {
    if (!ImportsNothing()) {
      return Unsupported("the image imports from other modules");
    }
    const auto holdsEntry = [this](const PeSection& section) {
      return section.executable && image_.entryPoint >= section.address &&
             image_.entryPoint - section.address < section.size;
    };
    return std::any_of(image_.sections.begin(), image_.sections.end(), holdsEntry) ||
           Damaged("the entry point does not lie in executable code");
  }

  std::span<const std::byte> file_;
  PeError& error_;
  PeImage image_;
  CoffHeader coff_{};
  OptionalHeader optional_{};
  std::uint64_t optionalOffset_ = 0;
  PeDirectory imports_;
};

}  // namespace

std::optional<PeImage> ReadPe(std::span<const std::byte> file, PeError& error) { return Reader(file, error).Read(); }

}  // namespace sim

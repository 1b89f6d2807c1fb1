// Reads a PE32+ image file (UEFI 2.10, 2.1.1; the Microsoft PE format) without trusting any of it. Whatever passes
// here can be copied, relocated and protected without another check of a length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

inline constexpr std::uint16_t kSubsystemApplication = 10;
inline constexpr std::uint16_t kSubsystemBootServiceDriver = 11;
inline constexpr std::uint16_t kSubsystemRuntimeDriver = 12;

struct PeSection {
  std::string name;
  std::uint32_t address = 0;  // relative to the image base
  std::uint32_t size = 0;     // bytes in memory
  std::uint32_t fileOffset = 0;
  std::uint32_t fileSize = 0;  // bytes to copy; never above size
  bool writable = false;
  bool executable = false;
};

struct PeDirectory {
  std::uint32_t address = 0;
  std::uint32_t size = 0;
};

struct PeImage {
  std::uint16_t subsystem = 0;
  std::uint64_t preferredBase = 0;
  std::uint32_t entryPoint = 0;
  std::uint32_t imageSize = 0;   // bytes in memory
  std::uint32_t headerSize = 0;  // bytes of headers, copied to the image's start
  std::uint32_t sectionAlignment = 0;
  bool relocatable = false;
  bool nxCompatible = false;  // it says that it never runs what it can write (DllCharacteristics)
  PeDirectory relocations;
  PeDirectory resources;
  std::vector<PeSection> sections;  // by address, without overlap

  // Firmware protects the sections of an image that allows it and whose sections share no page.
  bool Protected() const { return nxCompatible && sectionAlignment >= 4096; }
};

inline constexpr std::uint32_t kMaxImageSize = 256 * 1024 * 1024;

// Why an image was refused: EFI_UNSUPPORTED when it is no image for this machine, EFI_LOAD_ERROR when it is damaged.
struct PeError {
  EFI_STATUS status = EFI_SUCCESS;
  std::string text;
};

// Nothing, with the error set, for anything but a whole and consistent x86-64 EFI image.
std::optional<PeImage> ReadPe(std::span<const std::byte> file, PeError& error);

// Copies headers and sections to memory (imageSize bytes, zero) and adds the distance from the preferred base to
// every relocated address. `base` is the address that the image will run at. False with the error set when a
// relocation lies outside the image or is of a kind that x86-64 does not have.
bool PlacePe(const PeImage& image, std::span<const std::byte> file, std::span<std::byte> memory, std::uint64_t base,
             PeError& error);

// The HII package list in the image's resources (type "HII", UEFI 2.10, 7.4.1) as bytes of the placed image; empty
// when there is none or the resource tree is damaged.
std::span<std::byte> FindHiiResource(const PeImage& image, std::span<std::byte> memory);

// What each page of the placed image may be used for.
enum class PageRights : std::uint8_t { Read, ReadWrite, ReadExecute, WriteExecute };
// One entry per 4 KiB page; a page that sections share gets the rights of both. WriteExecute pages cannot be granted:
// an image that has one is loaded, but not run.
std::vector<PageRights> RightsByPage(const PeImage& image);

}  // namespace sim

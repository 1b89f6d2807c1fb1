#include "sim/firmware/port_thunks.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "sim/firmware/machine.h"

namespace sim {
namespace {

UINT8 EFIAPI In8(UINT16 port) { return static_cast<UINT8>(Machine::Current().Ports().In(port, 1)); }
UINT32 EFIAPI In32(UINT16 port) { return Machine::Current().Ports().In(port, 4); }
void EFIAPI Out8(UINT16 port, UINT8 value) { Machine::Current().Ports().Out(port, value, 1); }
void EFIAPI OutString8(UINT16 port, const UINT8* data, UINTN count) {
  Machine::Current().Ports().OutString(port, {data, count});
}

constexpr std::size_t kJumpSize = 5;   // JMP rel32
constexpr std::size_t kStubSize = 16;  // MOV RAX, imm64; JMP RAX
constexpr std::size_t kPageSize = 4096;

// A routine in the calling convention of UEFI on x64, up to its return.
struct Routine {
  std::array<std::uint8_t, 16> code;
  std::size_t size;
  std::size_t instruction;  // where in it the port instruction stands
  void* replacement;
};

// A routine shorter than the jump is followed by the padding before the next one.
const Routine kRoutines[] = {
    {{0x89, 0xCA, 0xEC, 0xC3, 0x90}, 5, 2, reinterpret_cast<void*>(In8)},
    {{0x89, 0xCA, 0xED, 0xC3, 0x90}, 5, 2, reinterpret_cast<void*>(In32)},
    {{0x89, 0xD0, 0x89, 0xCA, 0xEE, 0xC3}, 6, 4, reinterpret_cast<void*>(Out8)},
    {{0x89, 0xC8, 0x56, 0x4C, 0x89, 0xC1, 0x48, 0x89, 0xD6, 0x89, 0xC2, 0xF3, 0x6E, 0x5E, 0xC3},
     15,
     11,
     reinterpret_cast<void*>(OutString8)},
};

// Jumps to the replacements, in reach of images' code; null where the host gives no such memory.
const std::uint8_t* Stubs() {
  static const std::uint8_t* const stubs = []() -> const std::uint8_t* {
    void* page = mmap(nullptr, kPageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
    if (page == MAP_FAILED) {
      return nullptr;
    }
    auto* at = static_cast<std::uint8_t*>(page);
    for (const Routine& routine : kRoutines) {
      constexpr std::uint8_t kMovRax[] = {0x48, 0xB8};
      constexpr std::uint8_t kJmpRax[] = {0xFF, 0xE0};
      std::memcpy(at, kMovRax, sizeof(kMovRax));
      std::memcpy(at + 2, &routine.replacement, sizeof(routine.replacement));
      std::memcpy(at + 10, kJmpRax, sizeof(kJmpRax));
      at += kStubSize;
    }
    mprotect(page, kPageSize, PROT_READ | PROT_EXEC);
    return static_cast<std::uint8_t*>(page);
  }();
  return stubs;
}

// Written past the page's protection, which need not be known then.
void WriteCode(std::uint64_t address, std::span<const std::uint8_t> code) {
  static const int memory = open("/proc/self/mem", O_WRONLY | O_CLOEXEC);
  if (memory >= 0) {
    static_cast<void>(pwrite(memory, code.data(), code.size(), static_cast<off_t>(address)));
  }
}

// The bytes before and behind a faulting instruction may lie on pages that are not there.
bool OnOnePage(std::uint64_t first, std::size_t size) { return first / kPageSize == (first + size - 1) / kPageSize; }

}  // namespace

void ShortenPortRoutine(greg_t* registers, std::uint64_t instruction) {
  for (const Routine& routine : kRoutines) {
    const std::uint64_t start = instruction - routine.instruction;
    if (!OnOnePage(start, routine.size) ||
        std::memcmp(reinterpret_cast<const void*>(start), routine.code.data(), routine.size) != 0) {
      continue;
    }
    const std::uint8_t* stubs = Stubs();
    if (stubs == nullptr) {
      return;
    }
    const auto stub = reinterpret_cast<std::int64_t>(stubs + (&routine - kRoutines) * kStubSize);
    const std::int64_t distance = stub - static_cast<std::int64_t>(start + kJumpSize);
    const auto offset = static_cast<std::int32_t>(distance);
    if (offset != distance) {
      return;
    }
    std::array<std::uint8_t, kJumpSize> jump{0xE9};
    std::memcpy(jump.data() + 1, &offset, sizeof(offset));
    // A return that the jump overwrites is carried out here: nothing else stands between it and the instruction.
    if (static_cast<std::uint64_t>(registers[REG_RIP]) < start + kJumpSize) {
      std::memcpy(&registers[REG_RIP], reinterpret_cast<const void*>(registers[REG_RSP]), sizeof(greg_t));
      registers[REG_RSP] += sizeof(greg_t);
    }
    WriteCode(start, jump);
    return;
  }
}

}  // namespace sim

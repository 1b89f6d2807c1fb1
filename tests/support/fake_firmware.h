// The few firmware services that the driver's pure parts need, for tests without a machine: a pool, a handle database,
// variables, a serial port and legacy memory. Services that no such test needs are null: a call ends the test. Misuse
// of a service, and pool blocks that nobody freed, fail the test when the fake goes.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/system_table.h"
#include "support/byte_reader.h"

namespace fake {

using Data = std::vector<std::uint8_t>;

// A device path put together node by node.
class Path {
 public:
  Path& Node(UINT8 type, UINT8 subType, const Data& body);
  // The bytes with their end node.
  Data Bytes() const;

 private:
  Data nodes_;
};

class Firmware {
 public:
  Firmware();
  ~Firmware();
  Firmware(const Firmware&) = delete;
  Firmware& operator=(const Firmware&) = delete;

  // Pool. The allocation that comes after `successes` more fails, and it alone.
  std::size_t PoolBlocks() const { return blocks_.size(); }
  void FailAllocationAfter(int successes) { allocationsLeft_ = successes; }

  // Handle database.
  EFI_HANDLE NewHandle();
  EFI_HANDLE NewHandle(const Path& path);
  void Install(EFI_HANDLE handle, const EFI_GUID& guid, void* interface);
  template <typename T>
  void Install(EFI_HANDLE handle, T* interface) {
    Install(handle, ProtocolGuid<T>, interface);
  }
  void OpenByDriver(EFI_HANDLE handle, const EFI_GUID& guid, EFI_HANDLE agent, UINT32 attributes);

  // Variables of the global vendor GUID, by name.
  std::map<std::u16string, Data> Variables;
  std::vector<std::u16string> Deleted;  // names in the order of deletion

  // What the driver printed.
  std::string Log;

  // Zeroed memory at its true addresses, 0x1000 to 0x10FFFF. The text is written there without a NUL.
  void WriteLegacy(UINT32 address, std::string_view text);
  std::string ReadLegacy(UINT32 address, std::size_t size) const;

 private:
  friend struct Services;
  struct Open {
    EFI_HANDLE Handle;
    EFI_GUID Guid;
    EFI_OPEN_PROTOCOL_INFORMATION_ENTRY Entry;
  };
  using Interfaces = std::vector<std::pair<EFI_GUID, void*>>;

  EFI_SYSTEM_TABLE system_{};
  EFI_BOOT_SERVICES boot_{};
  EFI_RUNTIME_SERVICES runtime_{};
  std::map<void*, std::size_t> blocks_;
  int allocationsLeft_ = -1;
  std::map<EFI_HANDLE, Interfaces> handles_;
  std::vector<Open> opens_;
  std::vector<std::unique_ptr<Data>> paths_;
};

}  // namespace fake

// A server for tests of the boot option routines, on top of the fake firmware: variables with GUIDs and attributes
// that a store may refuse, volumes, disks, a BBS table, and device paths written node by node. What firmware would
// refuse is refused here too. Whole boots run on the simulated server.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bootopt/boot_lists.h"
#include "platform/legacy_bios.h"
#include "platform/simple_file_system.h"
#include "support/services.h"
#include "tests/support/name_fakes.h"

namespace bdstest {

using Blob = std::vector<std::byte>;

// Bytes from numbers, from text, and one after the other.
Blob B(std::initializer_list<unsigned> values);
Blob Utf16(const std::u16string& text);  // with its NUL
Blob operator+(const Blob& a, const Blob& b);
template <typename Plain>
Blob LittleEndian(Plain value) {
  const auto* bytes = reinterpret_cast<const std::byte*>(&value);
  return {bytes, bytes + sizeof(value)};
}

// Device path nodes with their header.
Blob Node(unsigned type, unsigned subType, const Blob& body = {});
Blob End();
Blob EndInstance();
Blob PciRoot();
Blob Pci(unsigned device, unsigned function);
Blob Usb(unsigned port, unsigned interface = 0);
Blob HardDrive(UINT32 partition, unsigned signatureByte, unsigned signatureType = 2, UINT64 start = 2048);
Blob FilePath(const std::u16string& name);
Blob HardwareVendor(const EFI_GUID& guid, const Blob& data = {});
Blob Bbs(UINT16 deviceType);
Blob BuiltInApplication();

struct StoredVariable {
  UINT32 Attributes = 0;
  Blob Data;
  friend bool operator==(const StoredVariable&, const StoredVariable&) = default;
};
using VariableKey = std::pair<std::u16string, std::string>;  // name and the GUID's bytes

// A volume that holds files of these names; counts what is open.
struct FakeVolume {
  EFI_SIMPLE_FILE_SYSTEM_PROTOCOL Protocol{};  // first: the protocol's address is the volume's
  std::set<std::u16string> Files;
  EFI_STATUS OpenStatus = EFI_SUCCESS;
  int Opened = 0;  // opens so far
  int StillOpen = 0;
  FakeVolume();
  FakeVolume(const FakeVolume&) = delete;
};

class FakeServer {
 public:
  FakeServer();
  ~FakeServer();  // empties the lists; a pool block that is left then fails the test
  FakeServer(const FakeServer&) = delete;

  // A handle with a device path (none when empty), which lives as long as this object.
  EFI_HANDLE AddHandle(const Blob& path = {});
  void Install(EFI_HANDLE handle, const EFI_GUID& guid, void* interface);
  template <typename T>
  void Install(EFI_HANDLE handle, T& interface) {
    Install(handle, ProtocolGuid<T>, &interface);
  }
  void OpenByDriver(EFI_HANDLE handle, const EFI_GUID& guid, EFI_HANDLE agent) {
    firmware_.OpenByDriver(handle, guid, agent, EFI_OPEN_PROTOCOL_BY_DRIVER);
  }

  // Publishes a BBS table with these entries; it keeps its address.
  BBS_TABLE* PublishBbsTable(const std::vector<BBS_TABLE>& entries);

  void SetVariable(const std::u16string& name, const EFI_GUID& guid, UINT32 attributes, const Blob& data);
  std::optional<StoredVariable> Variable(const std::u16string& name,
                                         const EFI_GUID& guid = gEfiGlobalVariableGuid) const;
  std::map<VariableKey, StoredVariable> Variables;
  // Asked before each write; an error is the write's answer and nothing is stored.
  std::function<EFI_STATUS(const std::u16string& name)> RefuseWrite;
  int Writes = 0;
  // Asked before each read; an error is the read's answer.
  std::function<EFI_STATUS(const std::u16string& name)> RefuseRead;

  const std::string& Log() const { return firmware_.Log; }
  bool Logged(const std::string& text) const { return Log().find(text) != std::string::npos; }
  int CountLogged(const std::string& text) const;

  bool PoolExhausted = false;  // while set, every allocation fails
  int PoolFailsAfter = -1;     // the allocation behind this many fails, and it alone
  bool* PoolFailed = nullptr;  // set when that happened

 private:
  friend struct ServerServices;

  fake::Firmware firmware_;
  decltype(EFI_BOOT_SERVICES::AllocatePool) allocatePool_ = nullptr;
  std::vector<std::pair<EFI_HANDLE, EFI_GUID>> interfaces_;
  std::vector<std::unique_ptr<Blob>> paths_;
  std::vector<BBS_TABLE> bbsTable_;
  UINT16 bbsCount_ = 0;
  EFI_LEGACY_BIOS_PROTOCOL legacyBios_{};
};

// A new record at the end of BootOptionList.
bds::BOOT_OPTION& AddOption(const Blob& path, bool firmware = false, UINT16 number = bds::kNoBootOptionNumber,
                            UINT32 priority = bds::kUnassigned, const std::u16string& description = u"name");
Blob PathOf(const bds::BOOT_OPTION& option);
// The list's numbers, in its order.
std::vector<unsigned> Numbers();

}  // namespace bdstest

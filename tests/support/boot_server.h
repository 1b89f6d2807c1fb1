// The simulated machine for tests of the boot option routines: device paths written node by node, volumes that hold
// files by name, the CSM's BBS table. Whole boots run on the described server.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bootopt/boot_lists.h"
#include "platform/simple_file_system.h"
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

class FakeServer : public fake::Firmware {
 public:
  ~FakeServer();  // empties the lists

  // A handle with a device path (none when empty), which lives as long as this object.
  EFI_HANDLE AddHandle(const Blob& path = {}) { return NewHandle(path); }
  using DriverMachine::Install;
  template <typename T>
  void Install(EFI_HANDLE handle, T& interface) {
    DriverMachine::Install(handle, ProtocolGuid<T>, &interface);
  }

  // A CSM with these entries; its table keeps its address.
  BBS_TABLE* PublishBbsTable(const std::vector<BBS_TABLE>& entries);

  // Replaces a variable of other attributes.
  void SetVariable(const std::u16string& name, const EFI_GUID& guid, UINT32 attributes, const Blob& data);
  std::optional<StoredVariable> Variable(const std::u16string& name,
                                         const EFI_GUID& guid = gEfiGlobalVariableGuid) const;
  int CountLogged(const std::string& text);
};

// A new record at the end of BootOptionList.
bds::BOOT_OPTION& AddOption(const Blob& path, bool firmware = false, UINT16 number = bds::kNoBootOptionNumber,
                            UINT32 priority = bds::kUnassigned, const std::u16string& description = u"name");
Blob PathOf(const bds::BOOT_OPTION& option);
// The list's numbers, in its order.
std::vector<unsigned> Numbers();

}  // namespace bdstest

#include "tests/support/fake_firmware.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/io_ports.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/services.h"

namespace fake {
namespace {

Firmware* gCurrent = nullptr;

constexpr std::uintptr_t kLegacyBase = 0x1000;
constexpr std::size_t kLegacySize = 0x10F000;

void MapLegacyMemory() {
  static void* const mapped = mmap(reinterpret_cast<void*>(kLegacyBase), kLegacySize, PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  ASSERT_EQ(mapped, reinterpret_cast<void*>(kLegacyBase));
  std::memset(mapped, 0, kLegacySize);
}

}  // namespace

Path& Path::Node(UINT8 type, UINT8 subType, const Data& body) {
  const auto length = static_cast<UINT16>(body.size() + 4);
  nodes_.insert(nodes_.end(), {type, subType, static_cast<UINT8>(length), static_cast<UINT8>(length >> 8)});
  nodes_.insert(nodes_.end(), body.begin(), body.end());
  return *this;
}

Data Path::Bytes() const {
  Data bytes = nodes_;
  bytes.insert(bytes.end(), {0x7F, 0xFF, 4, 0});
  return bytes;
}

struct Services {
  static Firmware& Fw() { return *gCurrent; }

  static EFI_STATUS EFIAPI AllocatePool(EFI_MEMORY_TYPE type, UINTN size, VOID** buffer) {
    EXPECT_EQ(type, EfiBootServicesData);
    if (Fw().allocationsLeft_ == 0) {
      Fw().allocationsLeft_ = -1;
      return EFI_OUT_OF_RESOURCES;
    }
    Fw().allocationsLeft_ -= Fw().allocationsLeft_ > 0 ? 1 : 0;
    *buffer = std::malloc(size == 0 ? 1 : size);
    std::memset(*buffer, 0xAF, size);
    Fw().blocks_[*buffer] = size;
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI FreePool(VOID* buffer) {
    if (Fw().blocks_.erase(buffer) == 0) {
      ADD_FAILURE() << "a block that is none of the pool's was freed";
      return EFI_INVALID_PARAMETER;
    }
    std::free(buffer);
    return EFI_SUCCESS;
  }
  // Memory that a service gives to its caller, whom no scripted failure concerns.
  template <typename T>
  static T* GiveBlock(std::size_t count) {
    void* block = std::malloc(count * sizeof(T) + 1);
    Fw().blocks_[block] = count * sizeof(T);
    return static_cast<T*>(block);
  }

  static void* Find(EFI_HANDLE handle, const EFI_GUID& guid, bool& found) {
    found = false;
    const auto entry = Fw().handles_.find(handle);
    if (entry == Fw().handles_.end()) {
      ADD_FAILURE() << "unknown handle " << handle;
      return nullptr;
    }
    for (const auto& [installed, interface] : entry->second) {
      if (installed == guid) {
        found = true;
        return interface;
      }
    }
    return nullptr;
  }
  static EFI_STATUS EFIAPI HandleProtocol(EFI_HANDLE handle, const EFI_GUID* guid, VOID** interface) {
    bool found = false;
    *interface = Find(handle, *guid, found);
    return found ? EFI_SUCCESS : EFI_UNSUPPORTED;
  }
  static EFI_STATUS EFIAPI OpenProtocol(EFI_HANDLE handle, const EFI_GUID* guid, VOID** interface, EFI_HANDLE agent,
                                        EFI_HANDLE, UINT32 attributes) {
    EXPECT_EQ(attributes, EFI_OPEN_PROTOCOL_GET_PROTOCOL);
    EXPECT_NE(agent, nullptr);
    return HandleProtocol(handle, guid, interface);
  }
  static EFI_STATUS EFIAPI LocateProtocol(const EFI_GUID* guid, VOID*, VOID** interface) {
    for (const auto& [handle, interfaces] : Fw().handles_) {
      bool found = false;
      *interface = Find(handle, *guid, found);
      if (found) {
        return EFI_SUCCESS;
      }
    }
    *interface = nullptr;
    return EFI_NOT_FOUND;
  }
  static EFI_STATUS EFIAPI LocateDevicePath(const EFI_GUID* guid, EFI_DEVICE_PATH_PROTOCOL** path, EFI_HANDLE* device) {
    const bds::Bytes bytes(reinterpret_cast<const std::byte*>(*path), bds::kMaxDevicePathSize);
    const UINTN wanted = bds::DevicePathSize(bytes, bds::NodeTypes::Any);  // the service knows no node types
    EXPECT_NE(wanted, 0U) << "a broken path was given to a service";
    UINTN best = 0;
    bool any = false;
    for (const auto& [handle, interfaces] : Fw().handles_) {
      bool carries = false;
      static_cast<void>(Find(handle, *guid, carries));
      bool hasPath = false;
      const void* own = Find(handle, ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, hasPath);
      if (!carries || !hasPath) {
        continue;
      }
      const UINTN size = bds::DevicePathSize(static_cast<const EFI_DEVICE_PATH_PROTOCOL*>(own)) - 4;
      if (size + 4 <= wanted && std::memcmp(own, *path, size) == 0 && (!any || size > best)) {
        any = true;
        best = size;
        *device = handle;
      }
    }
    if (any) {
      *path = reinterpret_cast<EFI_DEVICE_PATH_PROTOCOL*>(reinterpret_cast<UINT8*>(*path) + best);
    }
    return any ? EFI_SUCCESS : EFI_NOT_FOUND;
  }
  static EFI_STATUS EFIAPI ProtocolsPerHandle(EFI_HANDLE handle, EFI_GUID*** protocols, UINTN* count) {
    auto& interfaces = Fw().handles_.at(handle);
    *count = interfaces.size();
    *protocols = GiveBlock<EFI_GUID*>(interfaces.size());
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
      (*protocols)[i] = &interfaces[i].first;
    }
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI OpenProtocolInformation(EFI_HANDLE handle, const EFI_GUID* guid,
                                                   EFI_OPEN_PROTOCOL_INFORMATION_ENTRY** entries, UINTN* count) {
    std::vector<EFI_OPEN_PROTOCOL_INFORMATION_ENTRY> found;
    for (const auto& open : Fw().opens_) {
      if (open.Handle == handle && open.Guid == *guid) {
        found.push_back(open.Entry);
      }
    }
    *count = found.size();
    *entries = GiveBlock<EFI_OPEN_PROTOCOL_INFORMATION_ENTRY>(found.size());
    if (!found.empty()) {
      std::memcpy(*entries, found.data(), found.size() * sizeof(found[0]));
    }
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI GetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32* attributes, UINTN* size,
                                       VOID* data) {
    EXPECT_EQ(*guid, gEfiGlobalVariableGuid);
    const auto variable = Fw().Variables.find(name);
    if (variable == Fw().Variables.end()) {
      return EFI_NOT_FOUND;
    }
    const bool fits = *size >= variable->second.size();
    *size = variable->second.size();
    if (!fits) {
      return EFI_BUFFER_TOO_SMALL;
    }
    if (attributes != nullptr) {
      *attributes = 7;
    }
    std::memcpy(data, variable->second.data(), *size);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI SetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32, UINTN size, const VOID* data) {
    EXPECT_EQ(*guid, gEfiGlobalVariableGuid);
    if (size == 0) {
      Fw().Deleted.push_back(name);
      return Fw().Variables.erase(name) != 0 ? EFI_SUCCESS : EFI_NOT_FOUND;
    }
    const auto* bytes = static_cast<const UINT8*>(data);
    Fw().Variables[name] = Data(bytes, bytes + size);
    return EFI_SUCCESS;
  }
};

Firmware::Firmware() {
  gCurrent = this;
  MapLegacyMemory();
  boot_.AllocatePool = Services::AllocatePool;
  boot_.FreePool = Services::FreePool;
  boot_.HandleProtocol = Services::HandleProtocol;
  boot_.OpenProtocol = Services::OpenProtocol;
  boot_.LocateProtocol = Services::LocateProtocol;
  boot_.LocateDevicePath = Services::LocateDevicePath;
  boot_.ProtocolsPerHandle = Services::ProtocolsPerHandle;
  boot_.OpenProtocolInformation = Services::OpenProtocolInformation;
  runtime_.GetVariable = Services::GetVariable;
  runtime_.SetVariable = Services::SetVariable;
  system_.BootServices = &boot_;
  system_.RuntimeServices = &runtime_;
  bds::StartFresh(bds::gDebug);
  bds::InitializeServices(NewHandle(), &system_);
}

Firmware::~Firmware() {
  EXPECT_EQ(PoolBlocks(), 0U) << "pool blocks were left behind";
  for (const auto& [block, size] : blocks_) {
    std::free(block);
  }
  bds::StartFresh(bds::gServices);
  gCurrent = nullptr;
}

EFI_HANDLE Firmware::NewHandle() {
  const auto handle = reinterpret_cast<EFI_HANDLE>(0x2000'0000 + 16 * (handles_.size() + 1));
  handles_[handle];
  return handle;
}

EFI_HANDLE Firmware::NewHandle(const Path& path) {
  const EFI_HANDLE handle = NewHandle();
  paths_.push_back(std::make_unique<Data>(path.Bytes()));
  Install(handle, ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, paths_.back()->data());
  return handle;
}

void Firmware::Install(EFI_HANDLE handle, const EFI_GUID& guid, void* interface) {
  handles_.at(handle).emplace_back(guid, interface);
}

void Firmware::OpenByDriver(EFI_HANDLE handle, const EFI_GUID& guid, EFI_HANDLE agent, UINT32 attributes) {
  opens_.push_back({handle, guid, {agent, handle, attributes, 1}});
}

void Firmware::WriteLegacy(UINT32 address, std::string_view text) {
  std::memcpy(reinterpret_cast<void*>(std::uintptr_t{address}), text.data(), text.size());
}

std::string Firmware::ReadLegacy(UINT32 address, std::size_t size) const {
  return {reinterpret_cast<const char*>(std::uintptr_t{address}), size};
}

}  // namespace fake

UINT8 IoRead8(UINT16 port) {
  EXPECT_EQ(port, 0x3FD);
  return 0x20;
}
UINT32 IoRead32(UINT16) { return 0; }
void IoWrite8(UINT16 port, UINT8) { ADD_FAILURE() << "port " << port << " was written"; }
void IoWriteString8(UINT16 port, const UINT8* data, UINTN count) {
  EXPECT_EQ(port, 0x3F8);
  EXPECT_LE(count, 16U) << "more than the transmitter holds";
  fake::gCurrent->Log.append(reinterpret_cast<const char*>(data), count);
}
UINT64 ReadTimeStampCounter() { return 0; }

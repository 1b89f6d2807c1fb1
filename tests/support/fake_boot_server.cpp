#include "tests/support/fake_boot_server.h"

#include <algorithm>
#include <cstring>

#include "support/pool.h"
#include "vboot/policy_engine.h"

namespace bdstest {
namespace {

FakeServer* gServer = nullptr;

std::string GuidKey(const EFI_GUID& guid) { return {reinterpret_cast<const char*>(&guid), sizeof(guid)}; }

struct OpenedFile {
  EFI_FILE_PROTOCOL Protocol{};
  FakeVolume* Volume = nullptr;
};

}  // namespace

Blob B(std::initializer_list<unsigned> values) {
  Blob blob;
  for (const unsigned value : values) {
    blob.push_back(static_cast<std::byte>(value));
  }
  return blob;
}
Blob Utf16(const std::u16string& text) {
  const auto* bytes = reinterpret_cast<const std::byte*>(text.c_str());
  return {bytes, bytes + (text.size() + 1) * sizeof(char16_t)};
}
Blob operator+(const Blob& a, const Blob& b) {
  Blob joined = a;
  joined.insert(joined.end(), b.begin(), b.end());
  return joined;
}

Blob Node(unsigned type, unsigned subType, const Blob& body) {
  const auto length = static_cast<unsigned>(body.size() + 4);
  return B({type, subType, length & 0xFF, length >> 8}) + body;
}
Blob End() { return Node(0x7F, 0xFF); }
Blob EndInstance() { return Node(0x7F, 0x01); }
Blob PciRoot() { return Node(2, 1, LittleEndian<UINT32>(0x0A0341D0) + LittleEndian<UINT32>(0)); }
Blob Pci(unsigned device, unsigned function) { return Node(1, 1, B({function, device})); }
Blob Usb(unsigned port, unsigned interface) { return Node(3, 5, B({port, interface})); }
Blob HardDrive(UINT32 partition, unsigned signatureByte, unsigned signatureType, UINT64 start) {
  return Node(4, 1,
              LittleEndian(partition) + LittleEndian(start) + LittleEndian<UINT64>(4096) +
                  Blob(16, static_cast<std::byte>(signatureByte)) + B({2, signatureType}));
}
Blob FilePath(const std::u16string& name) { return Node(4, 4, Utf16(name)); }
Blob HardwareVendor(const EFI_GUID& guid, const Blob& data) { return Node(1, 4, LittleEndian(guid) + data); }
Blob Bbs(UINT16 deviceType) { return Node(5, 1, LittleEndian(deviceType) + B({0, 0, 0})); }
Blob BuiltInApplication() { return Node(4, 3, LittleEndian(bds::kBuiltInApplicationGuid)); }

struct ServerServices {
  static EFI_STATUS EFIAPI AllocatePool(EFI_MEMORY_TYPE type, UINTN size, VOID** buffer) {
    const bool failsNow = gServer->PoolFailsAfter == 0;
    gServer->PoolFailsAfter -= gServer->PoolFailsAfter >= 0 ? 1 : 0;
    if (failsNow && gServer->PoolFailed != nullptr) {
      *gServer->PoolFailed = true;
    }
    return failsNow || gServer->PoolExhausted ? EFI_OUT_OF_RESOURCES : gServer->allocatePool_(type, size, buffer);
  }
  static EFI_STATUS EFIAPI LocateHandleBuffer(EFI_LOCATE_SEARCH_TYPE type, const EFI_GUID* guid, VOID*, UINTN* count,
                                              EFI_HANDLE** buffer) {
    EXPECT_EQ(type, ByProtocol);
    std::vector<EFI_HANDLE> found;
    for (const auto& [handle, installed] : gServer->interfaces_) {
      if (installed == *guid) {
        found.push_back(handle);
      }
    }
    if (found.empty()) {
      return EFI_NOT_FOUND;
    }
    *count = found.size();
    *buffer = static_cast<EFI_HANDLE*>(bds::AllocateCopyPool(found.size() * sizeof(EFI_HANDLE), found.data()));
    return *buffer != nullptr ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES;
  }

  static EFI_STATUS EFIAPI GetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32* attributes, UINTN* size,
                                       VOID* data) {
    const EFI_STATUS refused = gServer->RefuseRead ? gServer->RefuseRead(name) : EFI_SUCCESS;
    if (EFI_ERROR(refused)) {
      return refused;
    }
    const auto found = gServer->Variables.find({name, GuidKey(*guid)});
    if (found == gServer->Variables.end()) {
      return EFI_NOT_FOUND;
    }
    const Blob& stored = found->second.Data;
    const bool fits = *size >= stored.size();
    *size = stored.size();
    if (!fits) {
      return EFI_BUFFER_TOO_SMALL;
    }
    if (data == nullptr) {
      return EFI_INVALID_PARAMETER;
    }
    std::memcpy(data, stored.data(), stored.size());
    if (attributes != nullptr) {
      *attributes = found->second.Attributes;
    }
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI SetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size,
                                       const VOID* data) {
    ++gServer->Writes;
    const EFI_STATUS refused = gServer->RefuseWrite ? gServer->RefuseWrite(name) : EFI_SUCCESS;
    if (EFI_ERROR(refused)) {
      return refused;
    }
    const VariableKey key{name, GuidKey(*guid)};
    const auto found = gServer->Variables.find(key);
    if (size == 0) {
      return gServer->Variables.erase(key) != 0 ? EFI_SUCCESS : EFI_NOT_FOUND;
    }
    if (data == nullptr || (found != gServer->Variables.end() && found->second.Attributes != attributes)) {
      return EFI_INVALID_PARAMETER;
    }
    const auto* bytes = static_cast<const std::byte*>(data);
    gServer->Variables[key] = {attributes, Blob(bytes, bytes + size)};
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI GetBbsInfo(EFI_LEGACY_BIOS_PROTOCOL*, UINT16* hddCount, HDD_INFO** hddInfo, UINT16* bbsCount,
                                      BBS_TABLE** table) {
    *hddCount = 0;
    *hddInfo = nullptr;
    *bbsCount = gServer->bbsCount_;
    *table = gServer->bbsTable_.data();
    return EFI_SUCCESS;
  }

  static EFI_STATUS EFIAPI OpenVolume(EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* self, EFI_FILE_PROTOCOL** root) {
    auto* volume = reinterpret_cast<FakeVolume*>(self);
    if (!EFI_ERROR(volume->OpenStatus)) {
      *root = NewFile(*volume);
    }
    return volume->OpenStatus;
  }
  static EFI_FILE_PROTOCOL* NewFile(FakeVolume& volume) {
    auto* file = new OpenedFile;
    file->Protocol.Open = OpenFile;
    file->Protocol.Close = CloseFile;
    file->Volume = &volume;
    ++volume.Opened;
    ++volume.StillOpen;
    return &file->Protocol;
  }
  static EFI_STATUS EFIAPI OpenFile(EFI_FILE_PROTOCOL* self, EFI_FILE_PROTOCOL** opened, const CHAR16* name,
                                    UINT64 mode, UINT64) {
    FakeVolume& volume = *reinterpret_cast<OpenedFile*>(self)->Volume;
    EXPECT_EQ(mode, EFI_FILE_MODE_READ);
    if (!volume.Files.contains(name)) {
      return EFI_NOT_FOUND;
    }
    *opened = NewFile(volume);
    return EFI_SUCCESS;
  }
  static EFI_STATUS EFIAPI CloseFile(EFI_FILE_PROTOCOL* self) {
    auto* file = reinterpret_cast<OpenedFile*>(self);
    --file->Volume->StillOpen;
    delete file;
    return EFI_SUCCESS;
  }
};

FakeVolume::FakeVolume() { Protocol.OpenVolume = ServerServices::OpenVolume; }

FakeServer::FakeServer() {
  gServer = this;
  EFI_BOOT_SERVICES* boot = bds::BootServices();
  allocatePool_ = boot->AllocatePool;
  boot->AllocatePool = ServerServices::AllocatePool;
  boot->LocateHandleBuffer = ServerServices::LocateHandleBuffer;
  bds::RuntimeServices()->GetVariable = ServerServices::GetVariable;
  bds::RuntimeServices()->SetVariable = ServerServices::SetVariable;
  legacyBios_.GetBbsInfo = ServerServices::GetBbsInfo;
  bds::StartFresh(bds::gBootOptions);
  bds::StartFresh(bds::gPolicyEngine);
}

FakeServer::~FakeServer() {
  PoolExhausted = false;
  while (bds::BootOptionList.First != nullptr) {
    bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
  }
  while (bds::BootDeviceList.First != nullptr) {
    bds::DeleteBootDevice(bds::BootDeviceList, bds::BootDeviceList.First);
  }
  bds::ForgetUnloadedOptions();
  bds::gPolicyEngine.PolicyDebugText.reset();
}

EFI_HANDLE FakeServer::AddHandle(const Blob& path) {
  const EFI_HANDLE handle = firmware_.NewHandle();
  if (!path.empty()) {
    paths_.push_back(std::make_unique<Blob>(path));
    Install(handle, ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, paths_.back()->data());
  }
  return handle;
}

void FakeServer::Install(EFI_HANDLE handle, const EFI_GUID& guid, void* interface) {
  firmware_.Install(handle, guid, interface);
  interfaces_.emplace_back(handle, guid);
}

BBS_TABLE* FakeServer::PublishBbsTable(const std::vector<BBS_TABLE>& entries) {
  if (bbsTable_.empty()) {
    Install(AddHandle(), legacyBios_);
  }
  BBS_TABLE empty{};
  empty.BootPriority = 0xFFFF;
  bbsTable_.resize(256);
  std::fill(bbsTable_.begin(), bbsTable_.end(), empty);
  std::copy(entries.begin(), entries.end(), bbsTable_.begin());
  bbsCount_ = static_cast<UINT16>(entries.size());
  return bbsTable_.data();
}

void FakeServer::SetVariable(const std::u16string& name, const EFI_GUID& guid, UINT32 attributes, const Blob& data) {
  Variables[{name, GuidKey(guid)}] = {attributes, data};
}

std::optional<StoredVariable> FakeServer::Variable(const std::u16string& name, const EFI_GUID& guid) const {
  const auto found = Variables.find({name, GuidKey(guid)});
  return found == Variables.end() ? std::nullopt : std::optional(found->second);
}

int FakeServer::CountLogged(const std::string& text) const {
  int count = 0;
  for (auto at = Log().find(text); at != std::string::npos; at = Log().find(text, at + text.size())) {
    ++count;
  }
  return count;
}

bds::BOOT_OPTION& AddOption(const Blob& path, bool firmware, UINT16 number, UINT32 priority,
                            const std::u16string& description) {
  bds::BOOT_OPTION* option = bds::CreateBootOption(bds::BootOptionList);
  option->FwBootOption = firmware ? TRUE : FALSE;
  option->BootOptionNumber = number;
  option->Priority = priority;
  const Blob text = Utf16(description);
  option->Description.reset(static_cast<CHAR16*>(bds::AllocateCopyPool(text.size(), text.data())));
  if (!path.empty()) {
    option->FilePathList.reset(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(bds::AllocateCopyPool(path.size(), path.data())));
    option->FilePathListLength = path.size();
  }
  return *option;
}

Blob PathOf(const bds::BOOT_OPTION& option) {
  const auto* bytes = reinterpret_cast<const std::byte*>(option.FilePathList.get());
  return bytes == nullptr ? Blob{} : Blob(bytes, bytes + option.FilePathListLength);
}

std::vector<unsigned> Numbers() {
  std::vector<unsigned> numbers;
  for (const bds::BOOT_OPTION* option = bds::BootOptionList.First; option != nullptr; option = option->Next) {
    numbers.push_back(option->BootOptionNumber);
  }
  return numbers;
}

}  // namespace bdstest

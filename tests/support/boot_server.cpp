#include "tests/support/boot_server.h"

#include <algorithm>
#include <cstring>

#include "sim/csm/csm.h"
#include "support/pool.h"
#include "vboot/policy_engine.h"

namespace bdstest {
namespace {

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

struct VolumeServices {
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

FakeVolume::FakeVolume() { Protocol.OpenVolume = VolumeServices::OpenVolume; }

FakeServer::~FakeServer() {
  while (bds::BootOptionList.First != nullptr) {
    bds::DeleteBootOption(bds::BootOptionList, bds::BootOptionList.First);
  }
  while (bds::BootDeviceList.First != nullptr) {
    bds::DeleteBootDevice(bds::BootDeviceList, bds::BootDeviceList.First);
  }
  bds::ForgetUnloadedOptions();
  bds::gPolicyEngine.PolicyDebugText.reset();
}

BBS_TABLE* FakeServer::PublishBbsTable(const std::vector<BBS_TABLE>& entries) {
  sim::Csm& csm = machine.Attach<sim::Csm>(sim::CsmDescription{});
  std::copy(entries.begin(), entries.end(), &csm.Entry(0));
  return &csm.Entry(0);
}

void FakeServer::SetVariable(const std::u16string& name, const EFI_GUID& guid, UINT32 attributes, const Blob& data) {
  static_cast<void>(store.Set(name, guid, 0, {}));
  EXPECT_EQ(store.Set(name, guid, attributes, data), EFI_SUCCESS);
}

std::optional<StoredVariable> FakeServer::Variable(const std::u16string& name, const EFI_GUID& guid) const {
  const sim::Variable* found = Find(name, guid);
  return found == nullptr ? std::nullopt : std::optional(StoredVariable{found->attributes, found->data});
}

int FakeServer::CountLogged(const std::string& text) {
  const std::string log = Log();
  int count = 0;
  for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) {
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

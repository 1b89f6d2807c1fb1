// The protocols of devices and of what names them, each as strict as the standard and no richer than the tests need.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "platform/block_io.h"
#include "platform/component_name.h"
#include "platform/disk_info.h"
#include "platform/hii_database.h"
#include "platform/hii_string.h"
#include "support/text.h"
#include "tests/support/firmware.h"

namespace fake {

// ATA identify data; the model is stored with its byte pairs swapped, as drives do.
struct DiskInfo : EFI_DISK_INFO_PROTOCOL {
  Data IdentifyData = Data(512, 0);
  EFI_STATUS Status = EFI_SUCCESS;
  UINT32 Channel = 0;
  UINT32 Drive = 0;

  DiskInfo() : EFI_DISK_INFO_PROTOCOL{} {
    Identify = [](EFI_DISK_INFO_PROTOCOL* self, VOID* data, UINT32* size) EFIAPI -> EFI_STATUS {
      auto& disk = *static_cast<DiskInfo*>(self);
      const bool fits = *size >= disk.IdentifyData.size();
      *size = static_cast<UINT32>(disk.IdentifyData.size());
      if (!fits) {
        return EFI_BUFFER_TOO_SMALL;
      }
      std::memcpy(data, disk.IdentifyData.data(), disk.IdentifyData.size());
      return disk.Status;
    };
    WhichIde = [](EFI_DISK_INFO_PROTOCOL* self, UINT32* channel, UINT32* drive) EFIAPI -> EFI_STATUS {
      *channel = static_cast<DiskInfo*>(self)->Channel;
      *drive = static_cast<DiskInfo*>(self)->Drive;
      return EFI_SUCCESS;
    };
  }
  explicit DiskInfo(const std::string& serial) : DiskInfo() { SetSerial(serial); }
  void SetModel(std::string model) {
    model.resize(20, ' ');
    for (std::size_t i = 0; i < model.size(); ++i) {
      IdentifyData[54 + (i ^ 1)] = static_cast<UINT8>(model[i]);
    }
  }
  void SetSerial(std::string serial) {
    serial.resize(20, ' ');
    std::memcpy(&IdentifyData[20], serial.data(), serial.size());
  }
};

// A driver that names controllers: (controller, child) to name.
template <typename Protocol>
struct Namer : Protocol {
  std::string Language;
  std::map<std::pair<EFI_HANDLE, EFI_HANDLE>, std::u16string> Names;

  explicit Namer(const char* language) : Protocol{}, Language(language) {
    Protocol::GetControllerName = [](Protocol* self, EFI_HANDLE controller, EFI_HANDLE child, const CHAR8* asked,
                                     CHAR16** name) EFIAPI -> EFI_STATUS {
      auto& namer = *static_cast<Namer*>(self);
      EXPECT_EQ(asked, namer.Language);
      const auto found = namer.Names.find({controller, child});
      if (found == namer.Names.end()) {
        return EFI_UNSUPPORTED;
      }
      *name = found->second.data();
      return EFI_SUCCESS;
    };
  }
};
using Namer2 = Namer<EFI_COMPONENT_NAME2_PROTOCOL>;
using OlderNamer = Namer<EFI_COMPONENT_NAME_PROTOCOL>;

// A HII database with one package list and its strings in some languages.
struct Hii : EFI_HII_DATABASE_PROTOCOL, EFI_HII_STRING_PROTOCOL {
  std::map<std::pair<std::string, UINT16>, std::u16string> Strings;
  const void* PackageList = nullptr;

  Hii() : EFI_HII_DATABASE_PROTOCOL{}, EFI_HII_STRING_PROTOCOL{} {
    NewPackageList = [](const EFI_HII_DATABASE_PROTOCOL* self, const EFI_HII_PACKAGE_LIST_HEADER* list,
                        EFI_HANDLE driver, EFI_HII_HANDLE* handle) EFIAPI -> EFI_STATUS {
      EXPECT_EQ(driver, nullptr);
      auto* hii = static_cast<Hii*>(const_cast<EFI_HII_DATABASE_PROTOCOL*>(self));
      hii->PackageList = list;
      *handle = hii;
      return EFI_SUCCESS;
    };
    GetString = [](const EFI_HII_STRING_PROTOCOL* self, const CHAR8* language, EFI_HII_HANDLE list, EFI_STRING_ID id,
                   CHAR16* text, UINTN* size, EFI_FONT_INFO**) EFIAPI -> EFI_STATUS {
      const auto* hii = static_cast<const Hii*>(self);
      EXPECT_EQ(list, static_cast<const void*>(hii));
      const auto found = hii->Strings.find({language, id});
      if (found == hii->Strings.end()) {
        return EFI_NOT_FOUND;
      }
      const UINTN needed = (found->second.size() + 1) * sizeof(CHAR16);
      const bool fits = *size >= needed;
      *size = needed;
      if (!fits) {
        return EFI_BUFFER_TOO_SMALL;
      }
      std::memcpy(text, found->second.c_str(), needed);
      return EFI_SUCCESS;
    };
  }
};

struct BlockIo : EFI_BLOCK_IO_PROTOCOL {
  EFI_BLOCK_IO_MEDIA MediaData{};
  explicit BlockIo(bool partition, bool removable = false) : EFI_BLOCK_IO_PROTOCOL{} {
    MediaData.LogicalPartition = partition;
    MediaData.RemovableMedia = removable;
    Media = &MediaData;
  }
};

inline Path PciRoot() { return Path().Node(2, 1, {0xD0, 0x41, 0x03, 0x0A, 0, 0, 0, 0}); }
inline Data HardDriveBody(UINT32 number) {
  Data body(38, 0);
  std::memcpy(body.data(), &number, 4);
  return body;
}

}  // namespace fake

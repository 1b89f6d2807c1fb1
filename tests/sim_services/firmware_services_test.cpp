// The platform's services on a machine: memory space, hand-off blocks, firmware volumes, text protocols, records.
#include <gtest/gtest.h>

#include <cstring>

#include "sim/firmware/machine.h"
#include "sim/firmware/services/firmware_volume.h"
#include "sim/firmware/services/hob_list.h"
#include "sim/firmware/services/memory_space.h"
#include "sim/firmware/services/platform_records.h"
#include "sim/firmware/services/text_services.h"
#include "sim/firmware/variables/runtime_services.h"

namespace sim {
namespace {

constexpr EFI_GUID kGuid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

TEST(MemorySpace, AddsRemovesAndMergesRanges) {
  MemorySpace space;
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 0, 2 * kGiB, 8), EFI_SUCCESS);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeReserved, 4 * kGiB, kGiB, EFI_MEMORY_PRESENT | EFI_MEMORY_INITIALIZED),
            EFI_SUCCESS);
  ASSERT_EQ(space.Map().size(), 4u);
  EXPECT_EQ(space.Map()[2].BaseAddress, 4 * kGiB);
  EXPECT_EQ(space.Map()[3].Length, MemorySpace::kEnd - 5 * kGiB);
  EXPECT_EQ(space.Remove(4 * kGiB, kGiB), EFI_SUCCESS);
  EXPECT_EQ(space.Map().size(), 2u) << "what does not exist is one range again";
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 2 * kGiB, kGiB, 8), EFI_SUCCESS);
  ASSERT_EQ(space.Map().size(), 2u);
  EXPECT_EQ(space.Map()[0].Length, 3 * kGiB);
  EXPECT_EQ(space.Remove(kGiB, kGiB), EFI_SUCCESS);
  EXPECT_EQ(space.Map().size(), 4u);
}

TEST(MemorySpace, RefusesWhatTheStandardRefuses) {
  MemorySpace space;
  ASSERT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, kGiB, kGiB, 8), EFI_SUCCESS);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 0, kGiB + 1, 8), EFI_ACCESS_DENIED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 2 * kGiB - 1, 1, 8), EFI_ACCESS_DENIED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, 0, 0, 8), EFI_INVALID_PARAMETER);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeNonExistent, 0, 1, 8), EFI_INVALID_PARAMETER);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, MemorySpace::kEnd - 1, 2, 8), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Add(EfiGcdMemoryTypeSystemMemory, kGiB, ~std::uint64_t{0}, 8), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Remove(0, kGiB + 1), EFI_NOT_FOUND);
  EXPECT_EQ(space.Remove(3 * kGiB, 1), EFI_NOT_FOUND);
  EXPECT_EQ(space.SetAttributes(kGiB, kGiB, 16), EFI_UNSUPPORTED);
  EXPECT_EQ(space.SetAttributes(kGiB, kGiB, 8), EFI_SUCCESS);
  EXPECT_EQ(space.SetCapabilities(kGiB, kGiB, 0), EFI_UNSUPPORTED);
  EXPECT_EQ(space.Map().size(), 3u);
}

TEST(DxeServices, TheTableIsFoundAndItsMapIsTheCallersToFree) {
  Machine machine;
  DxeServicesModel model(machine.BootServices());
  ASSERT_EQ(model.Install(), EFI_SUCCESS);
  auto* table = static_cast<DXE_SERVICES*>(machine.FindConfigurationTable(gEfiDxeServicesTableGuid));
  ASSERT_NE(table, nullptr);
  ASSERT_EQ(table->AddMemorySpace(EfiGcdMemoryTypeSystemMemory, 0, kGiB, 8), EFI_SUCCESS);
  UINTN count = 0;
  EFI_GCD_MEMORY_SPACE_DESCRIPTOR* map = nullptr;
  ASSERT_EQ(table->GetMemorySpaceMap(&count, &map), EFI_SUCCESS);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(map[0].GcdMemoryType, EfiGcdMemoryTypeSystemMemory);
  EXPECT_EQ(machine.BootServices()->FreePool(map), EFI_SUCCESS);
  EXPECT_EQ(table->Dispatch(), EFI_NOT_FOUND);
  bool more = true;
  model.SetDispatcher([&] { return std::exchange(more, false); });
  EXPECT_EQ(table->Dispatch(), EFI_SUCCESS);
  EXPECT_EQ(table->Dispatch(), EFI_NOT_FOUND);
  EXPECT_EQ(model.DispatchCalls(), 3u);
}

TEST(HobList, BlocksFollowEachOtherToTheEnd) {
  HobList list(BOOT_ON_S4_RESUME);
  const EFI_MEMORY_TYPE_INFORMATION types[] = {{0, 5}, {9, 100}};
  ASSERT_TRUE(list.AddVariableGuidNote());
  ASSERT_TRUE(list.AddMemoryTypeInformation(types));
  list.AddResource(0, 7, 0, kGiB);
  ASSERT_TRUE(list.AddGuid(kGuid, std::as_bytes(std::span("abc", 3))));
  const auto* at = static_cast<const std::byte*>(list.Build());
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(at) % 8, 0u);
  const auto* handoff = reinterpret_cast<const EFI_HOB_HANDOFF_INFO_TABLE*>(at);
  EXPECT_EQ(handoff->BootMode, BOOT_ON_S4_RESUME);
  std::vector<std::pair<UINT16, UINT16>> seen;
  const auto* header = &handoff->Header;
  for (int i = 0; i < 10; ++i) {
    seen.emplace_back(header->HobType, header->HobLength);
    at += header->HobLength;
    if (header->HobType == EFI_HOB_TYPE_END_OF_HOB_LIST) {
      break;
    }
    header = reinterpret_cast<const EFI_HOB_GENERIC_HEADER*>(at);
  }
  EXPECT_EQ(seen, (std::vector<std::pair<UINT16, UINT16>>{{1, 56}, {4, 40}, {4, 48}, {3, 48}, {4, 32}, {0xFFFF, 8}}));
  EXPECT_EQ(handoff->EfiEndOfHobList, reinterpret_cast<std::uintptr_t>(at));
  EXPECT_FALSE(list.AddGuid(kGuid, {})) << "a published list does not move";
  HobList other;
  EXPECT_FALSE(other.AddGuid(kGuid, std::vector<std::byte>(0xFFF0)));
}

class Volume : public testing::Test {
 protected:
  Volume() {
    std::vector<std::byte> image(10, std::byte{7});
    volume_.Add({kGuid, EFI_FV_FILETYPE_APPLICATION, u"App", image});
    EFI_GUID other = kGuid;
    other.Data1 = 2;
    volume_.Add({other, EFI_FV_FILETYPE_DRIVER, u"", {}});
  }
  Machine machine_;
  FirmwareVolume volume_{machine_.BootServices()};
  EFI_FIRMWARE_VOLUME2_PROTOCOL* protocol_ = volume_.Protocol();
  UINT32 authentication_ = 0;
};

TEST_F(Volume, ASectionFillsASmallBufferWithAWarning) {
  char buffer[16] = {};
  VOID* at = buffer;
  UINTN size = 4;
  EXPECT_EQ(protocol_->ReadSection(protocol_, &kGuid, EFI_SECTION_PE32, 0, &at, &size, &authentication_),
            EFI_WARN_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(buffer[3], 7);
  EXPECT_EQ(buffer[4], 0);
  EXPECT_EQ(protocol_->ReadSection(protocol_, &kGuid, EFI_SECTION_PE32, 0, &at, &size, &authentication_), EFI_SUCCESS);
  EXPECT_EQ(buffer[9], 7);
}

TEST_F(Volume, ANullBufferIsAllocated) {
  VOID* at = nullptr;
  UINTN size = 0;
  ASSERT_EQ(protocol_->ReadSection(protocol_, &kGuid, EFI_SECTION_USER_INTERFACE, 0, &at, &size, &authentication_),
            EFI_SUCCESS);
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(std::u16string(static_cast<CHAR16*>(at)), u"App");
  EXPECT_EQ(machine_.BootServices()->FreePool(at), EFI_SUCCESS);
}

TEST_F(Volume, MissingFilesAndSectionsAreNotFound) {
  VOID* at = nullptr;
  UINTN size = 0;
  const EFI_GUID driver = volume_.Files()[1].name;
  const EFI_GUID nobody{};
  EXPECT_EQ(protocol_->ReadSection(protocol_, &nobody, EFI_SECTION_PE32, 0, &at, &size, &authentication_),
            EFI_NOT_FOUND);
  EXPECT_EQ(protocol_->ReadSection(protocol_, &driver, EFI_SECTION_PE32, 0, &at, &size, &authentication_),
            EFI_NOT_FOUND);
  EXPECT_EQ(protocol_->ReadSection(protocol_, &kGuid, EFI_SECTION_PE32, 1, &at, &size, &authentication_),
            EFI_NOT_FOUND);
  EXPECT_EQ(protocol_->ReadSection(protocol_, &kGuid, EFI_SECTION_PE32, 0, nullptr, &size, &authentication_),
            EFI_INVALID_PARAMETER);
  EXPECT_FALSE(volume_.Add({kGuid, EFI_FV_FILETYPE_DRIVER, u"", {}}));
}

TEST_F(Volume, FilesAreListedByType) {
  std::uint64_t key = 0;
  EFI_GUID name{};
  EFI_FV_FILE_ATTRIBUTES attributes = 0;
  UINTN size = 0;
  std::vector<EFI_FV_FILETYPE> types;
  for (EFI_FV_FILETYPE type = EFI_FV_FILETYPE_ALL;
       protocol_->GetNextFile(protocol_, &key, &type, &name, &attributes, &size) == EFI_SUCCESS;
       type = EFI_FV_FILETYPE_ALL) {
    types.push_back(type);
  }
  EXPECT_EQ(types, (std::vector<EFI_FV_FILETYPE>{EFI_FV_FILETYPE_APPLICATION, EFI_FV_FILETYPE_DRIVER}));
  key = 0;
  EFI_FV_FILETYPE type = EFI_FV_FILETYPE_DRIVER;
  EXPECT_EQ(protocol_->GetNextFile(protocol_, &key, &type, &name, &attributes, &size), EFI_SUCCESS);
  EXPECT_EQ(name.Data1, 2u);
}

TEST(TextServices, PathsAndTextsAreThePoolsAndTheCallers) {
  Machine machine;
  TextServices services(machine.BootServices());
  ASSERT_EQ(services.Install(), EFI_SUCCESS);
  VOID* found = nullptr;
  ASSERT_EQ(machine.BootServices()->LocateProtocol(&ProtocolGuid<EFI_DEVICE_PATH_TO_TEXT_PROTOCOL>, nullptr, &found),
            EFI_SUCCESS);
  DevicePath path = DevicePath().Acpi(0x0A0341D0).Pci(1, 2);
  CHAR16* text = services.ToText()->ConvertDevicePathToText(path.Get(), FALSE, TRUE);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::u16string(text), u"PciRoot(0x0)/Pci(0x1,0x2)");
  auto* back = services.FromText()->ConvertTextToDevicePath(text);
  EXPECT_EQ(DevicePath::Copy(back), path);
  EXPECT_EQ(services.ToText()->ConvertDevicePathToText(nullptr, FALSE, TRUE), nullptr);
  EXPECT_EQ(machine.BootServices()->FreePool(text), EFI_SUCCESS);
  EXPECT_EQ(machine.BootServices()->FreePool(back), EFI_SUCCESS);
}

TEST(TextServices, UtilitiesTakeInstancesApartAndPutThemTogether) {
  Machine machine;
  TextServices services(machine.BootServices());
  auto* utilities = services.Utilities();
  const auto take = [&](EFI_DEVICE_PATH_PROTOCOL* path) {
    DevicePath copy = DevicePath::Copy(path);
    EXPECT_EQ(machine.BootServices()->FreePool(path), EFI_SUCCESS);
    return copy;
  };
  DevicePath first = DevicePath().Pci(1, 0);
  DevicePath second = DevicePath().Pci(2, 0);
  DevicePath both = take(utilities->AppendDevicePathInstance(first.Get(), second.Get()));
  EXPECT_EQ(both, DevicePath(first).NextInstance(second));
  EXPECT_EQ(utilities->IsDevicePathMultiInstance(both.Get()), TRUE);
  EXPECT_EQ(utilities->IsDevicePathMultiInstance(first.Get()), FALSE);
  EXPECT_EQ(utilities->GetDevicePathSize(both.Get()), both.Size());
  EFI_DEVICE_PATH_PROTOCOL* position = both.Get();
  UINTN size = 0;
  EXPECT_EQ(take(utilities->GetNextDevicePathInstance(&position, &size)), first);
  EXPECT_EQ(size, first.Size());
  EXPECT_EQ(take(utilities->GetNextDevicePathInstance(&position, &size)), second);
  EXPECT_EQ(position, nullptr);
  EXPECT_EQ(utilities->GetNextDevicePathInstance(&position, &size), nullptr);
  EXPECT_EQ(take(utilities->AppendDevicePath(first.Get(), second.Get())), DevicePath().Pci(1, 0).Pci(2, 0));
  EXPECT_EQ(take(utilities->AppendDeviceNode(nullptr, second.Get())), second);
  EXPECT_EQ(take(utilities->DuplicateDevicePath(first.Get())), first);
  EXPECT_EQ(utilities->CreateDeviceNode(1, 1, 3), nullptr);
}

TEST(Collation, FatNamesAreBuiltAndReadBack) {
  Machine machine;
  TextServices services(machine.BootServices());
  auto* collation = services.Collation();
  CHAR8 fat[8];
  EXPECT_EQ(collation->StrToFat(collation, u"a.b c+", sizeof(fat), fat), TRUE);
  EXPECT_EQ(std::string(fat, 8), "ABC_    ");
  CHAR16 text[9] = {};
  collation->FatToStr(collation, 8, "AB\0DEFGH", text);
  EXPECT_EQ(std::u16string(text), u"AB");
  CHAR16 lower[] = u"AbC";
  collation->StrLwr(collation, lower);
  EXPECT_EQ(std::u16string(lower), u"abc");
}

TEST(PlatformRecords, ProgressCodesAndSavesAreRecorded) {
  Machine machine;
  StatusCodeRecorder recorder;
  AcpiS3SaveModel s3;
  ASSERT_EQ(recorder.Install(machine.BootServices()), EFI_SUCCESS);
  ASSERT_EQ(s3.Install(machine.BootServices()), EFI_SUCCESS);
  VOID* found = nullptr;
  ASSERT_EQ(machine.BootServices()->LocateProtocol(&ProtocolGuid<EFI_STATUS_CODE_PROTOCOL>, nullptr, &found),
            EFI_SUCCESS);
  static_cast<EFI_STATUS_CODE_PROTOCOL*>(found)->ReportStatusCode(EFI_PROGRESS_CODE, 0x03051005, 0, nullptr, nullptr);
  ASSERT_EQ(recorder.Records().size(), 1u);
  EXPECT_EQ(recorder.Records()[0].value, 0x03051005u);
  ASSERT_EQ(machine.BootServices()->LocateProtocol(&ProtocolGuid<EFI_ACPI_S3_SAVE_PROTOCOL>, nullptr, &found),
            EFI_SUCCESS);
  auto* save = static_cast<EFI_ACPI_S3_SAVE_PROTOCOL*>(found);
  EXPECT_EQ(save->S3Save(save, nullptr), EFI_SUCCESS);
  EXPECT_EQ(s3.Saves(), 1u);
}

TEST(PlatformRecords, ThePerformanceBlockLiesWhereItsVariableSays) {
  VariableStore store;
  Machine machine;
  machine.Attach<RuntimeServices>(store);
  FirmwarePerformanceModel model;
  ASSERT_EQ(model.Install(machine.BootServices(), machine.RuntimeServices()), EFI_SUCCESS);
  const Variable* variable = store.Find(kFirmwarePerformanceName, kFirmwarePerformanceGuid);
  ASSERT_NE(variable, nullptr);
  ASSERT_EQ(variable->data.size(), 4u);
  UINT32 address = 0;
  std::memcpy(&address, variable->data.data(), 4);
  UINT32 signature = 0;
  std::memcpy(&signature, reinterpret_cast<const void*>(std::uintptr_t{address} - 4), 4);
  EXPECT_EQ(signature, kPerformanceSignature);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(model.Block()), address);
  EXPECT_EQ(model.Block()->BootRecord, reinterpret_cast<std::uintptr_t>(model.Record()));
  EXPECT_EQ(model.LoaderStart(), 0u);
}

}  // namespace
}  // namespace sim

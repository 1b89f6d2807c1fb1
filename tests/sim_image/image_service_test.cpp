// The image services on a machine: where images come from, what runs, how it ends, and what is left afterwards.
#include "sim/firmware/image/image_service.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/load_file.h"
#include "platform/signals.h"
#include "platform/simple_file_system.h"
#include "sim/firmware/services/console.h"
#include "sim/firmware/services/firmware_volume.h"
#include "sim/firmware/services/text_services.h"
#include "tests/sim_image/pe_builder.h"

namespace sim {
namespace {

using test::PeBuilder;

constexpr EFI_GUID kFile{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

// An image whose code is these bytes.
std::vector<std::byte> ImageOf(std::vector<std::uint8_t> code, std::uint16_t subsystem = 11,
                               std::uint32_t characteristics = test::kCode) {
  PeBuilder builder({{".text", characteristics, std::move(code)}, {".data", test::kData, {1, 2, 3, 4}}});
  builder.Put16(test::kOptional + 68, subsystem);
  return {builder.Bytes().begin(), builder.Bytes().end()};
}
const std::vector<std::uint8_t> kReturnZero{0x31, 0xC0, 0xC3};
// mov eax, 21; bts rax, 63; ret: EFI_ABORTED
const std::vector<std::uint8_t> kReturnAborted{0xB8, 21, 0, 0, 0, 0x48, 0x0F, 0xBA, 0xE8, 63, 0xC3};
// lea rax, [rip - 7]; mov byte [rax], 0; ret
const std::vector<std::uint8_t> kWriteCode{0x48, 0x8D, 0x05, 0xF9, 0xFF, 0xFF, 0xFF, 0xC6, 0x00, 0x00, 0xC3};
// lea rax, [rip + 0xFF9] (the data section); jmp rax
const std::vector<std::uint8_t> kRunData{0x48, 0x8D, 0x05, 0xF9, 0x0F, 0x00, 0x00, 0xFF, 0xE0};

class Images : public testing::Test {
 protected:
  EFI_STATUS Load(const std::vector<std::byte>& file, EFI_HANDLE* handle, EFI_DEVICE_PATH_PROTOCOL* path = nullptr) {
    return Boot()->LoadImage(FALSE, parent_, path, const_cast<std::byte*>(file.data()), file.size(), handle);
  }
  EFI_STATUS LoadPath(DevicePath path, EFI_HANDLE* handle, BOOLEAN bootPolicy = FALSE) {
    return Boot()->LoadImage(bootPolicy, parent_, path.Get(), nullptr, 0, handle);
  }
  EFI_STATUS Start(EFI_HANDLE handle) { return Boot()->StartImage(handle, nullptr, nullptr); }
  EFI_LOADED_IMAGE_PROTOCOL* Loaded(EFI_HANDLE handle) {
    return machine_.Handles().Get<EFI_LOADED_IMAGE_PROTOCOL>(handle);
  }
  EFI_BOOT_SERVICES* Boot() { return machine_.BootServices(); }

  Machine machine_;
  ImageService& images_ = machine_.Attach<ImageService>();
  EFI_HANDLE parent_ = images_.CreateLinkedDriverImage(u"");
};

TEST_F(Images, ADriverRunsAndStays) {
  EFI_HANDLE image = nullptr;
  ASSERT_EQ(Load(ImageOf(kReturnZero), &image), EFI_SUCCESS) << images_.Error();
  const auto* loaded = Loaded(image);
  ASSERT_NE(loaded, nullptr);
  EXPECT_EQ(loaded->ParentHandle, parent_);
  EXPECT_EQ(loaded->SystemTable, machine_.SystemTable());
  EXPECT_EQ(loaded->ImageSize, 0x3000u);
  EXPECT_EQ(loaded->ImageCodeType, EfiBootServicesCode);
  EXPECT_LT(reinterpret_cast<std::uintptr_t>(loaded->ImageBase), std::uintptr_t{1} << 32);
  EXPECT_EQ(Start(image), EFI_SUCCESS);
  EXPECT_TRUE(images_.IsImage(image));
  EXPECT_EQ(Start(image), EFI_INVALID_PARAMETER) << "no image starts twice";
  EXPECT_EQ(Boot()->UnloadImage(image), EFI_UNSUPPORTED) << "it has no unload routine";
}

TEST_F(Images, ADriverThatFailsLeavesNothing) {
  const std::uint64_t pages = machine_.Pages().PagesInUse();
  EFI_HANDLE image = nullptr;
  ASSERT_EQ(Load(ImageOf(kReturnAborted), &image), EFI_SUCCESS);
  EXPECT_GT(machine_.Pages().PagesInUse(), pages);
  EXPECT_EQ(Start(image), EFI_ABORTED);
  EXPECT_FALSE(images_.IsImage(image));
  EXPECT_FALSE(machine_.Handles().Exists(image));
  EXPECT_EQ(machine_.Pages().PagesInUse(), pages);
}

TEST_F(Images, CodeIsNotWrittenAndDataNotRun) {
  for (const auto& code : {kWriteCode, kRunData}) {
    EFI_HANDLE image = nullptr;
    ASSERT_EQ(Load(ImageOf(code), &image), EFI_SUCCESS);
    const BootOutcome outcome = machine_.Run([&] { return Start(image); });
    EXPECT_EQ(outcome.end, BootEnd::Crashed);
  }
}

TEST_F(Images, AnImageThatWantsWritableCodeIsLoadedButNotRun) {
  EFI_HANDLE image = nullptr;
  ASSERT_EQ(Load(ImageOf(kReturnZero, 11, test::kCode | 0x80000000), &image), EFI_SUCCESS);
  EXPECT_EQ(Start(image), EFI_UNSUPPORTED);
  EXPECT_NE(images_.Error().find("writable and executable"), std::string::npos);
}

TEST_F(Images, ALoaderEndsTheBootByDefault) {
  EFI_HANDLE image = nullptr;
  DevicePath path = DevicePath().Acpi(0x0A0341D0).Pci(1, 0).File(u"\\EFI\\debian\\shimx64.efi");
  ASSERT_EQ(Load(ImageOf(kReturnZero, 10), &image, path.Get()), EFI_SUCCESS);
  char options[] = "options";
  Loaded(image)->LoadOptions = options;
  Loaded(image)->LoadOptionsSize = 4;
  int signals = 0;
  EFI_EVENT event = nullptr;
  VOID* registration = nullptr;
  const EFI_EVENT_NOTIFY count = [](EFI_EVENT, VOID* context) EFIAPI { ++*static_cast<int*>(context); };
  ASSERT_EQ(Boot()->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, count, &signals, &event), EFI_SUCCESS);
  ASSERT_EQ(Boot()->RegisterProtocolNotify(&kBootStartSignalGuid, event, &registration), EFI_SUCCESS);
  const BootOutcome outcome = machine_.Run([&] { return Start(image); });
  EXPECT_EQ(outcome.end, BootEnd::HandedOver);
  EXPECT_EQ(outcome.image, image);
  EXPECT_EQ(outcome.path, path);
  EXPECT_EQ(outcome.loadOptions.size(), 4u);
  EXPECT_NE(outcome.text.find("shimx64.efi"), std::string::npos) << outcome.text;
  EXPECT_EQ(signals, 1) << "listeners for the start of an operating system hear of it";
}

TEST_F(Images, ALoaderAnswersWhatItsRuleSays) {
  images_.Policy().action = LoaderAction::Execute;
  images_.Policy().rules = {{"SHIM", LoaderAction::Answer, EFI_SECURITY_VIOLATION}};
  EFI_HANDLE shim = nullptr;
  EFI_HANDLE other = nullptr;
  ASSERT_EQ(Load(ImageOf(kReturnZero, 10), &shim, DevicePath().File(u"\\shimx64.efi").Get()), EFI_SUCCESS);
  ASSERT_EQ(Load(ImageOf(kReturnAborted, 10), &other, DevicePath().File(u"\\grub.efi").Get()), EFI_SUCCESS);
  EXPECT_EQ(Start(shim), EFI_SECURITY_VIOLATION);
  EXPECT_EQ(Start(other), EFI_ABORTED);
  ASSERT_EQ(images_.Starts().size(), 2u);
  EXPECT_FALSE(images_.Starts()[0].ran);
  EXPECT_TRUE(images_.Starts()[1].ran);
  EXPECT_EQ(images_.Starts()[1].path, "\\grub.efi");
  EXPECT_FALSE(images_.IsImage(shim)) << "an application that came back is unloaded";
}

TEST_F(Images, ExitLeavesTheRunningImageAndCarriesItsData) {
  CHAR16* given = nullptr;
  EFI_HANDLE inner = images_.CreateBuiltinImage("inner", [&](EFI_HANDLE image, EFI_SYSTEM_TABLE* table) -> EFI_STATUS {
    VOID* data = nullptr;
    EXPECT_EQ(table->BootServices->AllocatePool(EfiBootServicesData, 8, &data), EFI_SUCCESS);
    given = static_cast<CHAR16*>(data);
    table->BootServices->RaiseTPL(TPL_NOTIFY);
    table->BootServices->Exit(image, EFI_TIMEOUT, 8, given);
    ADD_FAILURE() << "Exit came back";
    return EFI_SUCCESS;
  });
  EFI_HANDLE outer = images_.CreateBuiltinImage("outer", [&](EFI_HANDLE self, EFI_SYSTEM_TABLE* table) -> EFI_STATUS {
    EXPECT_EQ(table->BootServices->Exit(parent_, EFI_SUCCESS, 0, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(table->BootServices->UnloadImage(self), EFI_ACCESS_DENIED);
    UINTN size = 0;
    CHAR16* data = nullptr;
    EXPECT_EQ(table->BootServices->StartImage(inner, &size, &data), EFI_TIMEOUT);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(data, given);
    EXPECT_EQ(table->BootServices->FreePool(data), EFI_SUCCESS);
    EXPECT_EQ(images_.Running(), 1u);
    return EFI_NOT_READY;
  });
  EXPECT_EQ(Start(outer), EFI_NOT_READY);
  EXPECT_EQ(images_.Running(), 0u);
  EXPECT_EQ(machine_.CurrentOwner(), nullptr);
  EXPECT_EQ(machine_.Events().CurrentTpl(), TPL_APPLICATION);
  EXPECT_TRUE(machine_.Counts().HasComplaint("task priority"));
}

TEST_F(Images, UnwantedExitDataGoesBackToThePool) {
  const std::size_t inUse = machine_.Pool().InUse();
  EFI_HANDLE image = images_.CreateBuiltinImage("data", [](EFI_HANDLE self, EFI_SYSTEM_TABLE* table) -> EFI_STATUS {
    VOID* data = nullptr;
    static_cast<void>(table->BootServices->AllocatePool(EfiBootServicesData, 64, &data));
    return table->BootServices->Exit(self, EFI_SUCCESS, 64, static_cast<CHAR16*>(data));
  });
  EXPECT_EQ(Start(image), EFI_SUCCESS);
  EXPECT_EQ(machine_.Pool().InUse(), inUse);
}

TEST_F(Images, AnImageNeverStartedIsUnloadedByExitAndByUnload) {
  EFI_HANDLE image = nullptr;
  ASSERT_EQ(Load(ImageOf(kReturnZero), &image), EFI_SUCCESS);
  EXPECT_EQ(Boot()->UnloadImage(image), EFI_SUCCESS);
  EXPECT_EQ(Boot()->UnloadImage(image), EFI_INVALID_PARAMETER);
  ASSERT_EQ(Load(ImageOf(kReturnZero), &image), EFI_SUCCESS);
  EXPECT_EQ(Boot()->Exit(image, EFI_SUCCESS, 0, nullptr), EFI_SUCCESS);
  EXPECT_FALSE(images_.IsImage(image));
}

TEST_F(Images, BadArgumentsAndBadFilesAreRefusedWithAReason) {
  EFI_HANDLE image = nullptr;
  auto file = ImageOf(kReturnZero);
  EXPECT_EQ(Boot()->LoadImage(FALSE, nullptr, nullptr, file.data(), file.size(), &image), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Boot()->LoadImage(FALSE, parent_, nullptr, file.data(), file.size(), nullptr), EFI_INVALID_PARAMETER);
  EXPECT_EQ(Boot()->LoadImage(FALSE, parent_, nullptr, nullptr, 0, &image), EFI_NOT_FOUND);
  EXPECT_EQ(Boot()->LoadImage(FALSE, parent_, nullptr, file.data(), 0, &image), EFI_LOAD_ERROR);
  file[0] = std::byte{0};
  EXPECT_EQ(Load(file, &image), EFI_UNSUPPORTED);
  EXPECT_EQ(LoadPath(DevicePath().File(u"\\nowhere.efi"), &image), EFI_NOT_FOUND);
  ASSERT_EQ(images_.LoadFailures().size(), 4u);
  EXPECT_NE(images_.LoadFailures()[2].reason.find("MZ"), std::string::npos);
  EXPECT_EQ(images_.LoadFailures()[3].path, "\\nowhere.efi");
}

TEST_F(Images, TheLinkedDriverHasItsHandleAndStringPackages) {
  const EFI_HII_PACKAGE_LIST_HEADER packages{kFile, 20};
  EFI_HANDLE driver = images_.CreateLinkedDriverImage(u"verbose", &packages);
  EXPECT_EQ(machine_.Handles().Find(driver, gEfiHiiPackageListProtocolGuid)->pointer, &packages);
  EXPECT_EQ(Loaded(driver)->LoadOptionsSize, 16u);
  EXPECT_EQ(Start(driver), EFI_INVALID_PARAMETER);
}

TEST_F(Images, ADriverFileLoadsWithoutAParentAndShowsItsVariables) {
  const EFI_HANDLE driver = images_.LoadDriverImage(ImageOf(kReturnZero), DevicePath().FirmwareFile(kFile), u"");
  ASSERT_NE(driver, nullptr);
  const auto extents = images_.WritableMemory(driver);
  ASSERT_EQ(extents.size(), 1u);
  EXPECT_EQ(extents[0][2], std::byte{3});
  EXPECT_EQ(images_.LoadDriverImage({}, {}, u""), nullptr);
}

TEST_F(Images, ExitBootServicesWantsTheCurrentMapKey) {
  bool runtime = false;
  images_.SetExitBootServicesHandler([&] { runtime = true; });
  EFI_HANDLE image = images_.CreateBuiltinImage("kernel", [&](EFI_HANDLE self, EFI_SYSTEM_TABLE* table) {
    UINTN size = 0;
    UINTN key = 0;
    UINTN descriptor = 0;
    UINT32 version = 0;
    static_cast<void>(table->BootServices->GetMemoryMap(&size, nullptr, &key, &descriptor, &version));
    EXPECT_EQ(table->BootServices->ExitBootServices(self, key + 1), EFI_INVALID_PARAMETER);
    EXPECT_FALSE(runtime);
    return table->BootServices->ExitBootServices(self, machine_.Pages().MapKey());
  });
  const BootOutcome outcome = machine_.Run([&] { return Start(image); });
  EXPECT_EQ(outcome.end, BootEnd::ExitedBootServices);
  EXPECT_TRUE(runtime);
}

// A file system with one file, given out in pieces, on a partition's handle.
struct OneFile {
  EFI_SIMPLE_FILE_SYSTEM_PROTOCOL volume{};
  EFI_FILE_PROTOCOL file{};
  std::u16string name;
  std::vector<std::byte> bytes;
  std::size_t position = 0;
  int open = 0;

  OneFile(std::u16string fileName, std::vector<std::byte> content)
      : name(std::move(fileName)), bytes(std::move(content)) {
    volume.OpenVolume = [](EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* self, EFI_FILE_PROTOCOL** root) EFIAPI -> EFI_STATUS {
      auto* all = reinterpret_cast<OneFile*>(self);
      ++all->open;
      *root = &all->file;
      return EFI_SUCCESS;
    };
    file.Open = [](EFI_FILE_PROTOCOL* self, EFI_FILE_PROTOCOL** opened, const CHAR16* path, UINT64, UINT64)
                    EFIAPI -> EFI_STATUS {
      OneFile* all = Of(self);
      if (path != all->name) {
        return EFI_NOT_FOUND;
      }
      ++all->open;
      *opened = self;
      return EFI_SUCCESS;
    };
    file.Close = [](EFI_FILE_PROTOCOL* self) EFIAPI -> EFI_STATUS {
      --Of(self)->open;
      return EFI_SUCCESS;
    };
    file.GetInfo = [](EFI_FILE_PROTOCOL* self, const EFI_GUID*, UINTN* size, VOID* buffer) EFIAPI -> EFI_STATUS {
      if (*size < sizeof(EFI_FILE_INFO)) {
        *size = sizeof(EFI_FILE_INFO);
        return EFI_BUFFER_TOO_SMALL;
      }
      EFI_FILE_INFO info{};
      info.FileSize = Of(self)->bytes.size();
      std::memcpy(buffer, &info, sizeof(info));
      return EFI_SUCCESS;
    };
    file.Read = [](EFI_FILE_PROTOCOL* self, UINTN* size, VOID* buffer) EFIAPI -> EFI_STATUS {
      OneFile* all = Of(self);
      *size = std::min<UINTN>({*size, 1000, all->bytes.size() - all->position});
      std::memcpy(buffer, all->bytes.data() + all->position, *size);
      all->position += *size;
      return EFI_SUCCESS;
    };
  }
  static OneFile* Of(EFI_FILE_PROTOCOL* self) {
    return reinterpret_cast<OneFile*>(reinterpret_cast<std::byte*>(self) - offsetof(OneFile, file));
  }
};

class FileImages : public Images {
 protected:
  FileImages() : disk_(u"\\EFI\\loader.efi", ImageOf(kReturnZero)) {
    path_ = DevicePath().Acpi(0x0A0341D0).Pci(1, 0).Sata(0).HardDriveGpt(1, 0x800, 0x1000, kFile);
    static_cast<void>(machine_.Handles().Install(&handle_, &ProtocolGuid<EFI_DEVICE_PATH_PROTOCOL>, path_.Get()));
    static_cast<void>(
        machine_.Handles().Install(&handle_, &ProtocolGuid<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>, &disk_.volume));
  }
  OneFile disk_;
  DevicePath path_;
  EFI_HANDLE handle_ = nullptr;
};

TEST_F(FileImages, AFileIsReadWholeAndItsDeviceKnown) {
  EFI_HANDLE image = nullptr;
  DevicePath whole = DevicePath(path_).File(u"\\EFI\\").File(u"loader.efi");
  ASSERT_EQ(LoadPath(whole, &image), EFI_SUCCESS) << images_.Error();
  EXPECT_EQ(Loaded(image)->DeviceHandle, handle_);
  EXPECT_EQ(DevicePath::Copy(Loaded(image)->FilePath), DevicePath().File(u"\\EFI\\").File(u"loader.efi"));
  const auto* path = machine_.Handles().Find(image, gEfiLoadedImageDevicePathProtocolGuid);
  ASSERT_NE(path, nullptr);
  EXPECT_EQ(DevicePath::Copy(static_cast<EFI_DEVICE_PATH_PROTOCOL*>(path->pointer)), whole);
  EXPECT_EQ(disk_.open, 0) << "every handle is closed again";
}

TEST_F(FileImages, AShortPathIsCompletedWithTheBootPolicyOnly) {
  EFI_HANDLE image = nullptr;
  DevicePath shortForm = DevicePath().HardDriveGpt(1, 0, 0, kFile).File(u"\\EFI\\loader.efi");
  EXPECT_EQ(LoadPath(shortForm, &image, FALSE), EFI_NOT_FOUND);
  ASSERT_EQ(LoadPath(shortForm, &image, TRUE), EFI_SUCCESS) << images_.Error();
  EXPECT_EQ(images_.PathText(image),
            "PciRoot(0x0)/Pci(0x1,0x0)/Sata(0x0,0xFFFF,0x0)/"
            "HD(1,GPT,00000001-0002-0003-0405-060708090A0B,0x800,0x1000)/\\EFI\\loader.efi");
  EXPECT_EQ(LoadPath(DevicePath().HardDriveMbr(1, 0, 0, 7).File(u"\\EFI\\loader.efi"), &image, TRUE), EFI_NOT_FOUND);
}

TEST_F(FileImages, MissingFilesAndEmptyOnesAreErrors) {
  EFI_HANDLE image = nullptr;
  EXPECT_EQ(LoadPath(DevicePath(path_).File(u"\\other.efi"), &image), EFI_NOT_FOUND);
  EXPECT_EQ(LoadPath(path_, &image), EFI_NOT_FOUND) << "a device is no file";
  disk_.bytes.clear();
  EXPECT_EQ(LoadPath(DevicePath(path_).File(u"\\EFI\\loader.efi"), &image), EFI_UNSUPPORTED);
  EXPECT_EQ(disk_.open, 0);
}

struct LoadFileDevice {
  EFI_LOAD_FILE_PROTOCOL protocol{};
  std::vector<std::byte> bytes;
  BOOLEAN policy = 2;

  explicit LoadFileDevice(std::vector<std::byte> content) : bytes(std::move(content)) {
    protocol.LoadFile = [](EFI_LOAD_FILE_PROTOCOL* self, EFI_DEVICE_PATH_PROTOCOL*, BOOLEAN asked, UINTN* size,
                           VOID* buffer) EFIAPI -> EFI_STATUS {
      auto* all = reinterpret_cast<LoadFileDevice*>(self);
      all->policy = asked;
      const UINTN room = *size;
      *size = all->bytes.size();
      if (buffer == nullptr || room < all->bytes.size()) {
        return EFI_BUFFER_TOO_SMALL;
      }
      std::memcpy(buffer, all->bytes.data(), all->bytes.size());
      return EFI_SUCCESS;
    };
  }
};

TEST_F(Images, LoadFileDevicesAreAskedWithTheBootPolicyAndLoadFile2OnlyWithoutIt) {
  LoadFileDevice first(ImageOf(kReturnZero));
  LoadFileDevice second(ImageOf(kReturnZero));
  DevicePath path = DevicePath().Acpi(0x0A0341D0).Pci(2, 0);
  EFI_HANDLE device = nullptr;
  ASSERT_EQ(machine_.Install(device, path.Get()), EFI_SUCCESS);
  ASSERT_EQ(machine_.Install(device, &first.protocol), EFI_SUCCESS);
  ASSERT_EQ(machine_.Handles().Install(&device, &ProtocolGuid<EFI_LOAD_FILE2_PROTOCOL>, &second.protocol), EFI_SUCCESS);
  EFI_HANDLE image = nullptr;
  ASSERT_EQ(LoadPath(path, &image, TRUE), EFI_SUCCESS);
  EXPECT_EQ(first.policy, TRUE);
  EXPECT_EQ(second.policy, 2) << "not asked";
  ASSERT_EQ(LoadPath(path, &image, FALSE), EFI_SUCCESS);
  EXPECT_EQ(second.policy, FALSE);
}

TEST_F(Images, FirmwareFilesAndBuiltinImagesComeFromVolumes) {
  FirmwareVolume volume(Boot());
  int runs = 0;
  volume.Add({kFile, EFI_FV_FILETYPE_APPLICATION, u"Shell",
              images_.RegisterBuiltin("shell", [&](EFI_HANDLE, EFI_SYSTEM_TABLE*) -> EFI_STATUS {
                ++runs;
                return EFI_SUCCESS;
              })});
  DevicePath path = DevicePath().FirmwareVolume(kFile);
  EFI_HANDLE device = nullptr;
  ASSERT_EQ(machine_.Install(device, path.Get()), EFI_SUCCESS);
  ASSERT_EQ(machine_.Install(device, volume.Protocol()), EFI_SUCCESS);
  const std::size_t inUse = machine_.Pool().InUse();
  EFI_HANDLE image = nullptr;
  ASSERT_EQ(LoadPath(DevicePath(path).FirmwareFile(kFile), &image), EFI_SUCCESS) << images_.Error();
  EXPECT_EQ(Start(image), EFI_SUCCESS) << "built-in applications run whatever the policy is";
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(machine_.Pool().InUse(), inUse);
  EFI_GUID other = kFile;
  other.Data1 = 99;
  EXPECT_EQ(LoadPath(DevicePath(path).FirmwareFile(other), &image), EFI_NOT_FOUND);
}

TEST_F(Images, MemoryPathsNameAllocatedMemoryOnly) {
  const auto file = ImageOf(kReturnZero);
  EFI_PHYSICAL_ADDRESS memory = 0;
  ASSERT_EQ(Boot()->AllocatePages(AllocateAnyPages, EfiLoaderData, 4, &memory), EFI_SUCCESS);
  std::memcpy(reinterpret_cast<void*>(memory), file.data(), file.size());
  const auto path = [](std::uint64_t start, std::uint64_t end) {
    std::vector<std::byte> body(20);
    std::memcpy(body.data() + 4, &start, 8);
    std::memcpy(body.data() + 12, &end, 8);
    return DevicePath().AppendRaw(HARDWARE_DEVICE_PATH, HW_MEMMAP_DP, body);
  };
  EFI_HANDLE image = nullptr;
  EXPECT_EQ(LoadPath(path(memory, memory + file.size() - 1), &image), EFI_SUCCESS) << images_.Error();
  for (const auto& [start, end] : {std::pair<std::uint64_t, std::uint64_t>{0, 100},
                                   {memory, memory + 5 * 4096},
                                   {memory, memory - 1},
                                   {0, ~std::uint64_t{0}},
                                   {0x7FFF00000000, 0x7FFF00000100}}) {
    EXPECT_EQ(LoadPath(path(start, end), &image), EFI_NOT_FOUND) << start;
  }
}

std::vector<std::byte> HelloLoader() {
  const char* named = std::getenv("HELLO_LOADER");
  std::ifstream in(named != nullptr ? named : "build/efi/hello-loader.efi", std::ios::binary);
  std::vector<char> text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

// The project's own EFI application, made by the image's compiler, on the real tables.
class Hello : public Images {
 protected:
  void SetUp() override {
    file_ = HelloLoader();
    if (file_.empty()) {
      GTEST_SKIP() << "build/efi/hello-loader.efi is not built";
    }
    images_.Policy().action = LoaderAction::Execute;
    machine_.SystemTable()->ConOut = console_.Output();
    ASSERT_EQ(text_.Install(), EFI_SUCCESS);
  }
  EFI_STATUS RunWith(std::u16string options, BootOutcome* outcome = nullptr) {
    EFI_HANDLE image = nullptr;
    DevicePath path = DevicePath().Acpi(0x0A0341D0).Pci(0x1F, 2).File(u"\\hello.efi");
    const EFI_STATUS loaded = Load(file_, &image, path.Get());
    if (EFI_ERROR(loaded)) {
      ADD_FAILURE() << images_.Error();
      return loaded;
    }
    Loaded(image)->LoadOptions = options.data();
    Loaded(image)->LoadOptionsSize = static_cast<UINT32>(options.size() * 2);
    if (outcome != nullptr) {
      *outcome = machine_.Run([&] { return Start(image); });
      return outcome->status;
    }
    return Start(image);
  }
  std::vector<std::byte> file_;
  ConsoleModel console_;
  TextServices text_{Boot()};
};

TEST_F(Hello, ShowsItsOptionsAndPathAndReturnsWhatItIsTold) {
  EXPECT_EQ(RunWith(u"quiet return=0x8000000000000015"), EFI_ABORTED);
  EXPECT_EQ(console_.Text(),
            "hello-loader: load options: quiet return=0x8000000000000015\n"
            "hello-loader: device path: PciRoot(0x0)/Pci(0x1F,0x2)/\\hello.efi\n");
  EXPECT_EQ(RunWith(u""), EFI_SUCCESS);
  EXPECT_EQ(RunWith(u"exit=0x800000000000000E"), EFI_NOT_FOUND);
  EXPECT_EQ(machine_.Counts().ComplaintCount(), 0u);
}

TEST_F(Hello, TakesTheMachineOver) {
  BootOutcome outcome;
  RunWith(u"handover", &outcome);
  EXPECT_EQ(outcome.end, BootEnd::ExitedBootServices);
}

TEST_F(Hello, CannotChangeItsOwnCode) {
  BootOutcome outcome;
  RunWith(u"write-code", &outcome);
  EXPECT_EQ(outcome.end, BootEnd::Crashed);
}

}  // namespace
}  // namespace sim

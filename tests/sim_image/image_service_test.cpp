// The image services on a machine: where images come from, what runs, how it ends, and what is left afterwards.
#include "sim/firmware/image/image_service.h"

#include <gtest/gtest.h>

#include "tests/sim_image/pe_builder.h"

namespace sim {
namespace {

using test::PeBuilder;

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
// mov eax, 39; syscall; ret, and the same by the older gate: int 80h
const std::vector<std::uint8_t> kSystemCall{0xB8, 39, 0, 0, 0, 0x0F, 0x05, 0xC3};
const std::vector<std::uint8_t> kOldSystemCall{0xB8, 20, 0, 0, 0, 0xCD, 0x80, 0xC3};
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
  static ImageService& WithAction(ImageService& images, LoaderAction action) {
    images.Policy().action = action;
    return images;
  }

  Machine machine_;
  // Most of these images are to run.
  ImageService& images_ = WithAction(machine_.Attach<ImageService>(), LoaderAction::Execute);
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

TEST_F(Images, CodeIsNotWrittenDataNotRunAndTheHostNotCalled) {
  for (const auto& code : {kWriteCode, kRunData, kSystemCall, kOldSystemCall}) {
    EFI_HANDLE image = nullptr;
    ASSERT_EQ(Load(ImageOf(code), &image), EFI_SUCCESS);
    const BootOutcome outcome = machine_.Run([&] { return Start(image); });
    EXPECT_EQ(outcome.end, BootEnd::Crashed);
    const bool called = outcome.text.find("system call (number") != std::string::npos;
    EXPECT_EQ(called, code == kSystemCall || code == kOldSystemCall) << outcome.text;
  }
}

// Most loaders were made for firmware whose memory is all writable and executable, and do not say otherwise.
TEST_F(Images, AnImageThatDoesNotClaimToLiveWithProtectedMemoryHasNone) {
  for (const auto& code : {kWriteCode, kRunData}) {
    PeBuilder builder({{".text", test::kCode, code}, {".data", test::kData, kReturnZero}});
    builder.Put16(test::kOptional + 70, 0);
    const auto bytes = builder.Bytes();
    EFI_HANDLE image = nullptr;
    ASSERT_EQ(Load({bytes.begin(), bytes.end()}, &image), EFI_SUCCESS) << images_.Error();
    const BootOutcome outcome = machine_.Run([&] { return Start(image); });
    EXPECT_EQ(outcome.end, BootEnd::Returned) << outcome.text;
  }
}

TEST_F(Images, WithoutLeaveNoForeignCodeRunsWhateverItsSubsystem) {
  images_.Policy().action = LoaderAction::HandOver;
  for (const std::uint16_t subsystem : {std::uint16_t{10}, std::uint16_t{11}, std::uint16_t{12}}) {
    EFI_HANDLE image = nullptr;
    ASSERT_EQ(Load(ImageOf(kSystemCall, subsystem), &image), EFI_SUCCESS);
    const BootOutcome outcome = machine_.Run([&] { return Start(image); });
    EXPECT_EQ(outcome.end, subsystem == 10 ? BootEnd::HandedOver : BootEnd::Returned) << outcome.text;
    EXPECT_EQ(outcome.status, subsystem == 10 ? EFI_SUCCESS : EFI_ACCESS_DENIED);
    EXPECT_FALSE(images_.Starts().back().ran);
  }
}

TEST_F(Images, AnImageThatWantsWritableCodeIsLoadedButNotRun) {
  EFI_HANDLE image = nullptr;
  ASSERT_EQ(Load(ImageOf(kReturnZero, 11, test::kCode | 0x80000000), &image), EFI_SUCCESS);
  EXPECT_EQ(Start(image), EFI_UNSUPPORTED);
  EXPECT_NE(images_.Error().find("writable and executable"), std::string::npos);
}

TEST_F(Images, ALoaderAnswersWhatItsRuleSays) {
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

}  // namespace
}  // namespace sim

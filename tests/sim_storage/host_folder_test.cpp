// A host folder as a volume: names without regard to case, and no way out of it.
#include <filesystem>

#include "sim/storage/file_system.h"
#include "tests/sim_storage/image_builder.h"

namespace sim::test {
namespace {

TEST(HostFolder, FilesAreFoundWhateverTheirCase) {
  const TemporaryFolder folder;
  folder.Write("EFI/boot/BootX64.efi", "loader");
  std::unique_ptr<FileSystemReader> reader;
  ASSERT_EQ(OpenHostFolder(folder.Path(), "HOST", reader), EFI_SUCCESS);
  EXPECT_EQ(reader->Info().label, "HOST");
  std::unique_ptr<OpenedFile> file;
  ASSERT_EQ(reader->Open("\\efi\\BOOT\\BOOTX64.EFI", file), EFI_SUCCESS);
  EXPECT_EQ(file->Entry().name, "BootX64.efi");
  EXPECT_EQ(file->Entry().size, 6U);
  std::string text(10, ' ');
  std::size_t done = 0;
  ASSERT_EQ(file->Read(2, std::as_writable_bytes(std::span(text)), done), EFI_SUCCESS);
  EXPECT_EQ(text.substr(0, done), "ader");
}

TEST(HostFolder, NothingOutsideIsReached) {
  const TemporaryFolder outside;
  outside.Write("secret", "secret");
  const TemporaryFolder folder;
  folder.Write("inside", "x");
  std::filesystem::create_symlink(outside.Path() / "secret", folder.Path() / "link");
  std::filesystem::create_directory_symlink(outside.Path(), folder.Path() / "dir");
  std::unique_ptr<FileSystemReader> reader;
  ASSERT_EQ(OpenHostFolder(folder.Path(), "", reader), EFI_SUCCESS);
  for (const char* path : {"\\link", "\\dir\\secret", "\\..\\", "..", "\\inside\\..\\..\\", "\\dir"}) {
    std::unique_ptr<OpenedFile> file;
    EXPECT_EQ(reader->Open(path, file), EFI_NOT_FOUND) << path;
  }
  std::unique_ptr<OpenedFile> root;
  std::vector<FileEntry> entries;
  ASSERT_EQ(reader->Open("\\", root), EFI_SUCCESS);
  ASSERT_EQ(root->List(entries), EFI_SUCCESS);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "inside");
}

}  // namespace
}  // namespace sim::test

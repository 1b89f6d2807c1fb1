// The file protocol over a host folder: what the firmware's callers do with it, and what it refuses.
#include "sim/bus/file_volume.h"

#include "tests/sim_bus/bus_fixture.h"

namespace sim::test {
namespace {

class Volume : public testing::Test {
 protected:
  Volume() {
    folder_.Write("EFI/BOOT/BOOTX64.EFI", "0123456789");
    folder_.Write("EFI/other.txt", "x");
    volume_ = std::make_unique<FileVolume>([this](auto& reader) {
      ++opened_;
      return fail_ ? EFI_VOLUME_CORRUPTED : OpenHostFolder(folder_.Path(), "HOSTVOL", reader);
    });
    system_ = ProtocolOf<EFI_SIMPLE_FILE_SYSTEM_PROTOCOL>(*volume_);
  }

  EFI_FILE_PROTOCOL* Root() {
    EFI_FILE_PROTOCOL* root = nullptr;
    EXPECT_EQ(system_->OpenVolume(system_, &root), EFI_SUCCESS);
    return root;
  }

  static EFI_FILE_PROTOCOL* Open(EFI_FILE_PROTOCOL* from, const char16_t* name) {
    EFI_FILE_PROTOCOL* file = nullptr;
    EXPECT_EQ(from->Open(from, &file, name, EFI_FILE_MODE_READ, 0), EFI_SUCCESS);
    return file;
  }

  TemporaryFolder folder_;
  int opened_ = 0;
  bool fail_ = false;
  std::unique_ptr<FileVolume> volume_;
  EFI_SIMPLE_FILE_SYSTEM_PROTOCOL* system_ = nullptr;
};

TEST_F(Volume, FilesAreReadInPieces) {
  EFI_FILE_PROTOCOL* root = Root();
  EFI_FILE_PROTOCOL* file = Open(root, u"\\efi\\boot\\bootx64.efi");
  char buffer[6] = {};
  UINTN size = 6;
  ASSERT_EQ(file->Read(file, &size, buffer), EFI_SUCCESS);
  EXPECT_EQ(std::string(buffer, size), "012345");
  size = 6;
  ASSERT_EQ(file->Read(file, &size, buffer), EFI_SUCCESS);
  EXPECT_EQ(std::string(buffer, size), "6789");
  size = 6;
  ASSERT_EQ(file->Read(file, &size, buffer), EFI_SUCCESS);
  EXPECT_EQ(size, 0U) << "the end";
  UINT64 position = 0;
  ASSERT_EQ(file->SetPosition(file, UINT64_MAX), EFI_SUCCESS);
  ASSERT_EQ(file->GetPosition(file, &position), EFI_SUCCESS);
  EXPECT_EQ(position, 10U);
  ASSERT_EQ(file->SetPosition(file, 11), EFI_SUCCESS);
  EXPECT_EQ(file->Read(file, &size, buffer), EFI_DEVICE_ERROR) << "behind the end";
  file->Close(file);
  root->Close(root);
  EXPECT_EQ(volume_->OpenFiles(), 0U);
}

TEST_F(Volume, NamesAreRelativeToTheOpenedFolder) {
  EFI_FILE_PROTOCOL* root = Root();
  EFI_FILE_PROTOCOL* folder = Open(root, u"EFI\\BOOT");
  EFI_FILE_PROTOCOL* other = Open(folder, u"..\\other.txt");
  EFI_FILE_PROTOCOL* absolute = Open(folder, u"\\EFI\\other.txt");
  EFI_FILE_PROTOCOL* missing = nullptr;
  EXPECT_EQ(folder->Open(folder, &missing, u"other.txt", EFI_FILE_MODE_READ, 0), EFI_NOT_FOUND);
  EXPECT_EQ(folder->Open(folder, &missing, u"..\\..\\..\\x", EFI_FILE_MODE_READ, 0), EFI_NOT_FOUND);
  for (EFI_FILE_PROTOCOL* file : {absolute, other, folder, root}) EXPECT_EQ(file->Close(file), EFI_SUCCESS);
}

TEST_F(Volume, NothingIsEverWritten) {
  EFI_FILE_PROTOCOL* root = Root();
  EFI_FILE_PROTOCOL* file = Open(root, u"EFI\\other.txt");
  EFI_FILE_PROTOCOL* created = nullptr;
  const UINT64 write = EFI_FILE_MODE_READ | EFI_FILE_MODE_WRITE;
  EXPECT_EQ(root->Open(root, &created, u"new", write | EFI_FILE_MODE_CREATE, 0), EFI_WRITE_PROTECTED);
  EXPECT_EQ(root->Open(root, &created, u"EFI", EFI_FILE_MODE_WRITE, 0), EFI_INVALID_PARAMETER);
  UINTN size = 1;
  EXPECT_EQ(file->Write(file, &size, "y"), EFI_WRITE_PROTECTED);
  EXPECT_EQ(file->SetInfo(file, &gEfiFileInfoGuid, 0, nullptr), EFI_WRITE_PROTECTED);
  EXPECT_EQ(file->Flush(file), EFI_WRITE_PROTECTED);
  EXPECT_EQ(file->Delete(file), EFI_WARN_DELETE_FAILURE);
  EXPECT_EQ(volume_->OpenFiles(), 1U) << "delete closes, whatever it answers";
  EXPECT_TRUE(std::filesystem::exists(folder_.Path() / "EFI/other.txt"));
  root->Close(root);
}

TEST_F(Volume, DirectoriesGiveTheirEntriesOneByOne) {
  EFI_FILE_PROTOCOL* root = Root();
  EFI_FILE_PROTOCOL* folder = Open(root, u"EFI");
  alignas(8) std::byte buffer[256];
  auto* info = reinterpret_cast<EFI_FILE_INFO*>(buffer);
  UINTN size = 4;
  ASSERT_EQ(folder->Read(folder, &size, buffer), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 80 + 5 * 2U);
  ASSERT_EQ(folder->Read(folder, &size, buffer), EFI_SUCCESS) << "the entry was not skipped";
  EXPECT_EQ(std::u16string(info->FileName), u"BOOT");
  EXPECT_EQ(info->Attribute, EFI_FILE_DIRECTORY);
  EXPECT_EQ(info->Size, size);
  size = sizeof buffer;
  ASSERT_EQ(folder->Read(folder, &size, buffer), EFI_SUCCESS);
  EXPECT_EQ(std::u16string(info->FileName), u"other.txt");
  EXPECT_EQ(info->FileSize, 1U);
  size = sizeof buffer;
  ASSERT_EQ(folder->Read(folder, &size, buffer), EFI_SUCCESS);
  EXPECT_EQ(size, 0U);
  ASSERT_EQ(folder->SetPosition(folder, 0), EFI_SUCCESS);
  EXPECT_EQ(folder->SetPosition(folder, 1), EFI_UNSUPPORTED);
  size = sizeof buffer;
  ASSERT_EQ(folder->Read(folder, &size, buffer), EFI_SUCCESS);
  EXPECT_EQ(std::u16string(info->FileName), u"BOOT") << "from the start again";
  folder->Close(folder);
  root->Close(root);
}

TEST_F(Volume, BrokenVolumeIsAskedAgainAndAGoneOneNot) {
  fail_ = true;
  EFI_FILE_PROTOCOL* root = nullptr;
  EXPECT_EQ(system_->OpenVolume(system_, &root), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ(system_->OpenVolume(system_, &root), EFI_VOLUME_CORRUPTED);
  EXPECT_EQ(opened_, 2);
  fail_ = false;
  root = Root();
  EXPECT_TRUE(volume_->Retire()) << "a file is open";
  UINTN size = 0;
  EXPECT_EQ(root->Read(root, &size, nullptr), EFI_NO_MEDIA);
  EXPECT_EQ(root->Close(root), EFI_SUCCESS);
  EXPECT_FALSE(volume_->Retire());
}

}  // namespace
}  // namespace sim::test

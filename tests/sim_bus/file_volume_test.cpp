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

// A search on a volume whose directories lead in a circle: each holds itself, once or several times.
#include "flexboot/loader_search.h"

#include <gtest/gtest.h>

#include <cstring>

#include "flexboot/state.h"
#include "tests/support/driver_fixture.h"

namespace test {
namespace {

class CircleDirectory {
 public:
  static inline UINTN itself = 1;  // how often a directory holds itself
  static inline UINTN opened = 0;
  static inline UINTN read = 0;

  static EFI_FILE_PROTOCOL* Make() {
    ++opened;
    return &(new CircleDirectory)->protocol_;
  }

 private:
  CircleDirectory() {
    protocol_.Open = [](EFI_FILE_PROTOCOL*, EFI_FILE_PROTOCOL** made, const CHAR16*, UINT64, UINT64) EFIAPI {
      *made = Make();
      return EFI_SUCCESS;
    };
    protocol_.Close = [](EFI_FILE_PROTOCOL* self) EFIAPI {
      --opened;
      delete reinterpret_cast<CircleDirectory*>(self);
      return EFI_SUCCESS;
    };
    protocol_.Read = [](EFI_FILE_PROTOCOL* self, UINTN* size, VOID* buffer) EFIAPI {
      ++read;
      UINTN& position = reinterpret_cast<CircleDirectory*>(self)->position_;
      if (position == itself) {
        *size = 0;
        return EFI_SUCCESS;
      }
      ++position;
      return Describe(size, buffer);
    };
    protocol_.GetInfo = [](EFI_FILE_PROTOCOL*, const EFI_GUID*, UINTN* size, VOID* buffer)
                            EFIAPI { return Describe(size, buffer); };
  }
  static EFI_STATUS Describe(UINTN* size, VOID* buffer) {
    constexpr CHAR16 kName[] = u"again";
    constexpr UINTN kSize = offsetof(EFI_FILE_INFO, FileName) + sizeof(kName);
    EFI_FILE_INFO info{};
    info.Size = kSize;
    info.Attribute = EFI_FILE_DIRECTORY;
    *size = kSize;
    std::memcpy(buffer, &info, offsetof(EFI_FILE_INFO, FileName));
    std::memcpy(static_cast<std::byte*>(buffer) + offsetof(EFI_FILE_INFO, FileName), kName, sizeof(kName));
    return EFI_SUCCESS;
  }

  EFI_FILE_PROTOCOL protocol_{};  // first: the protocol's address is the directory's
  UINTN position_ = 0;
};

class LoaderSearch : public DriverTest {};

TEST_F(LoaderSearch, OfACircleEnds) {
  EFI_UNICODE_COLLATION_PROTOCOL collation{};
  collation.MetaiMatch = [](EFI_UNICODE_COLLATION_PROTOCOL*, const CHAR16*, const CHAR16*)
                             EFIAPI -> BOOLEAN { return FALSE; };
  bds::gFlexBoot.Collation = &collation;
  constexpr UINTN kDepths = 33;  // 32 below the root
  const struct {
    UINTN itself;
    UINTN mostRead;
  } cases[] = {{1, 2 * kDepths}, {2, 100'000}, {1000, 100'000}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.itself);
    CircleDirectory::itself = row.itself;
    CircleDirectory::read = 0;
    bds::PoolPtr<CHAR16> found;
    {
      const bds::File root(CircleDirectory::Make());
      EXPECT_EQ(bds::FindFileInFs(u"grubx64.efi", found, root), EFI_NOT_FOUND);
    }
    EXPECT_GE(CircleDirectory::read, kDepths) << "it went down";
    EXPECT_LE(CircleDirectory::read, row.mostRead);
    EXPECT_EQ(CircleDirectory::opened, 0U) << "every directory is closed";
  }
  bds::gFlexBoot.Collation = nullptr;
}

}  // namespace
}  // namespace test

#include "osopt/loader_table.h"

#include "osopt/loader_path.h"
#include "support/text.h"

namespace bds {
namespace {

// clang-format off
constexpr OS_LOADER kOsLoaders[] = {
    {.Path = u"\\EFI\\sles12\\shim.efi", .Description = u"sles", .Holds = kHoldsSles,
     .Said = "IsSles", .AsInstalled = true},
    {.Path = u"\\EFI\\UBUNTU\\SHIMX64.EFI", .Description = u"ubuntu", .Holds = kHoldsUbuntu, .Said = "IsUbuntu"},
    {.Path = u"\\EFI\\redhat\\shim.efi", .Description = u"RedHat Boot Manager", .Holds = kHoldsRhel,
     .Said = "IsRhel", .AsInstalled = true},
    {.Path = u"\\EFI\\CENTOS\\shim.efi", .Description = u"CENTOS", .Holds = kHoldsCentos, .Said = "IsCentOS"},
    {.Path = u"\\EFI\\Microsoft\\Boot\\bootmgfw.efi", .Description = u"Windows Boot Manager", .Holds = kHoldsWindows},
    {.Path = u"\\EFI\\Suse\\elilo.efi", .Description = u"Suse Boot Manager"},
    {.Path = u"\\EFI\\Ubuntu\\grubx64.efi", .Description = u"ubuntu", .DuplicateOf = kHoldsUbuntu},
    {.Path = u"\\EFI\\Redhat\\elilo.efi", .Description = u"RedHat Boot Manager"},
    {.Path = u"\\EFI\\Redhat\\grub.efi", .Description = u"RedHat Boot Manager"},
    {.Path = u"\\EFI\\opensuse\\grubx64.efi", .Description = u"opensuse", .AsInstalled = true},
    {.Path = u"\\EFI\\debian\\grubx64.efi", .Description = u"debian", .AsInstalled = true},
    {.Path = u"\\EFI\\BOOT\\BOOTX64.EFI", .Description = u"UEFI OS",
     .DuplicateOf = kHoldsSles | kHoldsRhel | kHoldsCentos, .NotBeside = kHoldsWindows},
};
// clang-format on

Bytes TextBytes(const CHAR16* text) {
  return {reinterpret_cast<const std::byte*>(text), (TextLength(text) + 1) * sizeof(CHAR16)};
}

bool EqualBytes(Bytes a, Bytes b) { return a.size() == b.size() && EqualMemory(a.data(), b.data(), a.size()); }

}  // namespace

std::span<const OS_LOADER> OsLoaders() { return kOsLoaders; }

const OS_LOADER* FindOsLoader(Bytes description, Bytes path) {
  const DevicePath* hardDrive = LeadingHardDrive(path);
  if (hardDrive == nullptr) {
    return nullptr;
  }
  const Bytes rest = path.subspan(NodeLength(hardDrive));
  constexpr UINTN kNodes = sizeof(DevicePath) + sizeof(kEndEntireNode);
  for (const OS_LOADER& loader : kOsLoaders) {
    const Bytes file = TextBytes(loader.Path);
    if (EqualBytes(description, TextBytes(loader.Description)) && rest.size() == kNodes + file.size() &&
        EqualBytes(rest.subspan(sizeof(DevicePath), file.size()), file)) {
      return &loader;
    }
  }
  return nullptr;
}

}  // namespace bds

#include "bmc/boot_variable_files.h"

#include "bmc/state.h"
#include "support/debug_print.h"
#include "support/setup.h"

namespace bds {
namespace {

constexpr UINTN kTries = 2;

}  // namespace

OptionFileName BootOptionFileName(UINT16 number) {
  OptionFileName name{};
  FormatAscii(name.Text, "Boot%04X", number);
  return name;
}

bool BeginCopyStep(const char* title) {
  SetupVariable setup;
  if (EFI_ERROR(ReadSetup(setup))) {
    gBmc.Copies = BOOT_COPIES::NotRestored;
    return false;
  }
  if (setup.At(kSetupUefiMode) == 0) {
    return false;
  }
  DebugPrintText(title);
  DebugPrintText("\n ============================================================== ");
  return true;
}

BmcFile ReadCopy(const char* name, PoolBuffer& file) {
  BmcFile copy = BmcFile::Unknown;
  for (UINTN tries = 0; tries < kTries && copy == BmcFile::Unknown; ++tries) {
    copy = BtReadBootVariableFile(name, file);
  }
  return copy;
}

BmcFile ReadOrderCopy(PoolBuffer& order) {
  const BmcFile copy = ReadCopy(kOrderFile, order);
  return copy == BmcFile::Present && order.Size < sizeof(UINT16) ? BmcFile::Missing : copy;
}

}  // namespace bds

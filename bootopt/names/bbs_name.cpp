// The description that the CSM shows for a legacy device.
#include "bootopt/names/bbs_names.h"
#include "bootopt/names/name_writer.h"
#include "support/legacy_memory.h"

namespace bds {

UINTN BuildBbsName(const BOOT_OPTION& option, std::span<CHAR16> buffer) {
  NameWriter writer(buffer);
  if (option.BbsEntry != nullptr) {
    writer.Append(LegacyString(option.BbsEntry->DescStringSegment, option.BbsEntry->DescStringOffset, buffer.size()));
    writer.TrimBlanks();
  }
  return writer.Length();
}

}  // namespace bds

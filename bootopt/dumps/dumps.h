// Debug dumps of options, of the BBS table and of load option images.
#pragma once

#include "bootopt/boot_lists.h"
#include "support/byte_reader.h"

namespace bds {

// One line per option under the title; title may be null.
void DumpBootOptionList(const BOOT_OPTION_LIST& list, const char* title);
// Every field of one option, index being its place for the reader.
void DumpBootOption(const BOOT_OPTION& option, UINTN index);
// The live entries of the 256-entry BBS table.
void DumpBbsTable(const BBS_TABLE* table);
// Every instance of device paths that follow one another, as text, a line each.
void PrintDevicePaths(Bytes paths);
// A Boot#### image: description, paths, state and what its optional data holds. nested: it is a group member.
void DumpLoadOption(Bytes image, bool nested);

}  // namespace bds

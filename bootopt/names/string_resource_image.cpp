// The resource section of the image: a directory whose only resource, of the named type "HII", is the driver's string
// package list, so that firmware publishes it on the image handle (UEFI 2.10, 7.4.1). Only the image has this file:
// it is the linker's to turn a symbol into an image-relative address, and only assembler text can ask for it.
#include "bootopt/names/string_package.h"

namespace bds {

// Tells the assembler the size; nobody calls this.
[[gnu::used]] void DefineStringPackageListSize() {
  asm volatile(".set kStringPackageListSize, %c0" : : "i"(kStringPackageListSize));
}

}  // namespace bds

// PE format: three levels of directories (type, name, language), each a header of 16 bytes and one entry of 8; offsets
// count from the start of the section, and bit 31 marks the offset of a name or of a directory. The linker puts
// the section's parts with a $ in their name, the list among them, behind this one.
// clang-format off
asm(".section .rsrc,\"dr\"\n"
    ".balign 8\n"
    ".long 0, 0, 0\n .short 1, 0\n"                                   //  0: types; one has a name
    ".long 0x80000048, 0x80000018\n"                                  // 16:   name at 72, directory at 24
    ".long 0, 0, 0\n .short 0, 1\n"                                   // 24: names; one has an id
    ".long 1, 0x80000030\n"                                           // 40:   id 1, directory at 48
    ".long 0, 0, 0\n .short 0, 1\n"                                   // 48: languages
    ".long 0, 0x50\n"                                                 // 64:   neutral, data entry at 80
    ".short 3, 0x48, 0x49, 0x49\n"                                    // 72: "HII" with its length
    ".rva kStringPackageList\n .long kStringPackageListSize, 0, 0\n"  // 80: address, size, code page, reserved
    ".text\n");
// clang-format on

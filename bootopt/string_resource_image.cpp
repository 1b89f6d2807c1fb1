// The resource section of the image: a directory whose only resource, of the named type "HII", is the driver's string
// package list, so that firmware publishes it on the image handle (UEFI 2.10, 7.4.1). Only the image has this file:
// it is the linker's to turn a symbol into an image-relative address, and only assembler text can ask for it.
#include "bootopt/string_package.h"

namespace bds {

// PE format: three levels of directories (type, name, language), each a header of 16 bytes and one entry of 8; offsets
// count from the start of the section, and bit 31 marks the offset of a name or of a directory.
[[gnu::used]] void DescribeStringResource() {
  asm volatile(
      ".pushsection .rsrc,\"dr\"\n"
      ".balign 4\n"
      ".long 0, 0, 0\n .short 1, 0\n"                  //  0: types, one of them with a name
      ".long 0x80000058, 0x80000018\n"                 // 16
      ".long 0, 0, 0\n .short 0, 1\n"                  // 24: names, one of them with an id
      ".long 1, 0x80000030\n"                          // 40
      ".long 0, 0, 0\n .short 0, 1\n"                  // 48: languages
      ".long 0, 0x48\n"                                // 64
      ".rva %c0\n .long %c1, 0, 0\n"                   // 72: the data: address, size, code page
      ".short 3, 'H', 'I', 'I'\n"                      // 88: the type's name with its length
      ".popsection\n"
      :
      : "i"(&kStringPackageList), "i"(kStringPackageListSize));
}

}  // namespace bds

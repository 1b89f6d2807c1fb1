#include "bootopt/dumps/dumps.h"

#include "bootopt/names/device_path_text.h"
#include "support/debug_print.h"
#include "support/device_path.h"
#include "support/protocols.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr char kRuler[] = "-----------------------------------------------------------\n";

void PrintPathLine(const DevicePath* path) {
  PoolPtr<char> text;
  if (EFI_ERROR(DevicePathToText(path, text))) {
    DebugPrint("CAN'T CONVERT!\n");
    return;
  }
  DebugPrintText(text.get());
  DebugPrint(";\n");
}

void PrintDescription(const BOOT_OPTION& option) {
  const CHAR16* description = option.Description ? option.Description.get() : u"";
  DebugPrint("     Description        =  %S  , Lenght = %04x \n", description, TextLength(description));
}

void PrintFirstNode(const BOOT_OPTION& option) {
  const DevicePath* node = option.FilePathList.get();
  if (node != nullptr && option.FilePathListLength >= sizeof(DevicePath)) {
    DebugPrint("     FilePathList       =  Type %02x, SubType %02x, Length %04x \n", node->Type, node->SubType,
               NodeLength(node));
  }
}

void PrintBbsEntry(const BOOT_OPTION& option) {
  DebugPrint("     BbsIndex           =  %04x \n", option.BbsIndex);
  if (option.BbsEntry == nullptr) {
    return;
  }
  const BBS_TABLE entry = *option.BbsEntry;
  DebugPrint("     BootPriority       =  %04x \n", UINT16{entry.BootPriority});
  DebugPrint("     Bus                =  %08x \n", UINT32{entry.Bus});
  DebugPrint("     Device             =  %08x \n", UINT32{entry.Device});
  DebugPrint("     Function           =  %08x \n", UINT32{entry.Function});
  DebugPrint("     Class              =  %02x \n", entry.Class);
  DebugPrint("     SubClass           =  %02x \n", entry.SubClass);
  DebugPrint("     MfgStringOffset    =  %04x \n", UINT16{entry.MfgStringOffset});
  DebugPrint("     MfgStringSegment   =  %04x \n", UINT16{entry.MfgStringSegment});
  DebugPrint("     DeviceType         =  %04x \n", UINT16{entry.DeviceType});
  DebugPrint("     StatusFlags        =  %04x \n", UINT16{entry.StatusFlags});
  DebugPrint("     AssignedDriveNumber=  %02x \n", entry.AssignedDriveNumber);
}

void PrintHandlePath(EFI_HANDLE handle) {
  const DevicePath* path = handle != nullptr ? DevicePathOf(handle) : nullptr;
  if (path == nullptr) {
    DebugPrint("No DP on handle\n");
    return;
  }
  DebugPrint("DP on handle: ");
  PrintPathLine(path);
}

}  // namespace

void PrintDevicePaths(Bytes paths) {
  while (!paths.empty()) {
    const UINTN size = DevicePathSize(paths);
    if (size == 0) {
      DebugPrint("CAN'T CONVERT!\n");
      return;
    }
    const auto* remaining = reinterpret_cast<const DevicePath*>(paths.data());
    while (remaining != nullptr) {
      const PoolPtr<DevicePath> instance = CopyNextInstance(remaining);
      if (!instance) {
        return;
      }
      PrintPathLine(instance.get());
    }
    paths = paths.subspan(size);
  }
}

void DumpBootOptionList(const BOOT_OPTION_LIST& list, const char* title) {
  if (title != nullptr) {
    DebugPrint("%a:\n", title);
  }
  for (const BOOT_OPTION* option = list.First; option != nullptr; option = option->Next) {
    const char* orphan = IsMatched(*option) ? "" : "(orphan)";
    DebugPrint("%X(%X/%X).%S%a%a\n", option->BootOptionNumber, option->Priority, option->Tag, option->Description.get(),
               option->GroupHeader ? "(group header)" : orphan,
               (option->Attributes & LOAD_OPTION_ACTIVE) != 0 ? "" : "(disabled)");
  }
}

void DumpBootOption(const BOOT_OPTION& option, UINTN index) {
  DebugPrint("Boot option %d:  \n", index);
  DebugPrint("%a", kRuler);
  PrintDescription(option);
  DebugPrint("     Attributes         =  %08x \n", option.Attributes);
  DebugPrint("     BootOptionNumber   =  %04x \n", option.BootOptionNumber);
  DebugPrint("     Priority           =  %08x \n", option.Priority);
  DebugPrint("     Tag                =  %08x \n", option.Tag);
  PrintFirstNode(option);
  DebugPrint("     FilePathListLength =  %x \n", option.FilePathListLength);
  DebugPrint("     OptionalData       =  %x \n", option.OptionalData.get());
  DebugPrint("     OptionalDataSize   =  %x \n", option.OptionalDataSize);
  DebugPrint("     DeviceHandle       =  %x \n", option.DeviceHandle);
  if (IsLegacyOption(option)) {
    PrintBbsEntry(option);
  }
  DebugPrint("     GroupHeader        =  %x \n", option.GroupHeader);
  DebugPrint("     FwBootOption       =  %x \n", option.FwBootOption);
  if (!option.FilePathList || option.FilePathListLength == 0) {
    DebugPrint("0x00000000;\n");
  } else {
    PrintDevicePaths({reinterpret_cast<const std::byte*>(option.FilePathList.get()), option.FilePathListLength});
  }
  PrintHandlePath(option.DeviceHandle);
}

}  // namespace bds

// Reading a whole file of the BMC piece by piece.
#include "bmc/bt_read_file.h"

#include "bmc/bt_file.h"
#include "bmc/pm_timer.h"
#include "support/debug_print.h"
#include "support/text.h"

namespace bds {
namespace {

// Appends pieces until a short one. False when a piece fails or the file does not fit; the walk then ends at once,
// since asking a BMC again that did not answer would have no end.
bool ReadPieces(BT_FILE_CONTEXT& context, std::span<std::byte> file, UINTN& size) {
  do {
    context.DataOffset = MAX_BT_READ_SIZE;
    context.ResponseLength = MAX_BT_READ_SIZE;
    BtReadFilePiece(context);
    if (context.DataOffset != BT_FILE_DATA_OFFSET) {
      return false;
    }
    if (context.ResponseLength > context.DataOffset) {
      const UINTN count = context.ResponseLength - UINTN{BT_FILE_DATA_OFFSET};
      if (count > file.size() - size) {
        return false;
      }
      CopyMemory(file.data() + size, context.ResponseData + BT_FILE_DATA_OFFSET, count);
      size += count;
    }
  } while (context.ResponseLength == MAX_BT_READ_SIZE);
  return context.ResponseLength < MAX_BT_READ_SIZE;
}

PoolPtr<std::byte> ReadFile(const char* name, BT_FILE_CONTEXT& context, UINTN& size, bool& heard) {
  PoolPtr<std::byte> work(static_cast<std::byte*>(AllocateZeroPool(kMaxBtFileSize)));
  if (!work) {
    DebugPrint("UEFIBoot: fails to allocate %04X bytes buffer \n", kMaxBtFileSize);
    heard = false;
    return nullptr;
  }
  if (BtOpenFile(context, name, BT_OPEN_FILE) != BT_DONE) {
    heard = !BtUnheard(context);
    DebugPrint("UEFIBoot: fails to open %a file for reading \n", name);
    return nullptr;
  }
  const bool whole = ReadPieces(context, {work.get(), kMaxBtFileSize}, size);
  heard = !BtUnheard(context);
  static_cast<void>(BtCloseVariableFile(context));
  PmTimerStall(kBtSettleTime);
  if (!whole) {
    return nullptr;
  }
  PoolPtr<std::byte> file(static_cast<std::byte*>(AllocatePool(size)));
  if (!file) {
    DebugPrint("UEFIBoot: fails to allocate %04X bytes buffer \n", size);
    heard = false;
    return nullptr;
  }
  CopyMemory(file.get(), work.get(), size);
  return file;
}

}  // namespace

PoolPtr<std::byte> BtReadBootVariableFile(const char* name, UINTN& size, bool* heard) {
  BT_FILE_CONTEXT context;
  const UINTN length = TextLength(name);
  CopyMemory(context.Name, name, length < sizeof(context.Name) ? length : sizeof(context.Name) - 1);
  size = 0;
  bool answered = false;
  PoolPtr<std::byte> file = ReadFile(name, context, size, answered);
  if (heard != nullptr) {
    *heard = answered;
  }
  return file;
}

}  // namespace bds

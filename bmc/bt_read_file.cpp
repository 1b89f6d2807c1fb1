// Reading a whole file of the BMC piece by piece.
#include "bmc/bt_read_file.h"

#include "bmc/bt_file.h"
#include "bmc/pm_timer.h"
#include "support/debug_print.h"
#include "support/text.h"

namespace bds {
namespace {

// What is appended to file, and how much of it.
struct WorkBuffer {
  PoolPtr<std::byte> Bytes;
  UINTN Size = 0;
};

// Appends pieces until a short one. The walk ends at the first that fails: asking a BMC again that did not answer would
// have no end. A piece without its leading bytes is a refusal, not the end of the file.
BmcFile ReadPieces(BT_FILE_CONTEXT& context, WorkBuffer& work) {
  do {
    context.DataOffset = MAX_BT_READ_SIZE;
    context.ResponseLength = MAX_BT_READ_SIZE;
    BtReadFilePiece(context);
    if (context.DataOffset != BT_FILE_DATA_OFFSET || context.ResponseLength < BT_FILE_DATA_OFFSET) {
      return BmcFile::Unknown;
    }
    const UINTN count = context.ResponseLength - UINTN{BT_FILE_DATA_OFFSET};
    if (count > kMaxBtFileSize - work.Size) {
      return BmcFile::Missing;
    }
    CopyMemory(work.Bytes.get() + work.Size, context.ResponseData + BT_FILE_DATA_OFFSET, count);
    work.Size += count;
  } while (context.ResponseLength == MAX_BT_READ_SIZE);
  return context.ResponseLength < MAX_BT_READ_SIZE ? BmcFile::Present : BmcFile::Unknown;
}

BmcFile NoMemory(UINTN size) {
  DebugPrint("UEFIBoot: fails to allocate %04X bytes buffer \n", size);
  return BmcFile::Unknown;
}

}  // namespace

BmcFile BtReadBootVariableFile(const char* name, PoolBuffer& file) {
  file.Clear();
  WorkBuffer work{PoolPtr<std::byte>(static_cast<std::byte*>(AllocateZeroPool(kMaxBtFileSize)))};
  if (!work.Bytes) {
    return NoMemory(kMaxBtFileSize);
  }
  BT_FILE_CONTEXT context;
  const UINTN length = TextLength(name);
  CopyMemory(context.Name, name, length < sizeof(context.Name) ? length : sizeof(context.Name) - 1);
  if (BtOpenFile(context, name, BT_OPEN_FILE) != BT_DONE) {
    DebugPrint("UEFIBoot: fails to open %a file for reading \n", name);
    return BtUnheard(context) ? BmcFile::Unknown : BmcFile::Missing;
  }
  const BmcFile read = ReadPieces(context, work);
  static_cast<void>(BtCloseVariableFile(context));
  PmTimerStall(kBtSettleTime);
  if (read != BmcFile::Present) {
    return read;
  }
  file.Data.reset(static_cast<std::byte*>(AllocatePool(work.Size)));
  if (!file.Data) {
    return NoMemory(work.Size);
  }
  file.Size = work.Size;
  CopyMemory(file.Data.get(), work.Bytes.get(), work.Size);
  return BmcFile::Present;
}

}  // namespace bds

// File operations of the BMC file transfer, built on single exchanges.
#include "bmc/bt_file.h"

#include <array>

#include "bmc/bt_registers.h"
#include "bmc/pm_timer.h"
#include "platform/io_ports.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr UINT8 kHandleBytes = 2;
constexpr UINT8 kHandleRequestLength = 4;  // length, opcode, handle
constexpr UINT32 kSlowCreateWait = 1'000'000;

// The lock bit in the BT interrupt mask, held for one operation. It is a plain read-modify-write: other agents of the
// firmware run on the same thread.
class FileLock {
 public:
  explicit FileLock(BT_FILE_CONTEXT& context) {
    if ((IoRead8(kBtInterruptMaskPort) & BT_FILE_LOCK) != 0) {
      context.LastEnd = BT_END::Locked;
      return;
    }
    context.LastEnd = BT_END::None;
    IoWrite8(kBtInterruptMaskPort, static_cast<UINT8>(IoRead8(kBtInterruptMaskPort) | BT_FILE_LOCK));
    taken_ = true;
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock() {
    if (taken_) {
      IoWrite8(kBtInterruptMaskPort, static_cast<UINT8>(IoRead8(kBtInterruptMaskPort) & ~BT_FILE_LOCK));
    }
  }
  bool Taken() const { return taken_; }

 private:
  bool taken_ = false;
};

void BuildHandleRequest(BT_FILE_CONTEXT& context, UINT8 opcode) {
  context.Opcode = opcode;
  context.RequestArgs[0] = static_cast<UINT8>(context.Handle & 0xFF);
  context.RequestArgs[1] = static_cast<UINT8>(context.Handle >> 8);
}

void SendPiece(BT_FILE_CONTEXT& context, const UINT8* data, UINT8 count) {
  BuildHandleRequest(context, BT_WRITE_PIECE);
  CopyMemory(context.RequestArgs + kHandleBytes, data, count);
  context.PieceLength = static_cast<UINT8>(count + 3);
  if (BtExchange(context, static_cast<UINT8>(context.PieceLength + 1), 2) != 0) {
    context.IsOpen = 0;
  }
  context.PieceLength = 3;
}

UINT8 Close(BT_FILE_CONTEXT& context, UINT8 opcode) {
  BuildHandleRequest(context, opcode);
  const UINT8 failed = BtExchange(context, kHandleRequestLength, 2);
  if (failed != 0) {
    context.IsOpen = 0;
  }
  return failed;
}

}  // namespace

EFI_STATUS BtStatusToEfiStatus(UINT8 result) {
  constexpr EFI_STATUS kStatus[] = {EFI_SUCCESS, EFI_DEVICE_ERROR, EFI_NO_RESPONSE, EFI_INVALID_PARAMETER,
                                    EFI_UNSUPPORTED};
  return result < std::size(kStatus) ? kStatus[result] : kBtUnknownResult;
}

UINT8 BtOpenFile(BT_FILE_CONTEXT& context, const char* name, UINT8 mode) {
  const FileLock lock(context);
  if (!lock.Taken()) {
    return BT_LOCKED;
  }
  context.IsOpen = 0;
  const UINTN length = TextLength(name);
  if (length >= kBtArgumentCapacity) {
    return BT_FAILED;
  }
  context.Opcode = mode;
  CopyMemory(context.RequestArgs, name, length);
  context.RequestArgs[length] = 0;
  if (mode == BT_CREATE_FILE && name[0] == 'd') {
    PmTimerStall(kSlowCreateWait);
  }
  if (BtExchange(context, static_cast<UINT8>(length + 2), 4) != 0) {
    return BT_FAILED;
  }
  context.IsOpen = 1;
  context.Handle = static_cast<UINT16>(context.ResponseData[0] | (context.ResponseData[1] << 8));
  return BT_DONE;
}

void BtReadFilePiece(BT_FILE_CONTEXT& context) {
  const FileLock lock(context);
  if (!lock.Taken()) {
    return;
  }
  BuildHandleRequest(context, BT_READ_PIECE);
  if (BtExchange(context, kHandleRequestLength, 0) != 0) {
    context.IsOpen = 0;
  }
}

UINT8 BtWriteFile(BT_FILE_CONTEXT& context, const void* data, UINT32 length) {
  const FileLock lock(context);
  if (!lock.Taken()) {
    return BT_LOCKED;
  }
  if (context.IsOpen == 0) {
    return BT_NOT_OPEN;
  }
  const UINT8* piece = static_cast<const UINT8*>(data);
  UINT32 remaining = length;
  for (; remaining >= MAX_BT_PIECE_SIZE; remaining -= MAX_BT_PIECE_SIZE, piece += MAX_BT_PIECE_SIZE) {
    SendPiece(context, piece, MAX_BT_PIECE_SIZE);
  }
  if (remaining != 0) {
    SendPiece(context, piece, static_cast<UINT8>(remaining));
  }
  return BT_DONE;
}

UINT8 BtCloseFile(BT_FILE_CONTEXT& context) { return Close(context, BT_CLOSE_FILE); }

UINT8 BtCloseVariableFile(BT_FILE_CONTEXT& context) { return Close(context, BT_CLOSE_VARIABLE_FILE); }

UINT8 BtRenameFile(BT_FILE_CONTEXT& context, const char* oldName, const char* newName) {
  const FileLock lock(context);
  if (!lock.Taken()) {
    return BT_LOCKED;
  }
  const UINTN oldLength = TextLength(oldName);
  const UINTN newLength = TextLength(newName);
  const bool fits = oldLength <= kBtArgumentCapacity && newLength <= kBtArgumentCapacity - 2 &&
                    oldLength + newLength <= kBtArgumentCapacity - 2;
  if (fits) {
    context.Opcode = BT_RENAME_FILE;
    context.RequestArgs[0] = static_cast<UINT8>(oldLength);
    context.RequestArgs[1] = static_cast<UINT8>(newLength);
    CopyMemory(context.RequestArgs + 2, oldName, oldLength);
    CopyMemory(context.RequestArgs + 2 + oldLength, newName, newLength);
    if (BtExchange(context, static_cast<UINT8>(4 + oldLength + newLength), 3) == 0 && context.ResponseData[0] == 0) {
      return BT_DONE;
    }
  }
  return context.TimeoutCount != 0 ? BT_FAILED : BT_RENAME_REFUSED;
}

}  // namespace bds

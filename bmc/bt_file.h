// The operations on one file of the BMC's file store. Result codes are small numbers: see BT_RESULT.
#pragma once

#include <span>

#include "bmc/bt_exchange.h"
#include "support/byte_reader.h"

namespace bds {

enum BT_RESULT : UINT8 {
  BT_DONE = 0,
  BT_LOCKED = 1,          // the lock bit was already set, nothing was sent
  BT_FAILED = 2,          // the exchange failed; a rename: failed on a context that has seen a timeout
  BT_RENAME_REFUSED = 3,  // a rename failed on a context that has never seen a timeout
  BT_NOT_OPEN = 4,        // write attempted with no file open
};

// EFI_SUCCESS, EFI_DEVICE_ERROR, EFI_NO_RESPONSE, EFI_INVALID_PARAMETER, EFI_UNSUPPORTED by code; other values:
// kBtUnknownResult.
[[nodiscard]] EFI_STATUS BtStatusToEfiStatus(UINT8 result);
inline constexpr EFI_STATUS kBtUnknownResult = EfiErrorBit | 0x21;

inline constexpr UINT8 BT_FILE_DATA_OFFSET = 2;  // file bytes of a read piece start behind two leading bytes
inline constexpr UINT8 MAX_BT_PIECE_SIZE = 59;   // file bytes that one exchange moves at most
inline constexpr UINT8 MAX_BT_READ_SIZE = BT_FILE_DATA_OFFSET + MAX_BT_PIECE_SIZE;  // response data of a full piece

// How long the BMC is left alone after a close or an existence test, in microseconds.
inline constexpr UINT32 kBtSettleTime = 200'000;

// Opens an existing file for reading (BT_OPEN_FILE), or creates or replaces one for writing (BT_CREATE_FILE).
// BT_DONE, BT_LOCKED or BT_FAILED; a name of more than 60 characters fails unsent.
[[nodiscard]] UINT8 BtOpenFile(BT_FILE_CONTEXT& context, const char* name, UINT8 mode);

// Reads the next piece. On success ResponseLength and ResponseData hold it and DataOffset is 2; otherwise all three
// keep what they held, so a caller presets them to tell the two apart.
void BtReadFilePiece(BT_FILE_CONTEXT& context);

// Writes the bytes in pieces. BT_DONE, BT_LOCKED or BT_NOT_OPEN. A piece that fails clears IsOpen, and the pieces
// behind it are sent all the same: BT_DONE with IsOpen still 1 means that the BMC took every piece.
UINT8 BtWriteFile(BT_FILE_CONTEXT& context, const void* data, UINT32 length);

// Both return the exchange's 0 or 1; the second is for the files that hold boot variables.
UINT8 BtCloseFile(BT_FILE_CONTEXT& context);
UINT8 BtCloseVariableFile(BT_FILE_CONTEXT& context);

// BT_DONE, BT_LOCKED, BT_FAILED or BT_RENAME_REFUSED. Names of more than 59 characters together are refused unsent.
[[nodiscard]] UINT8 BtRenameFile(BT_FILE_CONTEXT& context, const char* oldName, const char* newName);

}  // namespace bds

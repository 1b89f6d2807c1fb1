// NVRAM variables read into owned buffers and written back.
#pragma once

#include <span>

#include "platform/uefi_base.h"
#include "support/byte_reader.h"
#include "support/pool.h"

namespace bds {

// Reads a variable with the buffer and size that are there (size 0 without a buffer). When that is too small, frees
// the buffer, allocates one of the size asked for and reads again. On success buffer.Size is the variable's size;
// the memory behind it may be larger and is kept for the next read. attributes may be null.
// EFI_OUT_OF_RESOURCES when the pool is exhausted; otherwise the service's status.
[[nodiscard]] EFI_STATUS ReadVariableIntoBuffer(const CHAR16* name, const EFI_GUID& guid, UINT32* attributes,
                                                UINTN& capacity, PoolBuffer& buffer);

// A variable's whole content in a new buffer.
[[nodiscard]] EFI_STATUS ReadVariable(const CHAR16* name, const EFI_GUID& guid, PoolBuffer& buffer,
                                      UINT32* attributes = nullptr);

// Reads into a fixed record: EFI_BUFFER_TOO_SMALL when the variable is larger; size becomes the bytes read.
// Bytes of the record that the variable does not fill keep their value.
[[nodiscard]] EFI_STATUS ReadVariableInto(const CHAR16* name, const EFI_GUID& guid, std::span<std::byte> record,
                                          UINTN& size, UINT32* attributes = nullptr);

// True when reading answers anything but EFI_NOT_FOUND.
[[nodiscard]] bool VariableExists(const CHAR16* name, const EFI_GUID& guid);

[[nodiscard]] EFI_STATUS WriteVariable(const CHAR16* name, const EFI_GUID& guid, UINT32 attributes, Bytes data);
[[nodiscard]] EFI_STATUS DeleteVariable(const CHAR16* name, const EFI_GUID& guid);

// Writes, and once more when the store refuses: for what no later boot would write again. No data deletes the variable.
[[nodiscard]] EFI_STATUS WriteVariableFirmly(const CHAR16* name, const EFI_GUID& guid, UINT32 attributes, Bytes data);
[[nodiscard]] EFI_STATUS DeleteVariableFirmly(const CHAR16* name, const EFI_GUID& guid);

// Writes; when the variable exists with other attributes (EFI_INVALID_PARAMETER), deletes it and writes again.
[[nodiscard]] EFI_STATUS SetVariableReplacing(const CHAR16* name, const EFI_GUID& guid, UINT32 attributes, Bytes data);

inline constexpr UINT32 kNonVolatileBoot = 0x3;         // non-volatile, boot service access
inline constexpr UINT32 kNonVolatileBootRuntime = 0x7;  // and runtime access
inline constexpr UINT32 kVolatileBootRuntime = 0x6;

// "Boot%04X" and its kin: four hexadecimal digits behind a prefix of at most 11 characters.
struct NumberedName {
  CHAR16 Text[16];
  operator const CHAR16*() const { return Text; }  // NOLINT: it is used as a variable name
};
[[nodiscard]] NumberedName BootVariableName(UINT16 number);           // upper-case digits
[[nodiscard]] NumberedName BootVariableNameLowerCase(UINT16 number);  // as some installers write it
[[nodiscard]] NumberedName DriverVariableName(UINT16 number);

}  // namespace bds

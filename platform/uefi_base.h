// The base types of the UEFI standard (UEFI 2.10, 2.3.1), its calling convention and its status codes.
// Everything else in this directory is written in these types; nothing here has logic.
#pragma once

#include <cstddef>
#include <cstdint>

// UEFI 2.10, 2.3.4: x64 firmware interfaces use the Microsoft convention, whatever the compiler's own is.
#define EFIAPI __attribute__((ms_abi))

using VOID = void;
using BOOLEAN = std::uint8_t;
using CHAR8 = char;
using CHAR16 = char16_t;
using INT8 = std::int8_t;
using INT16 = std::int16_t;
using INT32 = std::int32_t;
using INT64 = std::int64_t;
using UINT8 = std::uint8_t;
using UINT16 = std::uint16_t;
using UINT32 = std::uint32_t;
using UINT64 = std::uint64_t;
using INTN = std::int64_t;
using UINTN = std::uint64_t;
using EFI_STATUS = UINTN;
using EFI_HANDLE = void*;
using EFI_EVENT = void*;
using EFI_TPL = UINTN;
using EFI_LBA = UINT64;
using EFI_PHYSICAL_ADDRESS = UINT64;
using EFI_VIRTUAL_ADDRESS = UINT64;

static_assert(sizeof(void*) == 8, "the driver is written for x86-64 firmware");
static_assert(sizeof(CHAR16) == 2);

inline constexpr BOOLEAN TRUE = 1;
inline constexpr BOOLEAN FALSE = 0;

// A GUID in its in-memory form: the first three fields are little-endian.
struct EFI_GUID {
  UINT32 Data1;
  UINT16 Data2;
  UINT16 Data3;
  UINT8 Data4[8];

  friend constexpr bool operator==(const EFI_GUID&, const EFI_GUID&) = default;
};
static_assert(sizeof(EFI_GUID) == 16);

// The GUID under which an interface type is published. A type without a GUID of its own does not compile here.
template <typename Interface>
inline constexpr EFI_GUID ProtocolGuid = [] {
  static_assert(sizeof(Interface) == 0, "no GUID is bound to this interface type");
  return EFI_GUID{};
}();

// UEFI 2.10, Appendix D. The top bit marks an error; warnings are small numbers without it.
inline constexpr EFI_STATUS EfiErrorBit = EFI_STATUS{1} << 63;
constexpr bool EFI_ERROR(EFI_STATUS status) { return (status & EfiErrorBit) != 0; }

inline constexpr EFI_STATUS EFI_SUCCESS = 0;
inline constexpr EFI_STATUS EFI_WARN_UNKNOWN_GLYPH = 1;
inline constexpr EFI_STATUS EFI_WARN_DELETE_FAILURE = 2;
inline constexpr EFI_STATUS EFI_WARN_WRITE_FAILURE = 3;
inline constexpr EFI_STATUS EFI_WARN_BUFFER_TOO_SMALL = 4;
inline constexpr EFI_STATUS EFI_WARN_STALE_DATA = 5;
inline constexpr EFI_STATUS EFI_WARN_FILE_SYSTEM = 6;
inline constexpr EFI_STATUS EFI_WARN_RESET_REQUIRED = 7;

inline constexpr EFI_STATUS EFI_LOAD_ERROR = EfiErrorBit | 1;
inline constexpr EFI_STATUS EFI_INVALID_PARAMETER = EfiErrorBit | 2;
inline constexpr EFI_STATUS EFI_UNSUPPORTED = EfiErrorBit | 3;
inline constexpr EFI_STATUS EFI_BAD_BUFFER_SIZE = EfiErrorBit | 4;
inline constexpr EFI_STATUS EFI_BUFFER_TOO_SMALL = EfiErrorBit | 5;
inline constexpr EFI_STATUS EFI_NOT_READY = EfiErrorBit | 6;
inline constexpr EFI_STATUS EFI_DEVICE_ERROR = EfiErrorBit | 7;
inline constexpr EFI_STATUS EFI_WRITE_PROTECTED = EfiErrorBit | 8;
inline constexpr EFI_STATUS EFI_OUT_OF_RESOURCES = EfiErrorBit | 9;
inline constexpr EFI_STATUS EFI_VOLUME_CORRUPTED = EfiErrorBit | 10;
inline constexpr EFI_STATUS EFI_VOLUME_FULL = EfiErrorBit | 11;
inline constexpr EFI_STATUS EFI_NO_MEDIA = EfiErrorBit | 12;
inline constexpr EFI_STATUS EFI_MEDIA_CHANGED = EfiErrorBit | 13;
inline constexpr EFI_STATUS EFI_NOT_FOUND = EfiErrorBit | 14;
inline constexpr EFI_STATUS EFI_ACCESS_DENIED = EfiErrorBit | 15;
inline constexpr EFI_STATUS EFI_NO_RESPONSE = EfiErrorBit | 16;
inline constexpr EFI_STATUS EFI_NO_MAPPING = EfiErrorBit | 17;
inline constexpr EFI_STATUS EFI_TIMEOUT = EfiErrorBit | 18;
inline constexpr EFI_STATUS EFI_NOT_STARTED = EfiErrorBit | 19;
inline constexpr EFI_STATUS EFI_ALREADY_STARTED = EfiErrorBit | 20;
inline constexpr EFI_STATUS EFI_ABORTED = EfiErrorBit | 21;
inline constexpr EFI_STATUS EFI_ICMP_ERROR = EfiErrorBit | 22;
inline constexpr EFI_STATUS EFI_TFTP_ERROR = EfiErrorBit | 23;
inline constexpr EFI_STATUS EFI_PROTOCOL_ERROR = EfiErrorBit | 24;
inline constexpr EFI_STATUS EFI_INCOMPATIBLE_VERSION = EfiErrorBit | 25;
inline constexpr EFI_STATUS EFI_SECURITY_VIOLATION = EfiErrorBit | 26;
inline constexpr EFI_STATUS EFI_CRC_ERROR = EfiErrorBit | 27;
inline constexpr EFI_STATUS EFI_END_OF_MEDIA = EfiErrorBit | 28;
inline constexpr EFI_STATUS EFI_END_OF_FILE = EfiErrorBit | 31;
inline constexpr EFI_STATUS EFI_INVALID_LANGUAGE = EfiErrorBit | 32;
inline constexpr EFI_STATUS EFI_COMPROMISED_DATA = EfiErrorBit | 33;
inline constexpr EFI_STATUS EFI_HTTP_ERROR = EfiErrorBit | 35;

// UEFI 2.10, 3.3: the vendor GUID of the globally defined variables.
inline constexpr EFI_GUID gEfiGlobalVariableGuid{
    0x8BE4DF61, 0x93CA, 0x11D2, {0xAA, 0x0D, 0x00, 0xE0, 0x98, 0x03, 0x2B, 0x8C}};

inline constexpr UINT32 EFI_VARIABLE_NON_VOLATILE = 0x1;
inline constexpr UINT32 EFI_VARIABLE_BOOTSERVICE_ACCESS = 0x2;
inline constexpr UINT32 EFI_VARIABLE_RUNTIME_ACCESS = 0x4;

// UEFI 2.10, 3.1.3: attributes of a load option.
inline constexpr UINT32 LOAD_OPTION_ACTIVE = 0x1;
inline constexpr UINT32 LOAD_OPTION_FORCE_RECONNECT = 0x2;
inline constexpr UINT32 LOAD_OPTION_HIDDEN = 0x8;

#include "support/variables.h"

#include "support/format.h"
#include "support/services.h"

namespace bds {

EFI_STATUS ReadVariableIntoBuffer(const CHAR16* name, const EFI_GUID& guid, UINT32* attributes, UINTN& capacity,
                                  PoolBuffer& buffer) {
  UINTN size = buffer.Data ? capacity : 0;
  EFI_STATUS status = RuntimeServices()->GetVariable(name, &guid, attributes, &size, buffer.Data.get());
  if (status == EFI_BUFFER_TOO_SMALL) {
    buffer.Data.reset(static_cast<std::byte*>(AllocatePool(size)));
    if (!buffer.Data) {
      capacity = 0;
      buffer.Size = 0;
      return EFI_OUT_OF_RESOURCES;
    }
    capacity = size;
    status = RuntimeServices()->GetVariable(name, &guid, attributes, &size, buffer.Data.get());
  }
  buffer.Size = EFI_ERROR(status) ? 0 : size;
  return status;
}

EFI_STATUS ReadVariable(const CHAR16* name, const EFI_GUID& guid, PoolBuffer& buffer, UINT32* attributes) {
  buffer.Clear();
  UINTN capacity = 0;
  const EFI_STATUS status = ReadVariableIntoBuffer(name, guid, attributes, capacity, buffer);
  if (EFI_ERROR(status)) {
    buffer.Clear();
  }
  return status;
}

EFI_STATUS ReadVariableInto(const CHAR16* name, const EFI_GUID& guid, std::span<std::byte> record, UINTN& size,
                            UINT32* attributes) {
  size = record.size();
  return RuntimeServices()->GetVariable(name, &guid, attributes, &size, record.data());
}

bool VariableExists(const CHAR16* name, const EFI_GUID& guid) {
  UINTN size = 0;
  return RuntimeServices()->GetVariable(name, &guid, nullptr, &size, nullptr) != EFI_NOT_FOUND;
}

EFI_STATUS WriteVariable(const CHAR16* name, const EFI_GUID& guid, UINT32 attributes, Bytes data) {
  return RuntimeServices()->SetVariable(name, &guid, attributes, data.size(), data.data());
}

EFI_STATUS DeleteVariable(const CHAR16* name, const EFI_GUID& guid) {
  return RuntimeServices()->SetVariable(name, &guid, 0, 0, nullptr);
}

EFI_STATUS WriteVariableFirmly(const CHAR16* name, const EFI_GUID& guid, UINT32 attributes, Bytes data) {
  const EFI_STATUS status = WriteVariable(name, guid, attributes, data);
  return EFI_ERROR(status) ? WriteVariable(name, guid, attributes, data) : status;
}

EFI_STATUS DeleteVariableFirmly(const CHAR16* name, const EFI_GUID& guid) {
  const EFI_STATUS status = DeleteVariable(name, guid);
  return EFI_ERROR(status) && status != EFI_NOT_FOUND ? DeleteVariable(name, guid) : status;
}

EFI_STATUS SetVariableReplacing(const CHAR16* name, const EFI_GUID& guid, UINT32 attributes, Bytes data) {
  const EFI_STATUS status = WriteVariable(name, guid, attributes, data);
  if (status != EFI_INVALID_PARAMETER || EFI_ERROR(DeleteVariable(name, guid))) {
    return status;
  }
  return WriteVariable(name, guid, attributes, data);
}

NumberedName BootVariableName(UINT16 number) {
  NumberedName name{};
  FormatUtf16(name.Text, "Boot%04X", number);
  return name;
}

NumberedName BootVariableNameLowerCase(UINT16 number) {
  NumberedName name{};
  FormatUtf16(name.Text, "Boot%04x", number);
  return name;
}

NumberedName DriverVariableName(UINT16 number) {
  NumberedName name{};
  FormatUtf16(name.Text, "Driver%04X", number);
  return name;
}

}  // namespace bds

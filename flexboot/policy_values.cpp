#include "flexboot/policy_values.h"

#include "flexboot/policy_parser.h"
#include "support/debug_print.h"
#include "support/text.h"

namespace bds {
namespace {

constexpr UINTN kPciAddressBytes = 4;

void StoreNumber(UINT8* field, UINTN size, UINT64 number) { CopyMemory(field, &number, size); }

UINT64 ToNumber(const char* text, UINT32 base) {
  return static_cast<UINT64>(INT64{XmlStrToInt(text, nullptr, base)});  // a negative number fills a wide field
}

const ValueWord* FindWord(std::span<const ValueWord> words, const char* text) {
  for (const ValueWord& word : words) {
    if (XmlStriCmp(word.Word, text) == 0) {
      return &word;
    }
  }
  return nullptr;
}

// Parses the address into its four bytes. False when the row lets it count as not given.
bool StoreAddress(const LayoutField& row, const char* text, const char* extractor, UINT8* field) {
  UINT8 address[kPciAddressBytes] = {};
  const EFI_STATUS status = ExtractPciAddressFromPolicy(text, &address[0], &address[1], &address[2], &address[3]);
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed parsing PCI Address:%r\n", extractor, status);
  }
  if (row.IgnoreZero && address[1] == 0 && address[2] == 0 && address[3] == 0) {
    if (row.IfZero != nullptr) {
      DebugPrintText(row.IfZero);
    }
    return false;
  }
  CopyMemory(field, address, sizeof(address));
  StoreText(field + row.Size + 1, sizeof(POLICY_PCI_IDENTITY::PciAddressText), text);
  return true;
}

// Stores the value; false when it counts as not given.
bool Convert(const LayoutField& row, const char* text, const char* extractor, UINT8* field) {
  switch (row.How) {
    case Conversion::YesNo:
    case Conversion::YesOnly: {
      const bool yes = XmlStriCmp(text, "yes") == 0;
      if (yes || XmlStriCmp(text, "no") == 0) {
        *field = yes;
      }
      return yes || row.How == Conversion::YesNo;
    }
    case Conversion::Hexadecimal:
      StoreNumber(field, row.Size, ToNumber(text, 16));
      return true;
    case Conversion::Decimal:
      StoreNumber(field, row.Size, ToNumber(text, 10));
      return true;
    case Conversion::WordOnly:
      StoreNumber(field, row.Size, 0);
      return true;
    case Conversion::Text:
      StoreText(field, row.Size, text);
      return true;
    case Conversion::PciAddress:
      return StoreAddress(row, text, extractor, field);
    case Conversion::MacAddress: {
      UINT8 mac[6];
      if (!EFI_ERROR(ParseMacAddress(text, mac))) {
        CopyMemory(field, mac, sizeof(mac));
      }
      return true;
    }
    case Conversion::ReportName:
      break;
  }
  return false;
}

}  // namespace

void StoreText(void* field, UINTN size, const char* text) {
  const UINTN length = TextLength(text);
  ZeroMemory(field, size);
  CopyMemory(field, text, length < size ? length : size - 1);
}

void StoreValue(const LayoutField& row, const char* value, const char* extractor, FLEXBOOT_TARGET& entry) {
  if (row.How == Conversion::ReportName) {
    StoreText(entry.RN, sizeof(entry.RN), value);
    return;
  }
  if (row.IgnoreEmpty && *value == 0) {
    if (row.IfEmpty != nullptr) {
      DebugPrintText(row.IfEmpty);
    }
    return;
  }
  UINT8* field = entry.Data + row.Offset;
  if (const ValueWord* word = FindWord(row.Words, value); word != nullptr) {
    StoreNumber(field, row.Size, word->Number);
  } else if (!Convert(row, value, extractor, field)) {
    return;
  }
  field[row.Size] = 1;
}

EFI_STATUS ExtractPciAddressFromPolicy(const char* text, UINT8* segment, UINT8* bus, UINT8* device, UINT8* function) {
  UINT8* outputs[] = {segment, bus, device, function};
  for (const UINT8* output : outputs) {
    if (output == nullptr) {
      DebugPrint("%a:Invalid Paramter\n", "ExtractPciAddressFromPolicy");
      return EFI_INVALID_PARAMETER;
    }
  }
  for (UINT8* output : outputs) {
    *output = static_cast<UINT8>(XmlStrToInt(text, nullptr, 16));
    while (*text != 0 && *text != ':' && *text != '.') {
      ++text;
    }
    text += *text != 0;
  }
  return EFI_SUCCESS;
}

EFI_STATUS ParseMacAddress(const char* text, UINT8 (&mac)[6]) {
  constexpr UINTN kFieldWidth = 3;  // two digits and the separator
  for (UINTN i = 0; i + 1 < sizeof(mac); ++i) {
    for (UINTN at = i * kFieldWidth; at < (i + 1) * kFieldWidth; ++at) {
      const bool separator = at % kFieldWidth == kFieldWidth - 1;
      if (text[at] == 0 || (separator && text[at] != ':')) {
        return EFI_INVALID_PARAMETER;
      }
    }
  }
  for (UINTN i = 0; i < sizeof(mac); ++i) {
    const char* digits = text + i * kFieldWidth;
    const char field[kFieldWidth] = {digits[0], digits[0] != 0 ? digits[1] : '\0', 0};
    mac[i] = static_cast<UINT8>(XmlStrToInt(field, nullptr, 16));
  }
  return EFI_SUCCESS;
}

}  // namespace bds

#include "flexboot/policy_parser.h"

#include "flexboot/policy_values.h"
#include "flexboot/state.h"
#include "flexboot/xml_tokens.h"
#include "support/debug_print.h"

namespace bds {
namespace {

constexpr char kIsolateBootHeader[] = "IsolateBootHeader";
constexpr char kIsolateBootTargets[] = "IsolateBootTargets";

bool IsToken(const char* tokenstr, const char* name) { return XmlStriCmp(tokenstr, name) == 0; }

// Each element is taken once a boot, by its first use.
void StoreHeaderElement(const XML_TOKENS& tokens, FLEXBOOT_ORDER_HEADER& header) {
  for (UINTN i = 0; i < kPolicyHeaderElements; ++i) {
    const HeaderElementRow& row = kHeaderElements[i];
    if (gFlexBoot.HeaderElementFound[i] != FALSE || !IsToken(tokens.token(), row.Token)) {
      continue;
    }
    gFlexBoot.HeaderElementFound[i] = TRUE;
    UINT8* field = reinterpret_cast<UINT8*>(&header) + row.Offset;
    if (row.How == Conversion::Text) {
      StoreText(field, row.Size, tokens.value());
      return;
    }
    *field = static_cast<UINT8>(XmlStrToInt(tokens.value(), nullptr, 16));
    return;
  }
}

EFI_STATUS NextToken(XML_CURSOR& cursor, const XML_TOKENS& tokens, const char* caller) {
  const EFI_STATUS status = GetNextToken(cursor, tokens.Token.get(), tokens.Value.get());
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed obtaining next token:%r\n", caller, status);
  }
  return status;
}

const LayoutField* FindField(std::span<const LayoutField> fields, TargetElement element) {
  for (const LayoutField& field : fields) {
    if (field.Element == element) {
      return &field;
    }
  }
  return nullptr;
}

// The one routine behind all types: reads the elements up to the end of the target, and stores those that the type's
// layout takes.
EFI_STATUS ExtractTarget(XML_CURSOR& cursor, FLEXBOOT_TARGET& entry, char* tokenstr, const TargetTypeRow& row) {
  PoolPtr<char> value;
  if (!AllocateValueText(value, row.Extractor)) {
    return EFI_UNSUPPORTED;
  }
  for (bool first = true;; first = false) {
    if (const EFI_STATUS status = GetNextToken(cursor, tokenstr, value.get()); EFI_ERROR(status)) {
      if (row.ShortMessage && !first) {
        DebugPrint("%a:Failed to obtain Next Token\n", row.Extractor);
      } else {
        DebugPrint("%a:Failed to obtain Next Token:%r\n", row.Extractor, status);
      }
      return EFI_UNSUPPORTED;
    }
    if (IsToken(tokenstr, kTargetGroupEnd)) {
      break;
    }
    const TargetElement element = GetTargetElementId(tokenstr);
    const LayoutField* field = FindField(row.Pci, element);
    field = field != nullptr ? field : FindField(row.Fields, element);
    if (field != nullptr) {
      StoreValue(*field, value.get(), row.Extractor, entry);
    }
  }
  entry.Valid = row.Usable ? 1 : 0;
  return EFI_SUCCESS;
}

EFI_STATUS ExtractByType(XML_CURSOR& cursor, FLEXBOOT_TARGET& entry, char* tokenstr, TargetType type) {
  const TargetTypeRow& row = TypeRow(type);
  entry.Type = static_cast<UINT8>(type);
  entry.Valid = 1;
  const EFI_STATUS status = ExtractTarget(cursor, entry, tokenstr, row);
  if (EFI_ERROR(status)) {
    DebugPrint("Failed obtaining %a Target:%r\n", row.Message, status);
    return EFI_UNSUPPORTED;
  }
  return EFI_SUCCESS;
}

EFI_STATUS ExtractTargets(XML_CURSOR& cursor, std::span<FLEXBOOT_TARGET> entries, const XML_TOKENS& tokens) {
  for (UINTN index = 0; !IsToken(tokens.token(), kTargetsGroupEnd); ++index) {
    FLEXBOOT_TARGET* entry = index < entries.size() ? &entries[index] : nullptr;
    const EFI_STATUS status = ExtractBootTarget(cursor, entry, tokens.Token.get(), tokens.value());
    if (EFI_ERROR(status)) {
      DebugPrint("%a:Failed obtaining next token:%r\n", kIsolateBootTargets, status);
      return status;
    }
    if (const EFI_STATUS next = NextToken(cursor, tokens, kIsolateBootTargets); EFI_ERROR(next)) {
      return next;
    }
  }
  DebugPrint("%a:Exit Status=%r\n", kIsolateBootTargets, EFI_SUCCESS);
  return EFI_SUCCESS;
}

}  // namespace

TargetType FindTargetType(const char* word) {
  UINTN code = 0;
  while (kTargetTypes[code].Word != nullptr && XmlStriCmp(kTargetTypes[code].Word, word) != 0) {
    ++code;
  }
  return static_cast<TargetType>(code);
}

TargetElement GetTargetElementId(const char* tokenstr) {
  for (const TargetElementRow& row : kTargetElements) {
    if (IsToken(tokenstr, row.Token)) {
      return row.Id;
    }
  }
  return TargetElement::Unknown;
}

EFI_STATUS IsolateBootHeader(XML_CURSOR& cursor, FLEXBOOT_ORDER_HEADER& header) {
  XML_TOKENS tokens;
  if (!AllocateTokens(tokens, kIsolateBootHeader)) {
    return EFI_UNSUPPORTED;
  }
  EFI_STATUS status = GetFirstToken(cursor, tokens.Token.get(), tokens.Value.get());
  if (EFI_ERROR(status)) {
    DebugPrint("%a:Failed obtaining first token:%r\n", kIsolateBootHeader, status);
    return status;
  }
  if (!IsToken(tokens.token(), kHeaderGroup)) {
    DebugPrint("%a:Invalid XML, No Header\n", kIsolateBootHeader);
    return EFI_INVALID_PARAMETER;
  }
  for (;;) {
    status = NextToken(cursor, tokens, kIsolateBootHeader);
    if (EFI_ERROR(status)) {
      return status;
    }
    if (IsToken(tokens.token(), kHeaderGroupEnd)) {
      break;
    }
    StoreHeaderElement(tokens, header);
  }
  DebugPrint("%a:Exit Status=%r\n", kIsolateBootHeader, status);
  return status;
}

EFI_STATUS IsolateBootTargets(XML_CURSOR& cursor, FLEXBOOT_ORDER_HEADER& record) {
  XML_TOKENS tokens;
  if (!AllocateTokens(tokens, kIsolateBootTargets)) {
    return EFI_UNSUPPORTED;
  }
  do {
    if (const EFI_STATUS status = NextToken(cursor, tokens, kIsolateBootTargets); EFI_ERROR(status)) {
      return status;
    }
  } while (!IsToken(tokens.token(), kTargetsGroup));
  if (const EFI_STATUS status = NextToken(cursor, tokens, kIsolateBootTargets); EFI_ERROR(status)) {
    return status;
  }
  if (IsToken(tokens.token(), kTargetsGroupEnd)) {
    DebugPrint("%a:Reached EOF\n", kIsolateBootTargets);
    return EFI_SUCCESS;
  }
  return ExtractTargets(cursor, PolicyTargets(record), tokens);
}

EFI_STATUS ExtractBootTarget(XML_CURSOR& cursor, FLEXBOOT_TARGET* entry, char* tokenstr, const char* valuestr) {
  if (!IsToken(tokenstr, kTargetGroup)) {
    DebugPrint("%a:Invalid XML\n", "ExtractBootTarget");
    return EFI_INVALID_PARAMETER;
  }
  const TargetType type = FindTargetType(valuestr);
  if (entry == nullptr) {
    FLEXBOOT_TARGET ignored{};
    return ExtractByType(cursor, ignored, tokenstr, type);
  }
  if (const EFI_STATUS status = ExtractUefiParameters(cursor); EFI_ERROR(status)) {
    return status;  // a list with a gap would give loaders to other targets
  }
  return ExtractByType(cursor, *entry, tokenstr, type);
}

}  // namespace bds

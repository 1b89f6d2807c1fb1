// The parts of a policy's text packed into the record, and the conversions of single values. Nothing here reaches the
// BMC or NVRAM.
#pragma once

#include "flexboot/policy_format.h"
#include "flexboot/policy_record.h"
#include "flexboot/xml_cursor.h"

namespace bds {

// Fills the header from the first group of the text. The tokenizer's status, or EFI_INVALID_PARAMETER when the first
// group is another.
[[nodiscard]] EFI_STATUS IsolateBootHeader(XML_CURSOR& cursor, FLEXBOOT_ORDER_HEADER& header);
// Fills the targets of a zeroed record whose header is filled. Targets beyond those that the header announces are
// passed over.
[[nodiscard]] EFI_STATUS IsolateBootTargets(XML_CURSOR& cursor, FLEXBOOT_ORDER_HEADER& record);
// Fills one zeroed entry from the target whose opening tag was just read into the buffers; with a null entry the target
// is read to its end and forgotten.
[[nodiscard]] EFI_STATUS ExtractBootTarget(XML_CURSOR& cursor, FLEXBOOT_TARGET* entry, char* tokenstr,
                                           const char* valuestr);
// Adds to gFlexBoot.mUefiParamTargets what the target at the cursor says of loaders. Reads through a copy: the cursor
// does not move.
[[nodiscard]] EFI_STATUS ExtractUefiParameters(const XML_CURSOR& cursor);

// Of the word in a target's opening tag; TargetType::Unknown when no type has it.
[[nodiscard]] TargetType FindTargetType(const char* word);
// Of a tag's name with its '<'; TargetElement::Unknown when no element has it.
[[nodiscard]] TargetElement GetTargetElementId(const char* tokenstr);

// The low bytes of the hexadecimal numbers between ':' and '.'; a missing one is 0. EFI_INVALID_PARAMETER when an
// output is null.
[[nodiscard]] EFI_STATUS ExtractPciAddressFromPolicy(const char* text, UINT8* segment, UINT8* bus, UINT8* device,
                                                     UINT8* function);
// Six two-digit hexadecimal numbers with ':' between them. EFI_INVALID_PARAMETER, and nothing stored, when a ':' is not
// where it belongs.
[[nodiscard]] EFI_STATUS ParseMacAddress(const char* text, UINT8 (&mac)[6]);

}  // namespace bds

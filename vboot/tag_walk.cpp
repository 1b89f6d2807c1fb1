#include "vboot/tag_walk.h"

#include "flexboot/xml_cursor.h"
#include "support/debug_print.h"
#include "support/text.h"
#include "vboot/policy_observer.h"

namespace bds {
namespace {

bool IsRefused(const BOOT_OPTION& option) { return option.Tag >= kRefusedTag && option.Tag != kUnassigned; }

void SetTag(const TAG_CALL& call, BOOT_OPTION& option, UINT32 tag, const char* why) {
  const UINT32 before = option.Tag;
  option.Tag = tag;
  ObservePolicy({.Moment = PolicyMoment::Marked,
                 .Option = &option,
                 .Before = before,
                 .Text = why,
                 .Found = call.Found,
                 .TagName = call.TagName,
                 .TagValue = call.TagValue});
}

void SayLine(const char* line) {
  if (line != nullptr) {
    DebugPrintText(line);
  }
}

}  // namespace

bool MayTest(const TAG_CALL& call, const WALK_RULES& rules, VBOOT_OPTION_WRAPPER& wrapper) {
  BOOT_OPTION& option = *wrapper.Option;
  const bool eligible = !rules.Eligible || ChecktoGoAhead(option);
  if (!eligible && rules.Processor != nullptr) {
    DebugPrint("%a: skipping due to ChecktoGoAhead\n", rules.Processor);
  }
  if (IsRefused(option)) {
    SayLine(eligible ? rules.RefusedLine : nullptr);
    return false;
  }
  if (option.Tag < call.TargetBase) {
    SayLine(eligible ? rules.TakenLine : nullptr);
    return false;
  }
  if (!eligible) {
    SetTag(call, option, kRefusedTag, "not eligible");
  }
  return eligible;
}

void MarkOption(TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, TagVerdict verdict) {
  switch (verdict) {
    case TagVerdict::Keep:
    case TagVerdict::Stop:
      return;
    case TagVerdict::Refuse:
      SetTag(call, *wrapper.Option, kRefusedTag, nullptr);
      return;
    case TagVerdict::Select:
    case TagVerdict::SelectAndStop:
      ++call.MatchCount;
      [[fallthrough]];
    case TagVerdict::SelectUncounted:
      SetTag(call, *wrapper.Option, call.TargetBase | kSelectedMark, nullptr);
      return;
  }
}

void ClearRefusalMarks(OPTION_WRAPPER_LIST& wrappers) {
  for (VBOOT_OPTION_WRAPPER* wrapper = wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    if (wrapper->Option->Tag == kRefusedTag) {
      wrapper->Option->Tag = kUnassigned;
    }
  }
  ObservePolicy({.Moment = PolicyMoment::RefusalsCleared});
}

void SetTagMessageV(TAG_CALL& call, const char* format, std::span<const FormatArgument> arguments) {
  constexpr UINTN kMessageSize = 64;  // with the NUL
  char text[kMessageSize];
  const UINTN length = FormatAsciiV(text, format, arguments);
  call.Message = CopyText(text, length);
}

void SayWhenNothingMatched(TAG_CALL& call, const char* tagName) {
  if (call.MatchCount == 0) {
    SetTagMessage(call, "%s: No matches", tagName);
  }
}

EFI_STATUS ParseTagValue(TAG_CALL& call, UINT32& value) {
  constexpr UINT32 kBaseFromText = 0;
  const char* end = nullptr;
  value = static_cast<UINT32>(XmlStrToInt(call.TagValue, &end, kBaseFromText));
  if (*end != 0) {
    SetTagMessage(call, "Error parsing value string %s.", call.TagValue);
    return EFI_INVALID_PARAMETER;
  }
  return EFI_SUCCESS;
}

EFI_STATUS ReadTagValue(TAG_CALL& call, UINT32& value, UINT32 max, RangeText text) {
  if (const EFI_STATUS status = ParseTagValue(call, value); EFI_ERROR(status)) {
    return status;
  }
  return value <= max ? EFI_SUCCESS : RefuseTagValue(call, value, text);
}

EFI_STATUS RefuseTagValue(TAG_CALL& call, UINT32 value, RangeText text) {
  const auto shown = static_cast<INT32>(value);
  switch (text) {
    case RangeText::WithOriginal:
      SetTagMessage(call, "Value is too large: %d (original data %s).", shown, call.TagValue);
      break;
    case RangeText::Plain:
      SetTagMessage(call, "Value is too large: %d.", shown);
      break;
    case RangeText::Bare:
      SetTagMessage(call, "Value is too large: %d", shown);
      break;
  }
  DebugPrint("%a\n", call.Message.get());
  return EFI_INVALID_PARAMETER;
}

void AnnounceTag(const char* tagName, const char* processor) {
  DebugPrint("TargetTag=%a, Processor=%a\n", tagName, processor);
}

EFI_STATUS RunTagPart(TAG_CALL& call, const TAG_PART& part) {
  if (part.Announced != nullptr) {
    AnnounceTag(part.TagName, part.Announced);
  }
  TAG_CALL inner{.TagName = part.TagName,
                 .TagValue = part.Value,
                 .Wrappers = call.Wrappers,
                 .TargetBase = call.TargetBase,
                 .MatchCount = call.MatchCount};
  const EFI_STATUS status = part.Process(inner);
  call.Message = std::move(inner.Message);
  return status;
}

EFI_STATUS RunTagParts(TAG_CALL& call, std::span<const TAG_PART> parts, const char* tagName) {
  for (const TAG_PART& part : parts) {
    if (const EFI_STATUS status = RunTagPart(call, part); EFI_ERROR(status)) {
      return status;
    }
  }
  call.Message.reset();
  SayWhenNothingMatched(call, tagName);
  return EFI_SUCCESS;
}

}  // namespace bds

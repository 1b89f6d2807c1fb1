// The walk that all tag processors share: every wrapped option that the target may still have is tested and marked.
#pragma once

#include "vboot/tag_processor.h"

namespace bds {

// What a test says of an option.
enum class TagVerdict : UINT8 {
  Keep,             // the tag does not concern the option
  Select,           // marked and counted
  SelectUncounted,  // marked only
  Refuse,
  SelectAndStop,  // marked and counted; the walk ends
  Stop,           // the walk ends here
};

// How a processor treats options before its test sees them.
struct WALK_RULES {
  const char* Processor = nullptr;    // its name in the line on options that are not eligible; null: no line
  bool Eligible = true;               // options that ChecktoGoAhead turns down are refused
  const char* RefusedLine = nullptr;  // for an option that an earlier tag of the target refused
  const char* TakenLine = nullptr;    // for an option that an earlier target took
};

// True when the option is to be tested; else it was refused or left as it is. An option that an earlier target took is
// never touched.
[[nodiscard]] bool MayTest(const TAG_CALL& call, const WALK_RULES& rules, VBOOT_OPTION_WRAPPER& wrapper);
// Carries a verdict out.
void MarkOption(TAG_CALL& call, VBOOT_OPTION_WRAPPER& wrapper, TagVerdict verdict);

// Tests the wrapped options in list order; test takes a wrapper and answers a verdict.
template <typename Test>
void WalkOptions(TAG_CALL& call, const WALK_RULES& rules, Test&& test) {
  for (VBOOT_OPTION_WRAPPER* wrapper = call.Wrappers.First; wrapper != nullptr; wrapper = wrapper->Next) {
    if (!MayTest(call, rules, *wrapper)) {
      continue;
    }
    call.Found = {};
    const TagVerdict verdict = test(*wrapper);
    MarkOption(call, *wrapper, verdict);
    if (verdict == TagVerdict::Stop || verdict == TagVerdict::SelectAndStop) {
      return;
    }
  }
}

inline TagVerdict SelectOrRefuse(bool matches) { return matches ? TagVerdict::Select : TagVerdict::Refuse; }
inline TagVerdict SelectOrKeep(bool matches) { return matches ? TagVerdict::Select : TagVerdict::Keep; }
// The verdict on a number that the option has, told to those who explain a boot.
inline TagVerdict CompareFound(TAG_CALL& call, UINT64 found, UINT64 wanted) {
  call.Found = {.Known = true, .Number = found};
  return SelectOrRefuse(found == wanted);
}

// Refuses an option, with the reason for those who explain a boot.
inline TagVerdict RefuseBecause(TAG_CALL& call, const char* why) {
  call.Found.Why = why;
  return TagVerdict::Refuse;
}

// What a processor says of a value that is out of its range.
enum class RangeText : UINT8 {
  WithOriginal,  // "Value is too large: %d (original data %s)."
  Plain,         // "Value is too large: %d."
  Bare,          // "Value is too large: %d"
};
inline constexpr UINT32 kTagValueMax = 254;  // of most processors

// Reads the call's value as a number in C's notation. EFI_INVALID_PARAMETER, with the message, for a text that is not
// wholly a number; a negative number counts as too large for every bound.
[[nodiscard]] EFI_STATUS ParseTagValue(TAG_CALL& call, UINT32& value);
// The same with a bound: EFI_INVALID_PARAMETER, with the message, for a value above max.
[[nodiscard]] EFI_STATUS ReadTagValue(TAG_CALL& call, UINT32& value, UINT32 max = kTagValueMax,
                                      RangeText text = RangeText::WithOriginal);
// EFI_INVALID_PARAMETER with the message for a value out of range.
[[nodiscard]] EFI_STATUS RefuseTagValue(TAG_CALL& call, UINT32 value, RangeText text);

// One part of a composite: a processor called with a fixed value.
struct TAG_PART {
  TagProcessor Process;
  const char* TagName;
  const char* Value;
  const char* Announced = nullptr;  // the processor's name, when it logs the tag that it is offered
};
void AnnounceTag(const char* tagName, const char* processor);
// Runs a part with the caller's options, base and count; its message becomes the caller's.
EFI_STATUS RunTagPart(TAG_CALL& call, const TAG_PART& part);
// Runs the parts, which combine by AND, up to the first error, which is returned with its message. When nothing was
// counted the message says so with tagName.
EFI_STATUS RunTagParts(TAG_CALL& call, std::span<const TAG_PART> parts, const char* tagName);

}  // namespace bds

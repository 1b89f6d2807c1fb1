// The contract of the tag processors: a processor marks, among the wrapped options, those that satisfy one tag.
//
// Marks are values of an option's Tag while one target is processed. Selecting an option and refusing it combine by AND
// over the tags of a target: an option stays selected only when every tag that examined it selected it.
#pragma once

#include <span>

#include "flexboot/policy_targets.h"
#include "support/format.h"
#include "vboot/option_wrapper.h"

namespace bds {

inline constexpr UINT32 kSelectedMark = 0x40000000;  // with the target's base: selected by its tags so far
inline constexpr UINT32 kRefusedTag = 0x80000000;    // refused by one of its tags

// What a test found on an option, for those who explain a boot.
struct FOUND_VALUE {
  bool Known = false;  // a number was compared
  UINT64 Number = 0;
  const CHAR16* Text = nullptr;  // the text that was compared, or the port that the option is under
  Bytes Address = {};            // the address that was compared
  const char* Why = nullptr;     // in words, where none of these tells
};

// One call of a processor.
struct TAG_CALL {
  const char* TagName;   // as the target has it
  const char* TagValue;  // the tag's value text
  OPTION_WRAPPER_LIST& Wrappers;
  UINT32 TargetBase;                // base of the target's tag range, possibly with kSelectedMark
  UINTN& MatchCount;                // grows with each option selected
  PoolPtr<char> Message = nullptr;  // out: what the target's report is to say
  FOUND_VALUE Found = {};           // set by the test of the option at hand
};

// EFI_SUCCESS: the tag was applied, whatever it selected. EFI_INVALID_PARAMETER: a value that cannot be used, or a tag
// that may come once only. EFI_NOT_FOUND, EFI_DEVICE_ERROR: as each processor says.
using TagProcessor = EFI_STATUS (*)(TAG_CALL& call);

// One row of the processor table. A processor knows one tag, or the two tags of a pair.
struct TAG_PROCESSOR_ROW {
  const char* Name;  // the processor's, in the log
  const char* TagName;
  const char* SecondTagName;  // null for most
  TagProcessor Process;
  bool Announces;  // it logs each tag that it is offered
};
// In dispatch order.
[[nodiscard]] std::span<const TAG_PROCESSOR_ROW> TagProcessors();

// Offers the tag to the table and adds to the target's report what there is to say of it.
void DispatchTag(POLICY_TARGET& target, const POLICY_TAG& tag, OPTION_WRAPPER_LIST& wrappers, UINT32 targetBase);

// True when the management mode, the policy's boot mode and the option's state let a policy select the option.
[[nodiscard]] bool ChecktoGoAhead(const BOOT_OPTION& option);
// Options refused by one part of a composite may be selected by its next part: the parts combine by OR.
void ClearRefusalMarks(OPTION_WRAPPER_LIST& wrappers);

// Sets the message, cut to 63 characters.
void SetTagMessageV(TAG_CALL& call, const char* format, std::span<const FormatArgument> arguments);
template <typename... Args>
void SetTagMessage(TAG_CALL& call, FormatString<std::type_identity_t<Args>...> format, const Args&... args) {
  const FormatArgument arguments[] = {MakeFormatArgument(args)..., {}};
  SetTagMessageV(call, format.Text(), {arguments, sizeof...(Args)});
}
// The message of a processor that counted nothing.
void SayWhenNothingMatched(TAG_CALL& call, const char* tagName);

}  // namespace bds

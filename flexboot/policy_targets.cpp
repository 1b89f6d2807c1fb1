// The operations on the list of targets.
#include "flexboot/policy_targets.h"

#include "support/format.h"
#include "support/text.h"

namespace bds {
namespace {

// Appends a tag whose texts lie one behind the other in one block.
bool AppendTag(POLICY_TAG_LIST& tags, const char* name, UINTN nameLength, const char* value, UINTN valueLength) {
  auto text = AllocateArray<char>(nameLength + valueLength + 2);
  POLICY_TAG* tag = text ? AppendNew(tags) : nullptr;
  if (tag == nullptr) {
    return false;
  }
  char* second = text.get() + nameLength + 1;
  CopyMemory(text.get(), name, nameLength);
  text[nameLength] = 0;
  CopyMemory(second, value, valueLength);
  second[valueLength] = 0;
  tag->Name = text.get();
  tag->Value = second;
  tag->Text = std::move(text);
  return true;
}

}  // namespace

POLICY_TARGET* NewPolicyTarget(POLICY_TARGET_LIST& targets) { return AppendNew(targets); }

bool AppendPolicyTag(POLICY_TAG_LIST& tags, const char* name, const char* value) {
  return AppendTag(tags, name, TextLength(name), value, TextLength(value));
}

bool AddPolicyTag(const char* name, UINT64 number, POLICY_TARGET& target) {
  char value[sizeof("0xFFFFFFFF")];
  const UINTN length = FormatAscii(value, "0x%x", static_cast<UINT32>(number));
  return AppendTag(target.TagList, name, TextLength(name), value, length);
}

void FreeTargetList(POLICY_TARGET_LIST& targets) {
  for (POLICY_TARGET* target = targets.First; target != nullptr; target = target->Next) {
    RemoveAll(target->TagList);
    FreeReport(target->ReportList);
  }
  RemoveAll(targets);
}

}  // namespace bds

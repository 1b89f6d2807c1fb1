// The two sort orders of boot options and the merge sort that applies them.
#include "bootopt/boot_lists.h"

namespace bds {
namespace {

template <typename Number>
INTN Order(Number a, Number b) {
  return a < b ? -1 : INTN{a > b};
}

INTN HeaderFirst(const BOOT_OPTION& a, const BOOT_OPTION& b) { return Order(a.GroupHeader == 0, b.GroupHeader == 0); }

// Cuts the chain behind its first width records and returns the rest.
BOOT_OPTION* CutBehind(BOOT_OPTION* chain, UINTN width) {
  for (; chain != nullptr && width > 1; --width) {
    chain = chain->Next;
  }
  if (chain == nullptr) {
    return nullptr;
  }
  BOOT_OPTION* rest = chain->Next;
  chain->Next = nullptr;
  return rest;
}

void Append(BOOT_OPTION_LIST& list, BOOT_OPTION* option) {
  option->Previous = list.Last;
  option->Next = nullptr;
  (list.Last != nullptr ? list.Last->Next : list.First) = option;
  list.Last = option;
  ++list.Count;
}

// Takes from the left run on equality: that keeps the sort stable.
void AppendMerged(BOOT_OPTION_LIST& list, BOOT_OPTION* left, BOOT_OPTION* right, OptionComparator compare) {
  while (left != nullptr || right != nullptr) {
    const bool takeLeft = right == nullptr || (left != nullptr && compare(*left, *right) <= 0);
    BOOT_OPTION*& run = takeLeft ? left : right;
    BOOT_OPTION* option = run;
    run = option->Next;
    Append(list, option);
  }
}

}  // namespace

INTN CompareByTag(const BOOT_OPTION& a, const BOOT_OPTION& b) {
  if (a.Tag != b.Tag) {
    return Order(a.Tag, b.Tag);
  }
  const INTN header = HeaderFirst(a, b);
  return header != 0 ? header : Order(a.Priority, b.Priority);
}

INTN CompareByPriority(const BOOT_OPTION& a, const BOOT_OPTION& b) {
  if (a.Priority != b.Priority) {
    return Order(a.Priority, b.Priority);
  }
  const INTN number = Order(a.BootOptionNumber, b.BootOptionNumber);
  return number != 0 ? number : HeaderFirst(a, b);
}

void SortList(BOOT_OPTION_LIST& list, OptionComparator compare) {
  for (UINTN width = 1; width < list.Count; width *= 2) {
    BOOT_OPTION_LIST sorted;
    for (BOOT_OPTION* rest = list.First; rest != nullptr;) {
      BOOT_OPTION* left = rest;
      BOOT_OPTION* right = CutBehind(left, width);
      rest = CutBehind(right, width);
      AppendMerged(sorted, left, right, compare);
    }
    list = sorted;
  }
}

}  // namespace bds

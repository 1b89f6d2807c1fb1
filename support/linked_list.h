// The doubly linked lists in which the driver keeps its records: one header, appended to at the tail, each record a
// pool block that begins with the links Next and Previous.
#pragma once

#include <new>

#include "support/pool.h"

namespace bds {

// A doubly linked list with its records' count. It owns the records; whoever owns the header frees them.
template <typename Record>
struct LIST_HEADER {
  UINTN Count = 0;
  Record* First = nullptr;
  Record* Last = nullptr;
};

// An empty list whose header is a pool block; null when the pool is exhausted.
template <typename Record>
[[nodiscard]] PoolPtr<LIST_HEADER<Record>> NewListHeader() {
  void* block = AllocatePool(sizeof(LIST_HEADER<Record>));
  return PoolPtr<LIST_HEADER<Record>>(block != nullptr ? ::new (block) LIST_HEADER<Record>{} : nullptr);
}

// Links a record at the tail. The list owns it from then on.
template <typename Record>
void LinkLast(LIST_HEADER<Record>& list, Record* record) {
  record->Previous = list.Last;
  record->Next = nullptr;
  (list.Last != nullptr ? list.Last->Next : list.First) = record;
  list.Last = record;
  ++list.Count;
}

// Takes a record out of its list; the caller owns it from then on.
template <typename Record>
void Unlink(LIST_HEADER<Record>& list, Record* record) {
  (record->Previous != nullptr ? record->Previous->Next : list.First) = record->Next;
  (record->Next != nullptr ? record->Next->Previous : list.Last) = record->Previous;
  record->Previous = record->Next = nullptr;
  --list.Count;
}

// Appends a record with its initial values; null when the pool is exhausted.
template <typename Record>
[[nodiscard]] Record* AppendNew(LIST_HEADER<Record>& list) {
  void* block = AllocatePool(sizeof(Record));
  if (block == nullptr) {
    return nullptr;
  }
  auto* record = ::new (block) Record{};
  LinkLast(list, record);
  return record;
}

// Takes a record out of its list and frees it with what it owns.
template <typename Record>
void Remove(LIST_HEADER<Record>& list, Record* record) {
  Unlink(list, record);
  record->~Record();
  FreePool(record);
}

// Frees every record.
template <typename Record>
void RemoveAll(LIST_HEADER<Record>& list) {
  while (list.First != nullptr) {
    Remove(list, list.First);
  }
}

}  // namespace bds

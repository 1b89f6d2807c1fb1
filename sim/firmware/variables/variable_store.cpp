// Get, set, enumerate and query variables by the letter of UEFI 2.10, 8.2. Each rule of SetVariable is one early exit,
// in the order in which the standard lists them.
#include "sim/firmware/variables/variable_store.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace sim {
namespace {

constexpr std::uint32_t kAccess = EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;
constexpr std::uint32_t kUnsupportedAttributes = kVariableHardwareErrorRecord | kVariableAuthenticatedWrite |
                                                 kVariableTimeBasedAuthenticatedWrite |
                                                 kVariableEnhancedAuthenticatedAccess;

// The name up to its NUL; nothing when there is none within `limit` characters.
std::optional<std::u16string> BoundedName(const CHAR16* name, std::size_t limit) {
  std::u16string text;
  for (std::size_t i = 0; i < limit; ++i) {
    CHAR16 character;
    std::memcpy(&character, name + i, sizeof(character));
    if (character == 0) {
      return text;
    }
    text.push_back(character);
  }
  return std::nullopt;
}

std::uint64_t NameBytes(std::u16string_view name) { return (name.size() + 1) * sizeof(CHAR16); }

std::uint64_t Cost(const Variable& variable) {
  return VariableStore::kVariableOverhead + NameBytes(variable.name) + variable.data.size();
}

}  // namespace

const char* VariableWriteKindName(VariableWrite::Kind kind) {
  static constexpr const char* kNames[] = {"create", "change", "append", "delete", "unchanged", "refused"};
  return kNames[static_cast<std::size_t>(kind)];
}

bool VariableStore::Key::operator<(const Key& other) const {
  const int order = std::memcmp(&guid, &other.guid, sizeof(guid));
  return order != 0 ? order < 0 : name < other.name;
}

bool VariableStore::Preload(Variable variable, std::string& error) {
  if (variable.name.empty() || variable.name.size() > kMaxNameLength) {
    error = "the name is empty or longer than " + std::to_string(kMaxNameLength) + " characters";
    return false;
  }
  if ((variable.attributes & ~kVariableKnownAttributes) != 0 || (variable.attributes & kAccess) == 0 ||
      (variable.attributes & kAccess) == EFI_VARIABLE_RUNTIME_ACCESS) {
    error = "the attributes are no valid combination";
    return false;
  }
  if (variable.data.empty() || NameBytes(variable.name) + variable.data.size() > limits_.maximumVariableSize) {
    error = "the data is empty, or longer than this server's variable store allows";
    return false;
  }
  variable.attributes &= ~kVariableAppendWrite;
  const Key key{variable.name, variable.guid};
  if (index_.contains(key)) {
    error = "the variable is there twice";
    return false;
  }
  if (!Fits(key, variable.attributes, variable.data.size())) {
    error = "the variable store is full";
    return false;
  }
  index_[key] = variables_.insert(variables_.end(), std::move(variable));
  return true;
}

void VariableStore::PowerCycle() {
  atRuntime_ = false;
  for (auto at = variables_.begin(); at != variables_.end();) {
    if (at->NonVolatile()) {
      ++at;
      continue;
    }
    index_.erase({at->name, at->guid});
    at = variables_.erase(at);
  }
}

bool VariableStore::Visible(const Variable& variable) const {
  return !atRuntime_ || (variable.attributes & EFI_VARIABLE_RUNTIME_ACCESS) != 0;
}

const Variable* VariableStore::Find(std::u16string_view name, const EFI_GUID& guid) const {
  const auto found = index_.find({std::u16string(name), guid});
  return found != index_.end() && Visible(*found->second) ? &*found->second : nullptr;
}

std::uint64_t VariableStore::Used(bool nonVolatile) const {
  std::uint64_t used = 0;
  for (const Variable& variable : variables_) {
    used += variable.NonVolatile() == nonVolatile ? Cost(variable) : 0;
  }
  return used;
}

EFI_STATUS VariableStore::GetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32* attributes, UINTN* size,
                                      void* data) const {
  if (name == nullptr || guid == nullptr || size == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  const auto bounded = BoundedName(name, kMaxNameLength + 1);
  const Variable* variable = bounded ? Find(*bounded, *guid) : nullptr;
  if (variable == nullptr) {
    return EFI_NOT_FOUND;
  }
  const UINTN room = *size;
  if (room >= variable->data.size() && data == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  *size = variable->data.size();
  if (attributes != nullptr) {
    *attributes = variable->attributes;
  }
  if (room < variable->data.size()) {
    return EFI_BUFFER_TOO_SMALL;
  }
  std::memcpy(data, variable->data.data(), variable->data.size());
  return EFI_SUCCESS;
}

EFI_STATUS VariableStore::GetNextVariableName(UINTN* nameSize, CHAR16* name, EFI_GUID* guid) const {
  if (nameSize == nullptr || name == nullptr || guid == nullptr) {
    return EFI_INVALID_PARAMETER;
  }
  const auto previous = BoundedName(name, *nameSize / sizeof(CHAR16));
  if (!previous) {
    return EFI_INVALID_PARAMETER;
  }
  std::list<Variable>::const_iterator at = variables_.begin();
  if (!previous->empty()) {
    const auto found = index_.find({*previous, *guid});
    if (found == index_.end() || !Visible(*found->second)) {
      return EFI_INVALID_PARAMETER;
    }
    at = std::next(found->second);
  }
  at = std::find_if(at, variables_.end(), [this](const Variable& variable) { return Visible(variable); });
  if (at == variables_.end()) {
    return EFI_NOT_FOUND;
  }
  const UINTN needed = NameBytes(at->name);
  const UINTN room = *nameSize;
  *nameSize = needed;
  if (room < needed) {
    return EFI_BUFFER_TOO_SMALL;
  }
  std::memcpy(name, at->name.c_str(), needed);
  *guid = at->guid;
  return EFI_SUCCESS;
}

EFI_STATUS VariableStore::CheckAttributes(std::uint32_t attributes) const {
  if ((attributes & ~kVariableKnownAttributes) != 0) {
    return EFI_INVALID_PARAMETER;
  }
  if ((attributes & kAccess) == EFI_VARIABLE_RUNTIME_ACCESS) {
    return EFI_INVALID_PARAMETER;
  }
  return (attributes & kUnsupportedAttributes) != 0 ? EFI_UNSUPPORTED : EFI_SUCCESS;
}

EFI_STATUS VariableStore::SetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size,
                                      const void* data) {
  if (name == nullptr || guid == nullptr || (size != 0 && data == nullptr)) {
    return EFI_INVALID_PARAMETER;
  }
  const auto bounded = BoundedName(name, kMaxNameLength + 1);
  if (!bounded) {
    return EFI_INVALID_PARAMETER;
  }
  // Checked here too, so that a wild size never becomes a span.
  if (size > limits_.maximumVariableSize) {
    return EFI_INVALID_PARAMETER;
  }
  return Set(*bounded, *guid, attributes, {static_cast<const std::byte*>(data), size});
}

EFI_STATUS VariableStore::Set(std::u16string_view name, const EFI_GUID& guid, std::uint32_t attributes,
                              std::span<const std::byte> data) {
  const Key key{std::u16string(name), guid};
  VariableWrite write{VariableWrite::Kind::Refused, key.name, guid, attributes, data.size(), EFI_SUCCESS};
  write.status = name.empty() ? EFI_INVALID_PARAMETER : CheckAttributes(attributes);
  if (write.status == EFI_SUCCESS) {
    write.status = protected_.contains(key) ? EFI_WRITE_PROTECTED : Change(key, attributes, data, write.kind);
  }
  if (write.kind == VariableWrite::Kind::Create || write.kind == VariableWrite::Kind::Change ||
      write.kind == VariableWrite::Kind::Append) {
    write.data.assign(data.begin(), data.end());
  }
  const EFI_STATUS status = write.status;
  Record(std::move(write));
  return status;
}

void VariableStore::NoteRefused(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size,
                                EFI_STATUS status) {
  const auto bounded = name == nullptr || guid == nullptr ? std::nullopt : BoundedName(name, kMaxNameLength + 1);
  if (bounded) {
    Record({VariableWrite::Kind::Refused, std::u16string(*bounded), *guid, attributes, size, status});
  }
}

void VariableStore::Record(VariableWrite write) {
  if (journal_.size() < kMaxJournal) {
    journal_.push_back(std::move(write));
  }
}

EFI_STATUS VariableStore::Change(const Key& key, std::uint32_t attributes, std::span<const std::byte> data,
                                 VariableWrite::Kind& kind) {
  const bool append = (attributes & kVariableAppendWrite) != 0;
  attributes &= ~kVariableAppendWrite;
  // A deletion may name any attributes: none and a size of zero both say it plainly.
  if ((attributes & kAccess) == 0 || (data.empty() && !append)) {
    return Delete(key, kind);
  }
  const Variable* old = Find(key.name, key.guid);
  constexpr std::uint32_t kRuntimeWritable = EFI_VARIABLE_RUNTIME_ACCESS | EFI_VARIABLE_NON_VOLATILE;
  if (old != nullptr && old->attributes != attributes) {
    return EFI_INVALID_PARAMETER;
  }
  if (atRuntime_ && (attributes & kRuntimeWritable) != kRuntimeWritable) {
    return old != nullptr ? EFI_WRITE_PROTECTED : EFI_INVALID_PARAMETER;
  }
  if (data.empty()) {
    kind = VariableWrite::Kind::Unchanged;
    return EFI_SUCCESS;
  }
  std::vector<std::byte> value;
  if (append && old != nullptr) {
    value = old->data;
  }
  value.insert(value.end(), data.begin(), data.end());
  if (old != nullptr && old->data == value) {
    kind = VariableWrite::Kind::Unchanged;
    return EFI_SUCCESS;
  }
  const bool existed = old != nullptr;
  const EFI_STATUS status = Store(key, attributes, std::move(value), data.size());
  if (status == EFI_SUCCESS) {
    kind = !existed ? VariableWrite::Kind::Create : append ? VariableWrite::Kind::Append : VariableWrite::Kind::Change;
  }
  return status;
}

bool VariableStore::Fits(const Key& key, std::uint32_t attributes, std::size_t size) const {
  const bool nonVolatile = (attributes & EFI_VARIABLE_NON_VOLATILE) != 0;
  std::uint64_t used = Used(nonVolatile);
  const auto found = index_.find(key);
  used -= found != index_.end() && found->second->NonVolatile() == nonVolatile ? Cost(*found->second) : 0;
  const std::uint64_t room = nonVolatile ? limits_.nonVolatileSize : limits_.volatileSize;
  return used + kVariableOverhead + NameBytes(key.name) + size <= room;
}

EFI_STATUS VariableStore::Store(const Key& key, std::uint32_t attributes, std::vector<std::byte> data,
                                std::size_t written) {
  if (NameBytes(key.name) + data.size() > limits_.maximumVariableSize) {
    return EFI_INVALID_PARAMETER;
  }
  // At runtime a variable without runtime access is out of sight, but its name is still taken.
  const auto found = index_.find(key);
  if (found != index_.end() && !Visible(*found->second)) {
    return EFI_INVALID_PARAMETER;
  }
  if (!Fits(key, attributes, data.size())) {
    return EFI_OUT_OF_RESOURCES;
  }
  Variable variable{key.name, key.guid, attributes, std::move(data)};
  if (variable.NonVolatile() && sink_ != nullptr && !sink_->Write(variable)) {
    return EFI_DEVICE_ERROR;
  }
  const bool nonVolatile = variable.NonVolatile();
  if (found != index_.end()) {
    *found->second = std::move(variable);
  } else {
    index_[key] = variables_.insert(variables_.end(), std::move(variable));
  }
  Count(key, written, nonVolatile);
  return EFI_SUCCESS;
}

EFI_STATUS VariableStore::Delete(const Key& key, VariableWrite::Kind& kind) {
  const auto found = index_.find(key);
  if (found == index_.end() || !Visible(*found->second)) {
    return EFI_NOT_FOUND;
  }
  const bool nonVolatile = found->second->NonVolatile();
  if (atRuntime_ && !nonVolatile) {
    return EFI_WRITE_PROTECTED;
  }
  if (nonVolatile && sink_ != nullptr && !sink_->Remove(*found->second)) {
    return EFI_DEVICE_ERROR;
  }
  variables_.erase(found->second);
  index_.erase(found);
  Count(key, 0, nonVolatile);
  kind = VariableWrite::Kind::Delete;
  return EFI_SUCCESS;
}

void VariableStore::Count(const Key& key, std::size_t bytes, bool nonVolatile) {
  Usage& usage = usage_[key];
  ++usage.writes;
  usage.bytes += bytes;
  if (nonVolatile) {
    ++nonVolatileWrites_;
    nonVolatileBytes_ += bytes;
  }
}

EFI_STATUS VariableStore::QueryVariableInfo(UINT32 attributes, UINT64* maximumStorage, UINT64* remaining,
                                            UINT64* maximumSize) const {
  if (maximumStorage == nullptr || remaining == nullptr || maximumSize == nullptr || (attributes & kAccess) == 0) {
    return EFI_INVALID_PARAMETER;
  }
  const EFI_STATUS status = CheckAttributes(attributes);
  if (status != EFI_SUCCESS) {
    return status;
  }
  if (atRuntime_ && (attributes & EFI_VARIABLE_RUNTIME_ACCESS) == 0) {
    return EFI_INVALID_PARAMETER;
  }
  const bool nonVolatile = (attributes & EFI_VARIABLE_NON_VOLATILE) != 0;
  const std::uint64_t used = Used(nonVolatile);
  *maximumStorage = nonVolatile ? limits_.nonVolatileSize : limits_.volatileSize;
  *remaining = *maximumStorage > used ? *maximumStorage - used : 0;
  *maximumSize = limits_.maximumVariableSize;
  return EFI_SUCCESS;
}

}  // namespace sim

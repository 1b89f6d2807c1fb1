// The variable store behind the runtime services: every rule of UEFI 2.10, 8.2, kept apart from the machine so that
// it can be tested call by call. It counts and records each write, and knows nothing of files: a sink keeps them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/uefi_base.h"

namespace sim {

inline constexpr std::uint32_t kVariableHardwareErrorRecord = 0x08;
inline constexpr std::uint32_t kVariableAuthenticatedWrite = 0x10;
inline constexpr std::uint32_t kVariableTimeBasedAuthenticatedWrite = 0x20;
inline constexpr std::uint32_t kVariableAppendWrite = 0x40;
inline constexpr std::uint32_t kVariableEnhancedAuthenticatedAccess = 0x80;
inline constexpr std::uint32_t kVariableKnownAttributes = 0xFF;

struct Variable {
  std::u16string name;
  EFI_GUID guid;
  std::uint32_t attributes = 0;
  std::vector<std::byte> data;

  bool NonVolatile() const { return (attributes & EFI_VARIABLE_NON_VOLATILE) != 0; }
};

// Where non-volatile variables go. Called before the store changes, so that what a power cut leaves is what the sink
// kept; false refuses the write (the caller sees EFI_DEVICE_ERROR) and must leave the old state.
class VariableSink {
 public:
  virtual ~VariableSink() = default;
  virtual bool Write(const Variable& variable) = 0;
  virtual bool Remove(const Variable& variable) = 0;
};

// One SetVariable call that did something, or tried to.
struct VariableWrite {
  enum class Kind { Create, Change, Append, Delete, Unchanged, Refused };
  Kind kind = Kind::Refused;
  std::u16string name;
  EFI_GUID guid;
  std::uint32_t attributes = 0;
  std::size_t size = 0;  // bytes given to the call
  EFI_STATUS status = EFI_SUCCESS;
  std::vector<std::byte> data = {};  // given to a call that changed something
  std::string step = {};             // of the driver's, known to who records a boot
};
const char* VariableWriteKindName(VariableWrite::Kind kind);

class VariableStore {
 public:
  struct Limits {
    std::uint64_t nonVolatileSize = 256 * 1024;  // bytes, kVariableOverhead per variable included
    std::uint64_t volatileSize = 128 * 1024;
    std::uint64_t maximumVariableSize = 64 * 1024;  // bytes of name (with NUL) and data
  };
  // What the store itself keeps per variable, beside its name and data.
  static constexpr std::uint64_t kVariableOverhead = 60;
  static constexpr std::size_t kMaxNameLength = 1024;  // characters
  static constexpr std::size_t kMaxJournal = 100'000;

  struct Usage {
    std::uint64_t writes = 0;  // that changed something
    std::uint64_t bytes = 0;   // of data, in those writes
  };
  struct Key {
    std::u16string name;
    EFI_GUID guid;
    bool operator<(const Key& other) const;
  };

  VariableStore() : VariableStore(Limits{}) {}
  explicit VariableStore(Limits limits) : limits_(limits) {}

  // Adds what an earlier boot left, without telling the sink and without counting; false when it breaks a rule that
  // Set would enforce (error says which) or is there already. Authenticated variables are accepted as they are.
  bool Preload(Variable variable, std::string& error);
  void SetSink(VariableSink* sink) { sink_ = sink; }
  // Writes to that variable answer EFI_WRITE_PROTECTED from now on (the firmware's own read-only ones).
  void Protect(std::u16string name, const EFI_GUID& guid) { protected_.insert({std::move(name), guid}); }
  // From now on only variables with runtime access exist, and volatile ones are read-only.
  void EnterRuntime() { atRuntime_ = true; }
  // What a reset does: volatile variables are gone, and boot services are back.
  void PowerCycle();

  // The four services, with the standard's pointer arguments and status codes. Names are read up to their NUL and at
  // most kMaxNameLength characters.
  EFI_STATUS GetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32* attributes, UINTN* size, void* data) const;
  EFI_STATUS GetNextVariableName(UINTN* nameSize, CHAR16* name, EFI_GUID* guid) const;
  EFI_STATUS SetVariable(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size, const void* data);
  EFI_STATUS QueryVariableInfo(UINT32 attributes, UINT64* maximumStorage, UINT64* remaining, UINT64* maximumSize) const;

  // The same in the simulator's own types, for tests and descriptions. Find gives null when it is not there.
  const Variable* Find(std::u16string_view name, const EFI_GUID& guid) const;
  EFI_STATUS Set(std::u16string_view name, const EFI_GUID& guid, std::uint32_t attributes,
                 std::span<const std::byte> data);
  // In the order of creation, which is also the order of GetNextVariableName.
  const std::list<Variable>& All() const { return variables_; }

  // Puts a write on record that was refused before it came here.
  void NoteRefused(const CHAR16* name, const EFI_GUID* guid, UINT32 attributes, UINTN size, EFI_STATUS status);

  const std::vector<VariableWrite>& Journal() const { return journal_; }
  // Begins the journal anew, for a report of one boot.
  void ForgetJournal() { journal_.clear(); }
  const std::map<Key, Usage>& UsageByVariable() const { return usage_; }
  // Writes of non-volatile variables that took effect.
  std::uint64_t NonVolatileWrites() const { return nonVolatileWrites_; }
  std::uint64_t NonVolatileBytes() const { return nonVolatileBytes_; }
  std::uint64_t Used(bool nonVolatile) const;

 private:
  using Position = std::list<Variable>::iterator;

  bool Visible(const Variable& variable) const;
  EFI_STATUS CheckAttributes(std::uint32_t attributes) const;
  EFI_STATUS Change(const Key& key, std::uint32_t attributes, std::span<const std::byte> data,
                    VariableWrite::Kind& kind);
  EFI_STATUS Delete(const Key& key, VariableWrite::Kind& kind);
  EFI_STATUS Store(const Key& key, std::uint32_t attributes, std::vector<std::byte> data, std::size_t written);
  bool Fits(const Key& key, std::uint32_t attributes, std::size_t size) const;
  void Record(VariableWrite write);
  void Count(const Key& key, std::size_t bytes, bool nonVolatile);

  Limits limits_;
  std::list<Variable> variables_;
  std::map<Key, Position> index_;
  std::set<Key> protected_;
  VariableSink* sink_ = nullptr;
  bool atRuntime_ = false;
  std::vector<VariableWrite> journal_;
  std::map<Key, Usage> usage_;
  std::uint64_t nonVolatileWrites_ = 0;
  std::uint64_t nonVolatileBytes_ = 0;
};

}  // namespace sim

// Non-volatile variables as a folder in the layout of Linux's efivarfs: one file NAME-GUID per variable, four
// attribute bytes (little-endian), then the data. efibootmgr and efivar work on it with EFIVARFS_PATH=DIR/.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "sim/firmware/variables/variable_store.h"

namespace sim {

class EfivarsFolder final : public VariableSink {
 public:
  // Names the folder; nothing is read or made yet.
  explicit EfivarsFolder(std::filesystem::path folder) : folder_(std::move(folder)) {}

  // Makes the folder if need be, removes what an interrupted write left behind, and puts every variable into the
  // store, in the order of file names. False when a file is not a variable or is malformed: Error() then names the
  // file and says what was expected, and the folder is as it was. Volatile variables (in a copy of a running
  // machine's efivarfs) are not taken over; Notes() names them.
  bool Load(VariableStore& store);
  // Writes all non-volatile variables of the store into the folder; files of others stay.
  bool Save(const VariableStore& store);

  // Makes the folder hold exactly the store's variables, volatile ones too; false, changing nothing, when it holds
  // anything else than variables.
  bool Mirror(const VariableStore& store);

  // Through a temporary file and a rename, so that the folder holds the old variable or the new one at any moment.
  bool Write(const Variable& variable) override;
  bool Remove(const Variable& variable) override;

  const std::filesystem::path& Path() const { return folder_; }
  const std::string& Error() const { return error_; }
  const std::vector<std::string>& Notes() const { return notes_; }

 private:
  bool List(std::vector<std::filesystem::path>& files);
  bool LoadFile(const std::filesystem::path& file, VariableStore& store);
  bool Fail(const std::filesystem::path& file, const std::string& reason);

  std::filesystem::path folder_;
  std::string error_;
  std::vector<std::string> notes_;
};

}  // namespace sim

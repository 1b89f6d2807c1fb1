// The BMC's end of the file transfer, written from the frames: a request frame comes in, a response frame goes out.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "sim/bmc/file_store.h"

namespace sim {

using Frame = std::vector<std::uint8_t>;

// The first byte counts itself and what follows but the checksum; all bytes sum to 0 modulo 256.
bool IsWellFormedFrame(std::span<const std::uint8_t> frame);
// The frame that answers opcode with this data.
Frame MakeResponse(std::uint8_t opcode, std::span<const std::uint8_t> data);

// Requests that the BMC is told to refuse.
struct Refusals {
  bool open = false;  // opens and creates
  bool read = false;
  bool write = false;
  bool rename = false;
};

// Open files by handle. A refusal is a response of one status byte, where the request asks for another length.
class FileServer {
 public:
  static constexpr std::size_t kMaxOpenFiles = 32;
  static constexpr std::size_t kPieceSize = 59;

  explicit FileServer(FileStore& store) : store_(store) {}

  // The answer to a well-formed request. changed becomes true when a file was made, written or renamed.
  Frame Answer(std::span<const std::uint8_t> request, const Refusals& refuse, bool& changed);
  // Forgets all handles, as at a reset of the server.
  void CloseAll() { open_.clear(); }
  std::size_t OpenFiles() const { return open_.size(); }

 private:
  struct OpenFile {
    std::string name;
    bool writing = false;
    FileBytes content;  // of a file being read: as it was when it was opened
    std::size_t position = 0;
  };

  Frame Open(std::uint8_t opcode, std::string_view name, bool& changed);
  Frame Read(OpenFile& file);
  Frame Write(OpenFile& file, std::span<const std::uint8_t> piece, bool& changed);
  Frame Rename(std::span<const std::uint8_t> arguments, bool& changed);
  OpenFile* Find(std::span<const std::uint8_t> arguments);

  FileStore& store_;
  std::map<std::uint16_t, OpenFile> open_;
  std::uint16_t nextHandle_ = 1;
};

}  // namespace sim

// The BMC's end of the file transfer.
#include "sim/bmc/file_protocol.h"

#include <algorithm>
#include <numeric>

namespace sim {
namespace {

// The wire's numbers, kept apart from the driver's own so that an error in one shows against the other.
constexpr std::uint8_t kCreate = 6;
constexpr std::uint8_t kRead = 7;
constexpr std::uint8_t kWrite = 8;
constexpr std::uint8_t kClose = 9;
constexpr std::uint8_t kOpen = 12;
constexpr std::uint8_t kRename = 16;
constexpr std::uint8_t kCloseVariable = 18;

constexpr std::uint8_t kStatusDone = 0;
constexpr std::uint8_t kStatusRefused = 1;

std::string_view AsText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Frame Refusal(std::uint8_t opcode) { return MakeResponse(opcode, std::span(&kStatusRefused, 1)); }

}  // namespace

bool IsWellFormedFrame(std::span<const std::uint8_t> frame) {
  return frame.size() >= 3 && frame[0] == frame.size() - 1 &&
         (std::accumulate(frame.begin(), frame.end(), 0U) & 0xFF) == 0;
}

Frame MakeResponse(std::uint8_t opcode, std::span<const std::uint8_t> data) {
  Frame frame(data.size() + 3);
  frame[0] = static_cast<std::uint8_t>(data.size() + 2);
  frame[1] = opcode;
  std::copy(data.begin(), data.end(), frame.begin() + 2);
  frame.back() = static_cast<std::uint8_t>(-std::accumulate(frame.begin(), frame.end(), 0U));
  return frame;
}

Frame FileServer::Answer(std::span<const std::uint8_t> request, const Refusals& refuse, bool& changed) {
  const std::uint8_t opcode = request[1];
  const std::span<const std::uint8_t> arguments = request.subspan(2, request.size() - 3);
  if (opcode == kOpen || opcode == kCreate) {
    return refuse.open ? Refusal(opcode) : Open(opcode, AsText(arguments), changed);
  }
  if (opcode == kRename) {
    return refuse.rename ? MakeResponse(opcode, std::span(&kStatusRefused, 1)) : Rename(arguments, changed);
  }
  OpenFile* file = Find(arguments);
  if (file == nullptr) {
    return Refusal(opcode);
  }
  switch (opcode) {
    case kRead:
      if (refuse.read) {
        return Refusal(opcode);
      }
      return arguments.size() == 2 && !file->writing ? Read(*file) : MakeResponse(opcode, {});
    case kWrite:
      return refuse.write ? Refusal(opcode) : Write(*file, arguments.subspan(2), changed);
    case kClose:
    case kCloseVariable:
      open_.erase(static_cast<std::uint16_t>(arguments[0] | (arguments[1] << 8)));
      return MakeResponse(opcode, {});
    default:
      return Refusal(opcode);
  }
}

Frame FileServer::Open(std::uint8_t opcode, std::string_view name, bool& changed) {
  OpenFile file{std::string(name), opcode == kCreate, {}, 0};
  if (open_.size() >= kMaxOpenFiles) {
    return Refusal(opcode);
  }
  if (file.writing) {
    if (!store_.Write(name, {})) {
      return Refusal(opcode);
    }
    changed = true;
  } else if (auto content = store_.Read(name)) {
    file.content = std::move(*content);
  } else {
    return Refusal(opcode);
  }
  while (open_.contains(nextHandle_) || nextHandle_ == 0) {
    ++nextHandle_;
  }
  const std::uint8_t handle[] = {static_cast<std::uint8_t>(nextHandle_ & 0xFF),
                                 static_cast<std::uint8_t>(nextHandle_ >> 8)};
  open_.emplace(nextHandle_++, std::move(file));
  return MakeResponse(opcode, handle);
}

// The two leading bytes say how many file bytes follow.
Frame FileServer::Read(OpenFile& file) {
  const std::size_t count = std::min(kPieceSize, file.content.size() - file.position);
  std::vector<std::uint8_t> data(count + 2);
  data[0] = static_cast<std::uint8_t>(count);
  std::copy_n(file.content.begin() + static_cast<std::ptrdiff_t>(file.position), count, data.begin() + 2);
  file.position += count;
  return MakeResponse(kRead, data);
}

Frame FileServer::Write(OpenFile& file, std::span<const std::uint8_t> piece, bool& changed) {
  if (!file.writing || piece.empty() || piece.size() > kPieceSize ||
      !store_.Append(file.name, piece.data(), piece.size())) {
    return Refusal(kWrite);
  }
  changed = true;
  return MakeResponse(kWrite, {});
}

Frame FileServer::Rename(std::span<const std::uint8_t> arguments, bool& changed) {
  std::uint8_t status = kStatusRefused;
  if (arguments.size() >= 2 && arguments.size() == std::size_t{2} + arguments[0] + arguments[1]) {
    const std::string_view from = AsText(arguments.subspan(2, arguments[0]));
    const std::string_view to = AsText(arguments.subspan(std::size_t{2} + arguments[0]));
    changed = store_.Rename(from, to);
    status = changed ? kStatusDone : kStatusRefused;
  }
  return MakeResponse(kRename, std::span(&status, 1));
}

FileServer::OpenFile* FileServer::Find(std::span<const std::uint8_t> arguments) {
  if (arguments.size() < 2) {
    return nullptr;
  }
  const auto found = open_.find(static_cast<std::uint16_t>(arguments[0] | (arguments[1] << 8)));
  return found == open_.end() ? nullptr : &found->second;
}

}  // namespace sim

// The socket to a BMC simulator. One client at a time is served there, so a broken connection is not made again.
#include "sim/bmc/vm_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include <fmt/format.h>

namespace sim {
namespace {

constexpr std::string_view kScheme = "vm://127.0.0.1:";
constexpr std::size_t kMinReply = 4;  // sequence, network function, command, completion code

}  // namespace

VmClient::~VmClient() { Disconnect(); }

void VmClient::Disconnect() {
  if (socket_ >= 0) {
    close(socket_);
    socket_ = -1;
  }
}

bool VmClient::ParseAddress(std::string_view address, std::uint16_t& port, std::string& error) {
  if (address.starts_with(kScheme)) {
    const std::string_view digits = address.substr(kScheme.size());
    const auto [end, code] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (code == std::errc{} && end == digits.data() + digits.size() && port != 0) {
      return true;
    }
  }
  error =
      fmt::format("\"{}\" is not a BMC simulator's address: expected {}PORT, a port from 1 to 65535", address, kScheme);
  return false;
}

bool VmClient::Connect(std::string_view address, std::string& error) {
  std::uint16_t port = 0;
  if (!ParseAddress(address, port, error)) {
    return false;
  }
  Disconnect();
  socket_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int failure = 0;
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)) != 0) {
    failure = errno;
    socklen_t size = sizeof(failure);
    if (failure == EINPROGRESS) {
      failure = WaitFor(POLLOUT, std::chrono::steady_clock::now() + patience_) ? 0 : ETIMEDOUT;
      if (failure == 0) {
        getsockopt(socket_, SOL_SOCKET, SO_ERROR, &failure, &size);
      }
    }
  }
  if (failure == 0) {
    return true;
  }
  error = fmt::format("no BMC simulator at {}: {}", address, std::strerror(failure));
  Disconnect();
  return false;
}

bool VmClient::WaitFor(short events, Deadline deadline) {
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (socket_ < 0 || left.count() <= 0) {
      return false;
    }
    pollfd wait{socket_, events, 0};
    const int ready = poll(&wait, 1, static_cast<int>(left.count()));
    if (ready > 0) {
      return true;
    }
    if (ready < 0 && errno != EINTR) {
      return false;
    }
  }
}

bool VmClient::SendAll(std::span<const std::uint8_t> bytes, Deadline deadline) {
  while (!bytes.empty()) {
    if (!WaitFor(POLLOUT, deadline)) {
      return false;
    }
    const ssize_t sent = send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN && errno != EINTR) {
      Disconnect();
      return false;
    }
    bytes = bytes.subspan(sent > 0 ? static_cast<std::size_t>(sent) : 0);
  }
  return true;
}

std::optional<IpmiReply> VmClient::AwaitReply(std::uint8_t netFn, std::uint8_t command, Deadline deadline) {
  std::optional<IpmiReply> reply;
  while (!reply && WaitFor(POLLIN, deadline)) {
    std::array<std::uint8_t, 256> bytes;
    const ssize_t received = recv(socket_, bytes.data(), bytes.size(), 0);
    if (received == 0 || (received < 0 && errno != EAGAIN && errno != EINTR)) {
      Disconnect();
      return std::nullopt;
    }
    for (ssize_t i = 0; i < received; ++i) {
      const auto content = decoder_.Take(bytes[static_cast<std::size_t>(i)]);
      // Anything but the answer to this request (a late one, an event) is passed over.
      const bool ours = content && content->size() >= kMinReply && (*content)[0] == sequence_ &&
                        ((*content)[1] >> 2) == (netFn | 1) && (*content)[2] == command;
      if (ours && !reply) {
        reply = IpmiReply{(*content)[3], {content->begin() + kMinReply, content->end()}};
      }
    }
  }
  return reply;
}

std::optional<IpmiReply> VmClient::Request(std::uint8_t netFn, std::uint8_t command,
                                           std::span<const std::uint8_t> data) {
  ++sequence_;
  std::vector<std::uint8_t> content{sequence_, static_cast<std::uint8_t>(netFn << 2), command};
  content.insert(content.end(), data.begin(), data.end());
  const Deadline deadline = std::chrono::steady_clock::now() + patience_;
  if (socket_ < 0 || !SendAll(EncodeVmFrame(content), deadline)) {
    return std::nullopt;
  }
  const auto reply = AwaitReply(netFn, command, deadline);
  if (reply && reply->completion == kIpmiDone && onDone) {
    onDone(netFn, command);
  }
  return reply;
}

}  // namespace sim

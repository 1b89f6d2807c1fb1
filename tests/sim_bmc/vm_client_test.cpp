// The socket client against a peer of the test's own that misbehaves in each way a simulator can.
#include "sim/bmc/vm_client.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <thread>

namespace sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Listens on a free loopback port, serves one client with `serve`, and ends with it.
class Peer {
 public:
  explicit Peer(std::function<void(int client)> serve) {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, serve = std::move(serve)] {
      const int client = accept(listener_, nullptr, nullptr);
      if (client >= 0) {
        serve(client);
        close(client);
      }
    });
  }
  ~Peer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  std::string Address() const { return "vm://127.0.0.1:" + std::to_string(port_); }

 private:
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

// The content of the client's next request; empty when the connection ended.
Bytes NextRequest(int client) {
  VmDecoder decoder;
  std::uint8_t byte = 0;
  while (recv(client, &byte, 1, 0) == 1) {
    if (auto content = decoder.Take(byte)) {
      return *content;
    }
  }
  return {};
}

void Send(int client, const Bytes& wire) {
  EXPECT_EQ(send(client, wire.data(), wire.size(), MSG_NOSIGNAL), static_cast<ssize_t>(wire.size()));
}

Bytes Reply(const Bytes& request, Bytes tail) {
  Bytes content{request[0], static_cast<std::uint8_t>(request[1] | 4), request[2]};
  content.insert(content.end(), tail.begin(), tail.end());
  return EncodeVmFrame(content);
}

constexpr std::chrono::milliseconds kShort{200};
constexpr std::uint8_t kGetFlags[] = {5, 0, 0};

TEST(VmClient, ForeignFramesBeforeTheAnswerArePassedOver) {
  Peer peer([](int client) {
    const Bytes request = NextRequest(client);
    Bytes other = request;
    other[0] = static_cast<std::uint8_t>(other[0] + 1);
    Send(client, {0xFF, 0x01, 0xA1});                // control
    Send(client, {1, 2, 3, 0xA0});                   // damaged
    Send(client, Reply(other, {0xC1}));              // another sequence
    Send(client, EncodeVmFrame(Bytes{request[0]}));  // too short
    Send(client, Reply(request, {0x80}));
  });
  VmClient client;
  std::string error;
  ASSERT_TRUE(client.Connect(peer.Address(), error)) << error;
  const auto reply = client.Request(0, 9, kGetFlags);
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->completion, 0x80);
  EXPECT_TRUE(reply->data.empty());
}

TEST(VmClient, SilenceAndAClosedConnectionEndWithoutAnAnswer) {
  const std::function<void(int)> peers[] = {
      [](int client) {  // takes the request, answers nothing until the client has gone
        NextRequest(client);
        NextRequest(client);
      },
      [](int client) { NextRequest(client); },  // takes the request and hangs up
  };
  for (const auto& serve : peers) {
    Peer peer(serve);
    VmClient client(kShort);
    std::string error;
    ASSERT_TRUE(client.Connect(peer.Address(), error)) << error;
    EXPECT_FALSE(client.Request(0, 9, kGetFlags));
  }
}

TEST(VmClient, NobodyListeningIsAnError) {
  std::string address;
  {
    address = Peer([](int) {}).Address();
  }
  VmClient client(kShort);
  std::string error;
  EXPECT_FALSE(client.Connect(address, error));
  EXPECT_NE(error.find(address), std::string::npos) << error;
  EXPECT_FALSE(client.Request(0, 9, kGetFlags));
}

}  // namespace
}  // namespace sim

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

constexpr std::chrono::milliseconds kShort{200};
constexpr std::uint8_t kGetFlags[] = {5, 0, 0};

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

}  // namespace
}  // namespace sim

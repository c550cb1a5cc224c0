#pragma once

// A peer of the service, over TCP or on another stream socket.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <string>
#include <string_view>

#include "Fd.hpp"

namespace quorbin::tests {

inline constexpr auto Patience = std::chrono::seconds(60);  // then a wait counts as failed

// A connected stream socket. Reads give up after Patience.
class Peer {
 public:
  Peer() = default;
  // Connects to the address, a sockaddr of the family; no peer if that fails.
  Peer(int family, const auto& address) : socket_(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit = {.tv_sec = Patience.count(), .tv_usec = 0};
    ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const int little = 1024;  // unread replies soon fill it
    ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
    const auto* general = reinterpret_cast<const sockaddr*>(&address);
    if (::connect(socket_.Get(), general, sizeof address) != 0) socket_.Reset();
  }

  static Peer Tcp(int port, bool v6 = false) {
    const auto portBytes = htons(static_cast<in_port_t>(port));
    const sockaddr_in v4Address = {AF_INET, portBytes, {htonl(INADDR_LOOPBACK)}, {}};
    const sockaddr_in6 v6Address = {AF_INET6, portBytes, 0, in6addr_loopback, 0};
    Peer peer = v6 ? Peer(AF_INET6, v6Address) : Peer(AF_INET, v4Address);
    const int on = 1;
    ::setsockopt(peer.Descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return peer;
  }

  static Peer Local(const std::string& path) {
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return {AF_UNIX, address};
  }

  explicit operator bool() const { return static_cast<bool>(socket_); }
  int Descriptor() const { return socket_.Get(); }

  bool Send(std::string_view bytes) const {
    return ::send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }
  // What one receive returns; "(closed)" at the end of the stream, "(error)" on a reset.
  std::string Receive() const {
    std::string bytes(65536, '\0');
    const ssize_t count = ::recv(socket_.Get(), bytes.data(), bytes.size(), 0);
    if (count < 0) return "(error)";
    if (count == 0) return "(closed)";
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
  }
  // Everything up to the end of the stream or a reset.
  std::string ReceiveAll() const {
    std::string all, part;
    while (!all.ends_with("(error)") && (part = Receive()) != "(closed)") all += part;
    return all;
  }
  // Sends the messages, separated by bars, and returns the reply to the last one.
  std::string Talk(std::string_view messages) const {
    const std::size_t bar = messages.find('|');
    Send(messages.substr(0, bar));
    std::string reply = Receive();
    return bar == messages.npos ? reply : Talk(messages.substr(bar + 1));
  }

 private:
  Fd socket_;
};

}  // namespace quorbin::tests

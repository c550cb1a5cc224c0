#include "TcpListener.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <utility>

#include "AddressText.hpp"
#include "LastError.hpp"
#include "Report.hpp"

namespace quorbin {

namespace {

// Peers that may wait while the program is busy. They are reset when a connection begins; the
// system drops any more silently, and those try again only after a full second. So there is room
// for a crowd.
constexpr int Backlog = 128;

// A peer that has vanished silently becomes a socket error after about 90 seconds, whether the
// connection is silent or a reply is on its way.
constexpr int KeepIdle = 60;      // seconds of silence
constexpr int KeepInterval = 10;  // seconds between probes
constexpr int KeepCount = 3;      // probes without an answer
constexpr int UserTimeout = (KeepIdle + KeepCount * KeepInterval) * 1000;  // milliseconds

// Offset of the port in an address, the same in both families.
constexpr std::size_t PortPlace = offsetof(sockaddr_in, sin_port);
static_assert(PortPlace == offsetof(sockaddr_in6, sin6_port));

void SetOption(int descriptor, int level, int option, int value) {
  // None of these options is essential: a system that refuses one still works.
  ::setsockopt(descriptor, level, option, &value, sizeof value);
}

}  // namespace

bool TcpListener::SetAddress(const std::string& address) {
  sockaddr_storage parsed{};
  if (!address.empty()) {
    addrinfo hints{};
    // For IPv4, getaddrinfo also accepts shortened forms, which are typing errors here.
    in_addr v4{};
    hints.ai_family = ::inet_pton(AF_INET, address.c_str(), &v4) == 1 ? AF_INET : AF_INET6;
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (::getaddrinfo(address.c_str(), nullptr, &hints, &list) != 0) return false;
    std::memcpy(&parsed, list->ai_addr, list->ai_addrlen);
    ::freeaddrinfo(list);
  }
  address_ = parsed;
  return true;
}

std::error_code TcpListener::BindTo(Fd& owner, sockaddr_storage address, bool v4Too) const {
  const in_port_t port = htons(static_cast<in_port_t>(port_));
  std::memcpy(reinterpret_cast<char*>(&address) + PortPlace, &port, sizeof port);
  const bool v6 = address.ss_family == AF_INET6;
  Fd socket(::socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) return LastError();
  SetOption(socket.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
  if (v6) SetOption(socket.Get(), IPPROTO_IPV6, IPV6_V6ONLY, v4Too ? 0 : 1);
  const socklen_t length = v6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    return LastError();
  }
  owner = std::move(socket);
  return {};
}

std::error_code TcpListener::BindToAll(Fd& owner) const {
  sockaddr_storage any{};
  any.ss_family = AF_INET6;
  std::error_code error = BindTo(owner, any, true);
  if (error == std::errc::address_family_not_supported ||
      error == std::errc::address_not_available) {
    any.ss_family = AF_INET;  // IPv6 is off
    error = BindTo(owner, any, true);
  }
  return error;
}

std::error_code TcpListener::Bind() {
  if (port_ < 0 || port_ > std::numeric_limits<in_port_t>::max()) {
    return std::make_error_code(std::errc::result_out_of_range);
  }
  return OneAddress() ? BindTo(socket_, address_, false) : BindToAll(socket_);
}

std::error_code TcpListener::BindAnyPort() {
  // With one address as well: the guard needs a port that is free on all others.
  Fd chosen;
  if (const std::error_code error = BindToAll(chosen)) return error;
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  if (::getsockname(chosen.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return LastError();
  }
  in_port_t port = 0;
  std::memcpy(&port, reinterpret_cast<const char*>(&address) + PortPlace, sizeof port);
  port_ = ntohs(port);
  // A port that was not requested by number would be released at the first shutdown, so it is bound
  // again by number while the first socket still holds it.
  const std::error_code error = Bind();
  if (!error) Report("listening on port " + std::to_string(port_));
  return error;
}

std::error_code TcpListener::Open() {
  if (const std::error_code error = port_ == 0 ? BindAnyPort() : Bind()) return error;
  const int listener = socket_.Get();
  // Accepted connections inherit these.
  SetOption(listener, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(listener, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(listener, IPPROTO_TCP, TCP_KEEPIDLE, KeepIdle);
  SetOption(listener, IPPROTO_TCP, TCP_KEEPINTVL, KeepInterval);
  SetOption(listener, IPPROTO_TCP, TCP_KEEPCNT, KeepCount);
  SetOption(listener, IPPROTO_TCP, TCP_USER_TIMEOUT, UserTimeout);

  if (OneAddress()) {
    if (const std::error_code error = BindToAll(guard_)) return error;
  }
  // SO_REUSEADDR, set before bind, makes this first listen() succeed over connections of an earlier
  // run. It must go after it, or another user could take the port while we do not listen.
  // SO_REUSEPORT replaces it: the system remembers our user at this listen(), and shares the port
  // with no other.
  const auto setBoth = [this](int option, int value) {
    SetOption(socket_.Get(), SOL_SOCKET, option, value);
    if (guard_) SetOption(guard_.Get(), SOL_SOCKET, option, value);
  };
  setBoth(SO_REUSEPORT, 1);
  if (::listen(listener, Backlog) != 0) return LastError();
  setBoth(SO_REUSEADDR, 0);
  return {};
}

std::error_code TcpListener::Listen() {
  if (!socket_) return Open();
  return ::listen(socket_.Get(), Backlog) == 0 ? std::error_code() : LastError();
}

void TcpListener::Stop() { ::shutdown(socket_.Get(), SHUT_RD); }

Arrival TcpListener::Accept() {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  Arrival peer;
  peer.Connection.Reset(::accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &length,
                                  SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!peer.Connection) return peer;
  // What remains of the connection must not stop the next run from binding the port.
  SetOption(peer.Connection.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
  peer.Address = AddressText(reinterpret_cast<const sockaddr*>(&address), length);
  return peer;
}

}  // namespace quorbin

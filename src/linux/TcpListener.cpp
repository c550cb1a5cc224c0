#include "TcpListener.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "LastError.hpp"

namespace quorbin {

namespace {

// Peers that may wait while the program is at work. They are reset when a connection begins; the
// system drops without a word those beyond, which then try again after a whole second. So it is
// longer than a crowd.
constexpr int Backlog = 128;

// A peer that has vanished without a word becomes a socket error after about 90 seconds, whether
// the connection is silent or a reply is on its way.
constexpr int KeepIdle = 60;      // seconds of silence
constexpr int KeepInterval = 10;  // seconds between probes
constexpr int KeepCount = 3;      // probes without an answer
constexpr int UserTimeout = (KeepIdle + KeepCount * KeepInterval) * 1000;  // milliseconds

void SetOption(int descriptor, int level, int option, int value) {
  // Each of these only makes a good thing better; a system that refuses one still works.
  ::setsockopt(descriptor, level, option, &value, sizeof value);
}

std::string AddressText(const sockaddr_storage& address, socklen_t length) {
  std::array<char, NI_MAXHOST> text{};
  if (address.ss_family == AF_INET6) {
    in6_addr v6{};
    std::memcpy(&v6, reinterpret_cast<const char*>(&address) + offsetof(sockaddr_in6, sin6_addr),
                sizeof v6);
    if (IN6_IS_ADDR_V4MAPPED(&v6)) {
      return ::inet_ntop(AF_INET, &v6.s6_addr[12], text.data(), text.size());
    }
  }
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (::getnameinfo(generic, length, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) != 0) {
    return {};
  }
  return text.data();
}

}  // namespace

std::error_code TcpListener::Bind() {
  if (port_ < 0 || port_ > std::numeric_limits<in_port_t>::max()) {
    return std::make_error_code(std::errc::result_out_of_range);
  }
  const in_port_t port = htons(static_cast<in_port_t>(port_));
  constexpr int type = SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC;
  const sockaddr_in6 any6 = {.sin6_family = AF_INET6,
                             .sin6_port = port,
                             .sin6_flowinfo = 0,
                             .sin6_addr = in6addr_any,
                             .sin6_scope_id = 0};
  const sockaddr_in any4 = {
      .sin_family = AF_INET, .sin_port = port, .sin_addr = {INADDR_ANY}, .sin_zero = {}};

  const auto bindTo = [&](int family, const void* address, socklen_t length) -> std::error_code {
    socket_.Reset(::socket(family, type, 0));
    if (!socket_) return LastError();
    SetOption(socket_.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
    if (family == AF_INET6) SetOption(socket_.Get(), IPPROTO_IPV6, IPV6_V6ONLY, 0);
    if (::bind(socket_.Get(), static_cast<const sockaddr*>(address), length) == 0) return {};
    const std::error_code error = LastError();
    socket_.Reset();
    return error;
  };
  std::error_code error = bindTo(AF_INET6, &any6, sizeof any6);
  if (error == std::errc::address_family_not_supported ||
      error == std::errc::address_not_available) {
    error = bindTo(AF_INET, &any4, sizeof any4);  // IPv6 is off
  }
  return error;
}

std::error_code TcpListener::BindAnyPort() {
  if (const std::error_code error = Bind()) return error;
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  if (::getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return LastError();
  }
  // The port stands in the same place in both families.
  in_port_t port = 0;
  std::memcpy(&port, reinterpret_cast<const char*>(&address) + offsetof(sockaddr_in, sin_port),
              sizeof port);
  port_ = ntohs(port);
  // A port that was not asked for by its number would be given up at the first shutdown: bound
  // anew, before the first socket lets it go.
  const Fd chosen = std::move(socket_);
  const std::error_code error = Bind();
  if (!error) {
    ::dprintf(STDERR_FILENO, "Quorbin: listening on port %d\n", static_cast<int>(port_));
  }
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

  // With SO_REUSEPORT this makes the system remember our user as the one that shares the port,
  // while SO_REUSEADDR still goes past connections that no process owns any more. From here on
  // nothing but another listener of our own user could stop a listen().
  SetOption(listener, SOL_SOCKET, SO_REUSEPORT, 1);
  if (::listen(listener, Backlog) != 0) return LastError();
  SetOption(listener, SOL_SOCKET, SO_REUSEADDR, 0);
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
  peer.Address = AddressText(address, length);
  return peer;
}

}  // namespace quorbin

#include "ServiceConnection.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "LastError.hpp"

namespace quorbin {
namespace {

constexpr int CloseSeconds = 2;  // how long ClosesSilently waits

// A connection that waits while the service serves another sender is reset.
Failure NotServing() {
  return {"connection refused: the service does not run, or it serves another sender", "", true,
          true};
}

Failure Lost(std::string sentence) { return {std::move(sentence), "", false, true}; }

}  // namespace

ServiceConnection::ServiceConnection(const std::string& host, int port, int timeout)
    : timeout_(timeout) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (error != 0) throw Lost("host " + host + ": " + gai_strerror(error));
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  int reason = 0;
  for (const addrinfo* a = found; a != nullptr; a = a->ai_next) {
    if (Connect(*a)) return;
    if (reason != ECONNREFUSED) reason = errno;
  }
  if (reason == ECONNREFUSED || reason == EINTR) throw NotServing();
  if (reason == EINPROGRESS) reason = ETIMEDOUT;
  throw Lost("no connection to " + host + ": " + std::generic_category().message(reason));
}

bool ServiceConnection::Connect(const addrinfo& address) {
  socket_.Reset(socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol));
  if (!socket_) return false;
  LimitTime(timeout_);
  const int on = 1;  // a message leaves at once, whatever is still under way
  setsockopt(socket_.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connect(socket_.Get(), address.ai_addr, address.ai_addrlen) == 0;
}

// Bounds connect, send and receive; past it they fail with EINPROGRESS or EAGAIN.
void ServiceConnection::LimitTime(int seconds) const {
  const timeval limit{seconds, 0};
  setsockopt(socket_.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

void ServiceConnection::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(n));
      continue;
    }
    if (errno == EINTR) continue;
    if (errno == EAGAIN) {
      throw Lost("the service took no data for " + std::to_string(timeout_) + " s");
    }
    if (!heard_) throw NotServing();
    const std::string lost = "the connection is lost: " + LastError().message();
    if (Spoke()) throw Failure{"the service ended the transfer early", Receive()};
    throw Lost(lost);
  }
}

std::string ServiceConnection::Receive() {
  std::array<char, 512> reply{};
  ssize_t n = 0;
  do n = recv(socket_.Get(), reply.data(), reply.size(), 0);
  while (n < 0 && errno == EINTR);
  if (n < 0 && errno == EAGAIN) {
    throw Lost("no reply from the service within " + std::to_string(timeout_) + " s");
  }
  if (n < 0 && !heard_) throw NotServing();
  if (n < 0) throw Lost("the connection is lost: " + LastError().message());
  if (n == 0 && !heard_) {
    throw Failure{
        "the host is not allowed to connect (the service closed the connection without a reply)"};
  }
  if (n == 0) throw Lost("the service closed the connection before the end of the file");
  heard_ = true;
  return std::string(reply.data(), static_cast<std::size_t>(n));
}

bool ServiceConnection::Spoke() const {
  pollfd waiting{socket_.Get(), POLLIN, 0};
  return poll(&waiting, 1, 0) > 0;
}

void ServiceConnection::Flush() const {
  const int none = 1;  // bytes; the socket counts as writable with fewer than these unsent
  setsockopt(socket_.Get(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, &none, sizeof none);
  pollfd waiting{socket_.Get(), POLLOUT, 0};
  while (poll(&waiting, 1, timeout_ * 1000) < 0 && errno == EINTR) {
  }
}

bool ServiceConnection::ClosesSilently() {
  LimitTime(CloseSeconds);
  char more = 0;
  return recv(socket_.Get(), &more, 1, 0) <= 0;
}

}  // namespace quorbin

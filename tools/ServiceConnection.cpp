#include "ServiceConnection.hpp"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "LastError.hpp"
#include "Protocol.hpp"

namespace quorbin {
namespace {

constexpr int CloseSeconds = 2;  // how long ClosesSilently waits

// Bytes that a Unix socket may hold, as far as the system lets it. With the usual 208 KiB the two
// ends wake each other so often that a stream is slower than over the loopback.
constexpr int LocalQueue = 1 << 20;

// The service serves one sender at a time. While it does, and for a moment after it, others are
// refused; those that had got into its queue are reset.
Failure NotServing() {
  return {"connection refused: the service does not run, or it serves another sender", "", true,
          true};
}

Failure Lost(std::string sentence, bool busy = false) {
  return {std::move(sentence), "", busy, true};
}

// An error of connect that a service may cause while it is busy or about to start. A Unix socket
// that does not exist yet is one.
bool MayPass(int error) {
  constexpr std::array passing = {ECONNREFUSED, ECONNRESET, ETIMEDOUT, EAGAIN, EINTR, ENOENT};
  return std::ranges::find(passing, error) != passing.end();
}

}  // namespace

ServiceAddress FindHost(const std::string& host, int port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (error != 0) throw Lost("host " + host + ": " + gai_strerror(error));
  return {host, std::shared_ptr<addrinfo>(found, freeaddrinfo)};
}

ServiceConnection::ServiceConnection(const ServiceAddress& address, int connectTime, int timeout)
    : timeout_(timeout), connectTime_(connectTime) {
  bool connected = false;
  int reason = 0;
  if (address.addresses == nullptr) {
    connected = ConnectLocal(address.name);
    reason = errno;
  }
  for (const addrinfo* a = address.addresses.get(); a != nullptr && !connected; a = a->ai_next) {
    connected = ConnectHost(*a);
    if (!connected && !MayPass(reason)) reason = errno == EINPROGRESS ? ETIMEDOUT : errno;
  }
  if (connected) {
    LimitTime(timeout_);
    if (address.addresses == nullptr) CheckOwner(address.name);
    return;
  }
  if (reason == ECONNREFUSED) throw NotServing();
  throw Lost("no connection to " + address.name + ": " + std::generic_category().message(reason),
             MayPass(reason));
}

bool ServiceConnection::Open(int family, int type, int protocol) {
  socket_.Reset(socket(family, type | SOCK_CLOEXEC, protocol));
  if (socket_) LimitTime(connectTime_);
  return static_cast<bool>(socket_);
}

bool ServiceConnection::ConnectHost(const addrinfo& address) {
  if (!Open(address.ai_family, address.ai_socktype, address.ai_protocol)) return false;
  const int on = 1;  // a message leaves at once, even while another is under way
  setsockopt(socket_.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connect(socket_.Get(), address.ai_addr, address.ai_addrlen) == 0;
}

// Through an open descriptor, since the path may be too long for a socket's address.
bool ServiceConnection::ConnectLocal(const std::string& path) {
  const Fd place(open(path.c_str(), O_PATH | O_CLOEXEC));
  if (!place || !Open(AF_UNIX, SOCK_STREAM, 0)) return false;
  setsockopt(socket_.Get(), SOL_SOCKET, SO_SNDBUF, &LocalQueue, sizeof LocalQueue);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", place.Get());
  return connect(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// Whoever may write in the socket's directory can put a socket there.
void ServiceConnection::CheckOwner(const std::string& path) const {
  ucred server{};
  socklen_t size = sizeof server;
  if (getsockopt(socket_.Get(), SOL_SOCKET, SO_PEERCRED, &server, &size) != 0) {
    throw Lost(path + ": " + LastError().message());
  }
  if (server.uid == geteuid() || server.uid == 0) return;
  throw Lost("nothing is sent to " + path + ": its server belongs to another user, number " +
             std::to_string(server.uid));
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

void ServiceConnection::Ask(std::string_view message) {
  Send(message);
  const std::string reply = Receive();
  if (reply != Reply::Ok) throw Refusal(reply);
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

Failure Refusal(const std::string& reply) {
  std::string sentence = "unexpected reply";
  if (reply == Reply::Param) sentence = "the service does not know this message";
  if (reply == Reply::Nak) sentence = "the service has no file open";
  if (reply.starts_with(Reply::BufferOverrun)) sentence = "a buffer arrived longer than announced";
  if (reply.starts_with(Reply::BufferAtEof)) {
    sentence = "the file is cut short at an end marker in it, or has changed meanwhile";
  }
  return {sentence, reply};
}

}  // namespace quorbin

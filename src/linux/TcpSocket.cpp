#include "TcpSocket.hpp"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "LastError.hpp"

namespace quorbin {

namespace {

// Further peers that may wait while a request is being handled; they are reset then.
constexpr int Backlog = 1;

// A peer that has vanished without a word becomes a socket error after about 90 seconds, whether
// the connection is silent or a reply is on its way.
constexpr int KeepIdle = 60;      // seconds of silence
constexpr int KeepInterval = 10;  // seconds between probes
constexpr int KeepCount = 3;      // probes without an answer
constexpr int UserTimeout = (KeepIdle + KeepCount * KeepInterval) * 1000;  // milliseconds

constexpr std::size_t FirstBuffer = std::size_t{64} << 10U;
// A buffer that grew beyond this is given back at the end of the connection.
constexpr std::size_t KeptBuffer = std::size_t{4} << 20U;

// Closed connections that may linger at once, and what is read away of each: in all, and in one
// event, so that none gets in the way of the next connection.
constexpr std::size_t MaxLingering = 16;
constexpr std::size_t LingerBytes = std::size_t{16} << 20U;
constexpr std::size_t LingerStep = std::size_t{1} << 20U;

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

bool IsTransient(int error) {
  // What a peer can cause, or the network on the way to it; the listener itself is sound.
  constexpr std::array transient = {EAGAIN,     EINTR,       ECONNABORTED, EPROTO,    EPERM,
                                    ENETDOWN,   ENOPROTOOPT, EHOSTDOWN,    ENONET,    EHOSTUNREACH,
                                    EOPNOTSUPP, ENETUNREACH, ETIMEDOUT,    ECONNRESET};
  return std::ranges::find(transient, error) != transient.end();
}

}  // namespace

TcpSocket::TcpSocket(EventLoop& loop) : loop_(loop), buffer_(FirstBuffer) {}

TcpSocket::~TcpSocket() {
  if (listener_) loop_.Unwatch(listener_.Get());
  if (connection_) loop_.Unwatch(connection_.Get());
  while (!lingering_.empty()) Forget(lingering_.begin());
}

std::error_code TcpSocket::Bind() {
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
    listener_.Reset(::socket(family, type, 0));
    if (!listener_) return LastError();
    SetOption(listener_.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
    if (family == AF_INET6) SetOption(listener_.Get(), IPPROTO_IPV6, IPV6_V6ONLY, 0);
    if (::bind(listener_.Get(), static_cast<const sockaddr*>(address), length) == 0) return {};
    const std::error_code error = LastError();
    listener_.Reset();
    return error;
  };
  std::error_code error = bindTo(AF_INET6, &any6, sizeof any6);
  if (error == std::errc::address_family_not_supported ||
      error == std::errc::address_not_available) {
    error = bindTo(AF_INET, &any4, sizeof any4);  // IPv6 is off
  }
  return error;
}

std::error_code TcpSocket::BindAnyPort() {
  if (const std::error_code error = Bind()) return error;
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  if (::getsockname(listener_.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return LastError();
  }
  // The port stands in the same place in both families.
  in_port_t port = 0;
  std::memcpy(&port, reinterpret_cast<const char*>(&address) + offsetof(sockaddr_in, sin_port),
              sizeof port);
  port_ = ntohs(port);
  // A port that was not asked for by its number would be given up at the first shutdown: bound
  // anew, before the first socket lets it go.
  const Fd chosen = std::move(listener_);
  const std::error_code error = Bind();
  if (!error) {
    ::dprintf(STDERR_FILENO, "Quorbin: listening on port %d\n", static_cast<int>(port_));
  }
  return error;
}

std::error_code TcpSocket::Listen() {
  if (!listener_) {
    if (const std::error_code error = port_ == 0 ? BindAnyPort() : Bind()) return error;
  }
  SetOption(listener_.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
  if (::listen(listener_.Get(), Backlog) != 0) return LastError();
  state_ = SocketState::Listening;
  loop_.Watch(listener_.Get(), EventLoop::Readable, [this](unsigned) { RequestReady(); });
  return {};
}

void TcpSocket::RequestReady() {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  requested_.Reset(::accept4(listener_.Get(), reinterpret_cast<sockaddr*>(&address), &length,
                             SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!requested_) {
    // No descriptor left, say: the error's handler closes the listener, which resets the peer, so
    // the same request does not come back without end.
    if (!IsTransient(errno)) RaiseError(errno);
    return;
  }
  remoteHostIP_ = AddressText(address, length);
  if (remoteHostIP_.empty()) {
    requested_.Reset();  // no list can tell who that is
    return;
  }
  events_.ConnectionRequest(requested_.Get());
  requested_.Reset();
}

void TcpSocket::Accept(int requestID) {
  if (!requested_ || requestID != requested_.Get()) return;
  connection_ = std::move(requested_);
  ++connectionNumber_;
  replies_ = {};
  sendFailed_ = false;
  state_ = SocketState::Connected;
  const int peer = connection_.Get();
  SetOption(peer, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(peer, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(peer, IPPROTO_TCP, TCP_KEEPIDLE, KeepIdle);
  SetOption(peer, IPPROTO_TCP, TCP_KEEPINTVL, KeepInterval);
  SetOption(peer, IPPROTO_TCP, TCP_KEEPCNT, KeepCount);
  SetOption(peer, IPPROTO_TCP, TCP_USER_TIMEOUT, UserTimeout);
  WatchConnection();
}

void TcpSocket::WatchConnection() {
  const unsigned readiness = EventLoop::Readable | (replies_.Empty() ? 0U : EventLoop::Writable);
  loop_.Watch(connection_.Get(), readiness, [this](unsigned ready) { ConnectionReady(ready); });
}

void TcpSocket::ConnectionReady(unsigned readiness) {
  if ((readiness & EventLoop::Writable) != 0 && !replies_.Empty()) {
    switch (replies_.Flush(connection_.Get())) {
      case SendQueue::Result::Failed:
        sendFailed_ = true;
        if ((readiness & EventLoop::Readable) != 0) ReceiveWaiting();  // what came before the end
        if (state_ == SocketState::Connected) events_.Close();
        return;
      case SendQueue::Result::Sent:
        WatchConnection();
        break;
      case SendQueue::Result::Waiting:
        break;
    }
  }
  if ((readiness & EventLoop::Readable) != 0) ReceiveWaiting();
}

void TcpSocket::ReceiveWaiting() {
  const int peer = connection_.Get();
  const ssize_t received = ::recv(peer, buffer_.Data(), buffer_.Size(), 0);
  if (received == 0) {
    events_.Close();
    return;
  }
  if (received < 0) {
    if (errno != EAGAIN && errno != EINTR) RaiseError(errno);
    return;
  }
  auto length = static_cast<std::size_t>(received);
  int more = 0;
  // A full buffer may have more behind it: the chunk is longer than any before. Without the memory
  // for it the rest is a chunk of its own.
  if (length == buffer_.Size() && ::ioctl(peer, FIONREAD, &more) == 0 && more > 0 &&
      buffer_.Resize(length + static_cast<std::size_t>(more))) {
    const ssize_t rest = ::recv(peer, buffer_.Data() + length, buffer_.Size() - length, 0);
    if (rest > 0) length += static_cast<std::size_t>(rest);
  }
  chunk_ = std::string_view(buffer_.Data(), length);
  events_.DataArrival(static_cast<std::int64_t>(length));
}

void TcpSocket::SendData(std::string_view bytes) {
  if (state_ != SocketState::Connected || sendFailed_) return;
  switch (replies_.Send(connection_.Get(), bytes)) {
    case SendQueue::Result::Sent:
      break;
    case SendQueue::Result::Waiting:
      WatchConnection();
      break;
    case SendQueue::Result::Failed:
      sendFailed_ = true;
      loop_.Defer([this, number = connectionNumber_] {
        if (state_ == SocketState::Connected && connectionNumber_ == number) events_.Close();
      });
      break;
  }
}

void TcpSocket::RaiseError(int number) {
  bool cancelDisplay = false;
  const std::string description = std::generic_category().message(number);
  events_.Error(number, description, cancelDisplay);
  if (!cancelDisplay) ::dprintf(STDERR_FILENO, "Quorbin: %s\n", description.c_str());
}

void TcpSocket::Close() {
  if (state_ == SocketState::Listening) {
    // Out of the loop as well: until the next listen() the descriptor reports a hang-up.
    loop_.Unwatch(listener_.Get());
    // Two sockets that both allow reuse may be bound to one port while neither listens; so that
    // nobody takes it over meanwhile, ours allows it only where listen() needs it.
    SetOption(listener_.Get(), SOL_SOCKET, SO_REUSEADDR, 0);
    ::shutdown(listener_.Get(), SHUT_RD);
  } else if (state_ == SocketState::Connected) {
    loop_.Unwatch(connection_.Get());
    Linger();
    chunk_ = {};
    if (buffer_.Size() > KeptBuffer) buffer_.Resize(FirstBuffer);
  }
  state_ = SocketState::Closed;
}

void TcpSocket::Linger() {
  if (sendFailed_) {
    connection_.Reset();
    return;
  }
  if (lingering_.size() == MaxLingering) Forget(lingering_.begin());
  lingering_.push_back({std::move(connection_), std::move(replies_), LingerBytes, false});
  const auto lingering = std::prev(lingering_.end());
  if (lingering->Replies.Empty()) ::shutdown(lingering->Connection.Get(), SHUT_WR);
  WatchLingering(lingering);
}

void TcpSocket::WatchLingering(std::list<Lingering>::iterator lingering) {
  // The end of a peer's side would be reported again and again.
  const unsigned readiness = (lingering->PeerHasClosed ? 0U : EventLoop::Readable) |
                             (lingering->Replies.Empty() ? 0U : EventLoop::Writable);
  loop_.Watch(lingering->Connection.Get(), readiness,
              [this, lingering](unsigned) { LingeringReady(lingering); });
}

void TcpSocket::LingeringReady(std::list<Lingering>::iterator lingering) {
  const int peer = lingering->Connection.Get();
  if (!lingering->Replies.Empty()) {
    const SendQueue::Result result = lingering->Replies.Flush(peer);
    if (result == SendQueue::Result::Failed) {
      Forget(lingering);
      return;
    }
    if (result == SendQueue::Result::Sent) {
      ::shutdown(peer, SHUT_WR);
      if (lingering->PeerHasClosed) {
        Forget(lingering);
        return;
      }
      WatchLingering(lingering);
    }
  }
  if (lingering->PeerHasClosed) return;
  // Without a place for them the bytes are dropped where they are.
  const ssize_t dropped = ::recv(peer, nullptr, LingerStep, MSG_TRUNC | MSG_DONTWAIT);
  const bool waits = dropped < 0 && (errno == EAGAIN || errno == EINTR);
  if (waits) return;
  if (dropped == 0 && !lingering->Replies.Empty()) {
    lingering->PeerHasClosed = true;  // but may read on
    WatchLingering(lingering);
    return;
  }
  const auto count = static_cast<std::size_t>(std::max<ssize_t>(dropped, 0));
  if (count == 0 || count > lingering->Budget) {
    Forget(lingering);
    return;
  }
  lingering->Budget -= count;
}

void TcpSocket::Forget(std::list<Lingering>::iterator lingering) {
  loop_.Unwatch(lingering->Connection.Get());
  lingering_.erase(lingering);
}

}  // namespace quorbin

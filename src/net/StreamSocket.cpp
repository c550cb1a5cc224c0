#include "StreamSocket.hpp"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "Protocol.hpp"
#include "Report.hpp"

namespace quorbin {

namespace {

constexpr std::size_t FirstBuffer = std::size_t{64} << 10U;
// A buffer that grew beyond this is given back at the end of the connection.
constexpr std::size_t KeptBuffer = std::size_t{4} << 20U;

bool IsTransient(int error) {
  // What a peer can cause, or the network on the way to it; the listener itself is sound.
  constexpr std::array transient = {EAGAIN,     EINTR,       ECONNABORTED, EPROTO,    EPERM,
                                    ENETDOWN,   ENOPROTOOPT, EHOSTDOWN,    ENONET,    EHOSTUNREACH,
                                    EOPNOTSUPP, ENETUNREACH, ETIMEDOUT,    ECONNRESET};
  return std::ranges::find(transient, error) != transient.end();
}

}  // namespace

StreamSocket::StreamSocket(EventLoop& loop, const InstanceDir& directory)
    : loop_(loop), local_(directory), lingering_(loop), buffer_(FirstBuffer) {}

StreamSocket::~StreamSocket() {
  if (state_ == SocketState::Listening) loop_.Unwatch(listener_->Descriptor());
  if (connection_) loop_.Unwatch(connection_.Get());
}

bool StreamSocket::SetLocalAddress(const std::string& address) {
  if (address == LocalPeer) {
    listener_ = &local_;
    return true;
  }
  listener_ = &tcp_;
  return tcp_.SetAddress(address);
}

std::error_code StreamSocket::Listen() {
  if (const std::error_code error = listener_->Listen()) return error;
  state_ = SocketState::Listening;
  loop_.Watch(listener_->Descriptor(), EventLoop::Readable, [this](unsigned) { RequestReady(); });
  return {};
}

void StreamSocket::RequestReady() {
  Arrival peer = listener_->Accept();
  if (!peer.Connection) {
    // For example, no descriptor is left. The error's handler closes the listener, which resets the
    // peer, so the same request is not reported endlessly.
    if (!IsTransient(errno)) RaiseError(errno);
    return;
  }
  if (peer.Address.empty()) return;  // another user, or no access list could match it
  remoteHostIP_ = std::move(peer.Address);
  requested_ = std::move(peer.Connection);
  events_.ConnectionRequest(requested_.Get());
  requested_.Reset();
}

void StreamSocket::Accept(int requestID) {
  if (!requested_ || requestID != requested_.Get()) return;
  connection_ = std::move(requested_);
  ++connectionNumber_;
  replies_ = {};
  sendFailed_ = false;
  peerHasClosed_ = false;
  state_ = SocketState::Connected;
  WatchConnection();
}

void StreamSocket::WatchConnection() {
  const unsigned readiness = EventLoop::Readable | (replies_.Empty() ? 0U : EventLoop::Writable);
  loop_.Watch(connection_.Get(), readiness, [this](unsigned ready) { ConnectionReady(ready); });
}

void StreamSocket::ConnectionReady(unsigned readiness) {
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

void StreamSocket::ReceiveWaiting() {
  const int peer = connection_.Get();
  const ssize_t received = ::recv(peer, buffer_.Data(), buffer_.Size(), 0);
  if (received == 0) {
    peerHasClosed_ = true;
    events_.Close();
    return;
  }
  if (received < 0) {
    if (errno != EAGAIN && errno != EINTR) RaiseError(errno);
    return;
  }
  auto length = static_cast<std::size_t>(received);
  int more = 0;
  // After a full buffer more may be waiting: the chunk is longer than any before. Without the
  // memory for it the rest is a chunk of its own.
  if (length == buffer_.Size() && ::ioctl(peer, FIONREAD, &more) == 0 && more > 0 &&
      buffer_.Resize(length + static_cast<std::size_t>(more))) {
    const ssize_t rest = ::recv(peer, buffer_.Data() + length, buffer_.Size() - length, 0);
    if (rest > 0) length += static_cast<std::size_t>(rest);
  }
  chunk_ = std::string_view(buffer_.Data(), length);
  events_.DataArrival(static_cast<std::int64_t>(length));
}

void StreamSocket::SendData(std::string_view bytes) {
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

void StreamSocket::RaiseError(int number) {
  bool cancelDisplay = false;
  const std::string description = std::generic_category().message(number);
  events_.Error(number, description, cancelDisplay);
  if (!cancelDisplay) Report(description);
}

void StreamSocket::Close() {
  if (state_ == SocketState::Listening) {
    loop_.Unwatch(listener_->Descriptor());
    listener_->Stop();
  } else if (state_ == SocketState::Connected) {
    loop_.Unwatch(connection_.Get());
    if (sendFailed_) {
      connection_.Reset();
    } else {
      lingering_.Add(std::move(connection_), std::move(replies_), peerHasClosed_);
    }
    chunk_ = {};
    if (buffer_.Size() > KeptBuffer) buffer_.Resize(FirstBuffer);
  }
  state_ = SocketState::Closed;
}

}  // namespace quorbin

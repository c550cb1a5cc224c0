#include "Lingering.hpp"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <iterator>
#include <utility>

namespace quorbin {

namespace {

constexpr std::size_t MaxEntries = 16;                         // then the oldest is closed
constexpr std::size_t MaxBytes = std::size_t{16} << 20U;       // drained from one connection
constexpr std::size_t BytesPerEvent = std::size_t{64} << 10U;  // so that none delays the next peer

}  // namespace

Lingering::~Lingering() {
  while (!entries_.empty()) Forget(entries_.begin());
}

void Lingering::Add(Fd connection, SendQueue replies, bool peerHasClosed) {
  if (entries_.size() == MaxEntries) Forget(entries_.begin());
  entries_.push_back({std::move(connection), std::move(replies), MaxBytes, peerHasClosed, false});
  loop_.Defer([this] { BeginAll(); });
}

void Lingering::BeginAll() {
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    const auto present = entry++;
    if (!present->Begun) Begin(present);
  }
}

void Lingering::Begin(Place entry) {
  entry->Begun = true;
  if (entry->Replies.Empty() && entry->PeerHasClosed) {
    Forget(entry);
    return;
  }
  if (entry->Replies.Empty()) ::shutdown(entry->Connection.Get(), SHUT_WR);
  Watch(entry);
}

void Lingering::Watch(Place entry) {
  // The peer's end of file would be reported again and again.
  const unsigned readiness = (entry->PeerHasClosed ? 0U : EventLoop::Readable) |
                             (entry->Replies.Empty() ? 0U : EventLoop::Writable);
  loop_.Watch(entry->Connection.Get(), readiness, [this, entry](unsigned) { Ready(entry); });
}

void Lingering::Ready(Place entry) {
  if (!entry->Replies.Empty()) {
    const SendQueue::Result result = entry->Replies.Flush(entry->Connection.Get());
    const bool sent = result == SendQueue::Result::Sent;
    if (result == SendQueue::Result::Failed || (sent && entry->PeerHasClosed)) {
      Forget(entry);
      return;
    }
    if (sent) {
      ::shutdown(entry->Connection.Get(), SHUT_WR);
      Watch(entry);
    }
  }
  if (!entry->PeerHasClosed) Drain(entry);
}

void Lingering::Drain(Place entry) {
  std::array<char, BytesPerEvent> bytes;
  const ssize_t count = ::recv(entry->Connection.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count == 0 && !entry->Replies.Empty()) {
    entry->PeerHasClosed = true;  // but may still read
    Watch(entry);
    return;
  }
  if (count <= 0 || static_cast<std::size_t>(count) > entry->Budget) {
    Forget(entry);
    return;
  }
  entry->Budget -= static_cast<std::size_t>(count);
}

void Lingering::Forget(Place entry) {
  loop_.Unwatch(entry->Connection.Get());
  entries_.erase(entry);
}

}  // namespace quorbin

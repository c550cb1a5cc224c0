#include "LocalListener.hpp"

#include <sys/socket.h>

#include <utility>

#include "LinkPlace.hpp"
#include "LocalSocket.hpp"
#include "Protocol.hpp"

namespace quorbin {

namespace {

// Peers that may wait while the program is busy; any more wait in connect().
constexpr int Backlog = 128;

}  // namespace

LocalListener::~LocalListener() {
  if (published_) RemoveFromDirectory(directory_.Descriptor(), LocalSocketName);
}

std::error_code LocalListener::Listen() {
  if (!directory_.Claimed()) return std::make_error_code(std::errc::no_such_file_or_directory);
  const int directory = directory_.Descriptor();
  if (!published_) {
    const std::error_code error = ListenInDirectory(directory, LocalSocketName, Backlog, socket_);
    published_ = !error;
    return error;
  }
  if (!next_ && BindNext(directory, LocalSocketName, next_)) {
    // The directory may have no room for a second name.
    RemoveFromDirectory(directory, LocalSocketName);
    if (const std::error_code error = BindNext(directory, LocalSocketName, next_)) return error;
  }
  if (const std::error_code error = ListenOnNext(directory, LocalSocketName, Backlog, next_)) {
    return error;
  }
  socket_ = std::move(next_);
  return {};
}

void LocalListener::Stop() {
  socket_.Reset();
  // Now, with the descriptor that has just become free. If it fails, Listen tries again.
  static_cast<void>(BindNext(directory_.Descriptor(), LocalSocketName, next_));
}

Arrival LocalListener::Accept() {
  Arrival peer;
  peer.Connection.Reset(::accept4(socket_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  // A peer of another user has no address, and so is dropped by who has asked.
  if (peer.Connection && IsSameUser(peer.Connection.Get())) peer.Address = LocalPeer;
  return peer;
}

}  // namespace quorbin
